// TCP stream connection: receives frame events, unpacks them on its own
// thread and publishes complete frames to a FrameExchange.
#pragma once

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FrameExchange.h"
#include "FrameUnpacker.h"
#include "d3_protocol/Message.h"
#include "d3_sdk/Extensions.h"

namespace d3sdk {

class StreamReceiver {
public:
    explicit StreamReceiver(FrameExchange& exchange);
    ~StreamReceiver();
    StreamReceiver(const StreamReceiver&) = delete;
    StreamReceiver& operator=(const StreamReceiver&) = delete;

    // Connects, attaches with the session token and starts receiving; returns
    // the camera's status for the attach (2 on success), 33 when unreachable,
    // 5 on timeout.
    int32_t open(const std::string& ip, uint16_t port, uint32_t token, std::chrono::milliseconds timeout);
    void close();

    bool broken() const { return broken_; }
    std::chrono::steady_clock::time_point lastReceived() const;

    StreamStats stats() const;
    void resetStats();
    void noteDelivered();

private:
    void readHeader();
    void readPayload();
    void onFrame();
    void fail();

    FrameExchange& exchange_;
    FrameUnpacker unpacker_;
    asio::io_context io_;
    asio::ip::tcp::socket socket_;
    std::thread thread_;
    uint8_t header_[d3proto::kHeaderSize];
    d3proto::Header current_;
    std::vector<uint8_t> payload_;  // capacity kept: no allocation per frame
    std::chrono::steady_clock::time_point firstByte_;
    std::atomic<bool> broken_{false};

    mutable std::mutex statsMutex_;
    StreamStats stats_;
    double unpackMsSum_ = 0;
    bool haveLastId_ = false;
    std::chrono::steady_clock::time_point statsStart_;
    std::chrono::steady_clock::time_point lastReceived_;
};

}  // namespace d3sdk
