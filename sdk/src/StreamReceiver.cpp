#include "StreamReceiver.h"

#include "IoThread.h"
#include "d3_protocol/Commands.h"
#include "d3_protocol/Payloads.h"

namespace d3sdk {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

StreamReceiver::StreamReceiver(FrameExchange& exchange) : exchange_(exchange), socket_(io_) {}

StreamReceiver::~StreamReceiver() { close(); }

int32_t StreamReceiver::open(const std::string& ip, uint16_t port, uint32_t token, std::chrono::milliseconds timeout) {
    asio::error_code ec;
    const auto addr = asio::ip::make_address_v4(ip, ec);
    if (ec) return 33;
    const auto attach = d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(d3proto::Command::AttachStream), 1,
                                             0, d3proto::dump(d3proto::Json{{"token", token}}));
    // Connect, attach and read the reply as one bounded exchange on this
    // thread; the receive thread starts only once the camera has accepted us.
    int32_t status = 5;
    bool finished = false;
    socket_.async_connect(tcp::endpoint(addr, port), [&](const asio::error_code& e) {
        if (e) {
            status = 33;
            finished = true;
            return;
        }
        asio::async_write(socket_, asio::buffer(attach), [&](const asio::error_code& e2, size_t) {
            if (e2) {
                status = 33;
                finished = true;
                return;
            }
            asio::async_read(socket_, asio::buffer(header_), [&](const asio::error_code& e3, size_t) {
                finished = true;
                if (e3) {
                    status = 33;
                } else if (d3proto::decodeHeader(header_, sizeof header_, d3proto::kMaxControlPayload, current_) !=
                               d3proto::DecodeResult::Ok ||
                           current_.type != d3proto::MessageType::Reply) {
                    status = d3proto::status::kProtocolError;
                } else {
                    status = current_.status;
                    finished = current_.payloadLength == 0;
                    if (!finished) {
                        // An error text may follow; read and drop it.
                        payload_.resize(current_.payloadLength);
                        asio::async_read(socket_, asio::buffer(payload_),
                                         [&](const asio::error_code&, size_t) { finished = true; });
                    }
                }
            });
        });
    });
    const auto deadline = Clock::now() + timeout;
    while (!finished && Clock::now() < deadline && !io_.stopped()) io_.run_one_until(deadline);
    settleExchange(io_, socket_, finished);
    if (!finished || status != d3proto::status::kSuccess) {
        socket_.close(ec);
        broken_ = true;
        return finished ? status : 5;
    }
    socket_.set_option(asio::socket_base::receive_buffer_size(8 << 20), ec);
    broken_ = false;
    resetStats();
    readHeader();
    thread_ = std::thread([this] { io_.run(); });
    return status;
}

void StreamReceiver::close() {
    stopIoThread(io_, thread_, socket_);
    broken_ = true;
}

void StreamReceiver::fail() { broken_ = true; }

void StreamReceiver::readHeader() {
    asio::async_read(socket_, asio::buffer(header_), [this](const asio::error_code& ec, size_t) {
        if (ec || d3proto::decodeHeader(header_, sizeof header_, d3proto::kMaxStreamPayload, current_) !=
                      d3proto::DecodeResult::Ok)
            return fail();
        firstByte_ = Clock::now();
        // Straight into the frame the exchange lets us fill: no copy later.
        exchange_.back().payload.reserve(current_.payloadLength);
        readPayload();
    });
}

void StreamReceiver::readPayload() {
    const auto into = asio::buffer(exchange_.back().payload.data(), current_.payloadLength);
    asio::async_read(socket_, into, [this](const asio::error_code& ec, size_t) {
        if (ec) return fail();
        noteReceived(d3proto::kHeaderSize + current_.payloadLength);
        if (current_.type == d3proto::MessageType::Event && current_.command == uint16_t(d3proto::Command::FrameEvent))
            onFrame();
        // Calibration events repeat what the control connection reported at
        // session start; other events are for later protocol versions.
        readHeader();
    });
}

void StreamReceiver::onFrame() {
    Frame& slot = exchange_.back();
    const bool ok = unpacker_.unpackInPlace(current_.payloadLength, slot);
    if (!ok) {
        std::lock_guard<std::mutex> lock(statsMutex_);
        ++stats_.framesDropped;
        return;
    }
    slot.arrived = Clock::now();
    const uint32_t frameId = slot.frameId;
    const double ms = std::chrono::duration<double, std::milli>(slot.arrived - firstByte_).count();
    countPublished(frameId, exchange_.publish(), ms);
}

}  // namespace d3sdk
