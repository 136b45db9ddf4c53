// When bytes handed to one direction of a simulated link come out at the far
// end. A link has a serialisation rate (bandwidth), a one-way delay (latency)
// and a varying extra delay (jitter); like a TCP connection it never reorders.
// The delay does not hold the sender: a link with one second of latency still
// carries 25 frames a second, each one second late. Times are passed in, so
// the rules are tested without a clock.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>

namespace d3sim {

class LinkTimeline {
public:
    using Clock = std::chrono::steady_clock;
    using us = std::chrono::microseconds;

    struct Shape {
        us latency{0};
        us jitter{0};              // this message's draw, 0..the configured jitter
        double bitsPerSecond = 0;  // 0: as fast as the loopback carries it
    };

    // How long `bytes` occupy the link at this rate.
    static us transmitTime(size_t bytes, double bitsPerSecond) {
        if (bitsPerSecond <= 0) return us(0);
        return us(static_cast<long long>(double(bytes) * 8.0 * 1e6 / bitsPerSecond + 0.5));
    }

    // A message that waits its turn behind earlier bytes (control replies).
    Clock::time_point queue(Clock::time_point now, size_t bytes, const Shape& shape) {
        const Clock::time_point start = std::max(now, freeAt_);
        freeAt_ = start + transmitTime(bytes, shape.bitsPerSecond);
        return arrive(freeAt_ + shape.latency + shape.jitter);
    }

    // A frame from a sender that keeps no queue: while the link is still
    // sending an earlier frame the new one is dropped (nullopt), as a camera
    // whose send buffer is full drops frames rather than falling behind.
    std::optional<Clock::time_point> offer(Clock::time_point now, size_t bytes, const Shape& shape) {
        if (freeAt_ > now) return std::nullopt;
        return queue(now, bytes, shape);
    }

private:
    // Strictly after the message sent ahead of it, so timers that fire in
    // order of their time deliver in order too.
    Clock::time_point arrive(Clock::time_point t) {
        lastArrival_ = std::max(lastArrival_ + us(1), t);
        return lastArrival_;
    }

    Clock::time_point freeAt_{};
    Clock::time_point lastArrival_{};
};

}  // namespace d3sim
