// The control connection: one request in flight, every request bounded by a
// timeout, replies matched by request id.
#pragma once

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TimedGate.h"
#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"

namespace d3sdk {

class ControlChannel {
public:
    ControlChannel();
    ~ControlChannel();
    ControlChannel(const ControlChannel&) = delete;
    ControlChannel& operator=(const ControlChannel&) = delete;

    // Connects within `timeout`; false if the camera cannot be reached.
    bool connect(const std::string& ip, uint16_t port, std::chrono::milliseconds timeout);
    void close();

    // Sends one request and waits for its reply. Returns the reply's status,
    // kTimeout when none came in time, or NETWORK_ERROR (33) when the
    // connection is gone. Callers on several threads are served one by one.
    int32_t request(d3proto::Command cmd, const d3proto::Json& args, d3proto::Json* reply,
                    std::chrono::milliseconds timeout);
    // The same for a request whose payload is not JSON (FirmwareChunk); the
    // reply is JSON as always.
    int32_t requestBytes(d3proto::Command cmd, const std::vector<uint8_t>& payload, d3proto::Json* reply,
                         std::chrono::milliseconds timeout);

    // Waits until the camera closes the connection (or it fails); false when
    // it is still open after `timeout`.
    bool waitBroken(std::chrono::milliseconds timeout);

    // True once the connection failed or the camera closed it.
    bool broken() const { return broken_; }
    // When anything last arrived from the camera.
    std::chrono::steady_clock::time_point lastReceived() const;

private:
    // Lets tests stand where a waiting request stands: holding the state lock.
    friend struct ControlChannelProbe;

    void readHeader();
    void readPayload();
    void fail();
    void writeNext();
    int32_t exchange(d3proto::Command cmd, const uint8_t* payload, size_t size, d3proto::Json* reply,
                     std::chrono::milliseconds timeout);

    asio::io_context io_;
    asio::ip::tcp::socket socket_;
    std::thread thread_;
    uint8_t header_[d3proto::kHeaderSize];
    d3proto::Header current_;
    std::vector<uint8_t> payload_;
    std::deque<std::vector<uint8_t>> writeQueue_;  // io thread only

    TimedGate oneRequest_;  // one request in flight
    mutable std::mutex stateMutex_;
    std::condition_variable replied_;
    uint32_t waitingFor_ = 0;
    bool haveReply_ = false;
    int32_t replyStatus_ = 0;
    std::vector<uint8_t> replyPayload_;
    std::chrono::steady_clock::time_point lastReceived_;
    // Set only under stateMutex_ once the io thread runs (waiters test it
    // there); atomic for the readers that take no lock.
    std::atomic<bool> broken_{false};
};

}  // namespace d3sdk
