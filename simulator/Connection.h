// One accepted TCP connection (control or stream): reads framed messages,
// writes queued messages in order. Lives on the server's io thread only.
#pragma once

#include <array>
#include <asio.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "d3_protocol/Message.h"

namespace d3sim {

class Connection : public std::enable_shared_from_this<Connection> {
public:
    enum class Kind { Control, Stream };
    using Ptr = std::shared_ptr<Connection>;
    using MessageHandler = std::function<void(const Ptr&, d3proto::Message&)>;
    using CloseHandler = std::function<void(const Ptr&)>;

    Connection(asio::ip::tcp::socket socket, Kind kind, MessageHandler onMessage, CloseHandler onClose);

    void start();
    // Queues a message; `done` runs once it has been written or dropped.
    void send(std::vector<uint8_t> bytes, std::function<void()> done = {});
    // Queues bytes the caller keeps alive until `done` runs (frames: no copy).
    void sendExternal(const std::vector<uint8_t>* bytes, std::function<void()> done);
    // Closes after everything queued so far has been written.
    void closeAfterWrites();
    // Closes now. Pending `done` callbacks still run. Idempotent.
    void close();

    Kind kind() const { return kind_; }
    bool closed() const { return closed_; }

private:
    struct Out {
        std::vector<uint8_t> owned;
        const std::vector<uint8_t>* external = nullptr;
        std::function<void()> done;
        bool closeMarker = false;
    };

    void readHeader();
    void readPayload();
    void writeNext();
    void rejectVersion();

    asio::ip::tcp::socket socket_;
    Kind kind_;
    MessageHandler onMessage_;
    CloseHandler onClose_;
    std::array<uint8_t, d3proto::kHeaderSize> header_{};
    d3proto::Message message_;
    std::deque<Out> out_;
    bool writing_ = false;
    bool closed_ = false;
};

}  // namespace d3sim
