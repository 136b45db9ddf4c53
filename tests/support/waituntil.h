// Waiting in tests for something to happen, never for a fixed time: the
// condition is checked until it holds or a generous deadline passes. Use
// QTest::qWaitFor instead where an event loop must keep running.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace d3test {

// True as soon as `done` holds; false if it still does not after `timeout`.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds timeout = std::chrono::milliseconds(20000)) {
    const auto giveUp = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > giveUp) return false;
        // A short poll: the conditions waited on (counters, states) have no
        // notification of their own.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace d3test
