#include "Connection.h"

#include "d3_protocol/Commands.h"

namespace d3sim {

Connection::Connection(asio::ip::tcp::socket socket, Kind kind, MessageHandler onMessage, CloseHandler onClose)
    : socket_(std::move(socket)), kind_(kind), onMessage_(std::move(onMessage)), onClose_(std::move(onClose)) {
    asio::error_code ec;
    socket_.set_option(asio::ip::tcp::no_delay(true), ec);
}

void Connection::start() { readHeader(); }

void Connection::readHeader() {
    auto self = shared_from_this();
    asio::async_read(socket_, asio::buffer(header_), [this, self](const asio::error_code& ec, size_t) {
        if (ec) return close();
        const d3proto::DecodeResult r =
            d3proto::decodeHeader(header_.data(), header_.size(), d3proto::kMaxControlPayload, message_.header);
        if (r == d3proto::DecodeResult::BadVersion) return rejectVersion();
        // Anything else that does not decode is not a client of ours, or a corrupted stream
        // we cannot resynchronise: dropping the connection is the only safe answer.
        if (r != d3proto::DecodeResult::Ok) return close();
        readPayload();
    });
}

void Connection::readPayload() {
    auto self = shared_from_this();
    message_.payload.resize(message_.header.payloadLength);
    asio::async_read(socket_, asio::buffer(message_.payload), [this, self](const asio::error_code& ec, size_t) {
        if (ec) return close();
        onMessage_(self, message_);
        if (!closed_) readHeader();
    });
}

void Connection::rejectVersion() {
    // Answer in our own version so a newer client can tell what it reached.
    d3proto::Header h;
    h.type = d3proto::MessageType::Reply;
    h.command = d3proto::getU16(header_.data() + 6);
    h.requestId = d3proto::getU32(header_.data() + 8);
    h.status = d3proto::status::kProtocolError;
    std::vector<uint8_t> bytes;
    d3proto::appendMessage(h, nullptr, 0, bytes);
    send(std::move(bytes));
    closeAfterWrites();
}

void Connection::send(std::vector<uint8_t> bytes, std::function<void()> done) {
    if (closed_) {
        if (done) done();
        return;
    }
    out_.push_back(Out{std::move(bytes), nullptr, std::move(done), false});
    writeNext();
}

void Connection::sendExternal(const std::vector<uint8_t>* bytes, std::function<void()> done) {
    if (closed_) {
        if (done) done();
        return;
    }
    out_.push_back(Out{{}, bytes, std::move(done), false});
    writeNext();
}

void Connection::closeAfterWrites() {
    if (closed_) return;
    out_.push_back(Out{{}, nullptr, {}, true});
    writeNext();
}

void Connection::writeNext() {
    if (writing_ || out_.empty() || closed_) return;
    if (out_.front().closeMarker) return close();
    writing_ = true;
    const Out& o = out_.front();
    const std::vector<uint8_t>& bytes = o.external ? *o.external : o.owned;
    auto self = shared_from_this();
    asio::async_write(socket_, asio::buffer(bytes), [this, self](const asio::error_code& ec, size_t) {
        writing_ = false;
        if (out_.empty()) return;  // close() already flushed the queue
        Out done = std::move(out_.front());
        out_.pop_front();
        if (done.done) done.done();
        if (ec) return close();
        writeNext();
    });
}

void Connection::close() {
    if (closed_) return;
    closed_ = true;
    asio::error_code ec;
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ec);
    socket_.close(ec);
    // Callers wait on these (the frame pump's "write in flight" flag), so run them
    // even though nothing will be written.
    std::deque<Out> pending;
    pending.swap(out_);
    for (Out& o : pending)
        if (o.done) o.done();
    auto self = shared_from_this();
    if (onClose_) onClose_(self);
}

}  // namespace d3sim
