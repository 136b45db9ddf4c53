// A frame read on a thread of its own, for tests that act while it waits.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "d3_sdk/DeviceManager.h"

class BackgroundRead {
public:
    explicit BackgroundRead(std::function<ReturnCode()> read)
        : thread_([this, read = std::move(read)] {
              started_ = true;
              result_ = read();
              done_ = true;
          }) {}
    ~BackgroundRead() {
        if (thread_.joinable()) thread_.join();
    }
    BackgroundRead(const BackgroundRead&) = delete;
    BackgroundRead& operator=(const BackgroundRead&) = delete;

    bool started() const { return started_; }
    bool done() const { return done_; }
    // Waits for the read to end and gives its answer.
    ReturnCode result() {
        if (thread_.joinable()) thread_.join();
        return result_;
    }

private:
    std::atomic<bool> started_{false};
    std::atomic<bool> done_{false};
    ReturnCode result_ = FAILED;
    std::thread thread_;  // last: it starts once the rest exists
};
