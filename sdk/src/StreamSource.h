// What a session needs from its stream, whichever transport carries it: open
// with the session token, close, a broken flag, and the stream counters.
// Receivers fill FrameExchange::back() and publish it from their own thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "FrameExchange.h"
#include "d3_sdk/Extensions.h"

namespace d3sdk {

class StreamSource {
public:
    virtual ~StreamSource() = default;

    // Attaches to the camera's stream with the session token and starts
    // receiving; returns the camera's status (2 on success), 33 when
    // unreachable, 5 on timeout.
    virtual int32_t open(const std::string& ip, uint16_t port, uint32_t token, std::chrono::milliseconds timeout) = 0;
    virtual void close() = 0;

    bool broken() const { return broken_; }
    std::chrono::steady_clock::time_point lastReceived() const;

    StreamStats stats() const;
    void resetStats();
    void noteDelivered();

protected:
    // Counts a frame published to the exchange: `latencyMs` from its first
    // byte on the socket to ready. With `gapsDropped`, gaps in frame ids since
    // the last published frame count as dropped (a receiver that sees every
    // frame's fate counts drops itself).
    void countPublished(uint32_t frameId, bool overwritten, double latencyMs, bool gapsDropped = true);
    void noteReceived(uint64_t bytes);

    std::atomic<bool> broken_{false};
    mutable std::mutex statsMutex_;
    StreamStats stats_;  // under statsMutex_

private:
    double latencyMsSum_ = 0;
    bool haveLastId_ = false;
    std::chrono::steady_clock::time_point statsStart_;
    std::chrono::steady_clock::time_point lastReceived_;
};

}  // namespace d3sdk
