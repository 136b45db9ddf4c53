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
#include "StreamSource.h"
#include "d3_protocol/Message.h"

namespace d3sdk {

class StreamReceiver : public StreamSource {
public:
    explicit StreamReceiver(FrameExchange& exchange);
    ~StreamReceiver() override;
    StreamReceiver(const StreamReceiver&) = delete;
    StreamReceiver& operator=(const StreamReceiver&) = delete;

    // Connects and attaches with an AttachStream request.
    int32_t open(const std::string& ip, uint16_t port, uint32_t token, std::chrono::milliseconds timeout) override;
    void close() override;

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
    std::vector<uint8_t> payload_;  // an error text after the attach reply
    std::chrono::steady_clock::time_point firstByte_;
};

}  // namespace d3sdk
