#include "ControlChannel.h"

#include <future>

#include "IoThread.h"

namespace d3sdk {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

namespace {
constexpr int32_t kNetworkError = 33;
constexpr int32_t kTimeout = d3proto::status::kTimeout;

// Request ids never repeat within the process, not even across sessions: a
// camera replays its cached reply for a known id, and a new session of the
// same client must not be answered from the previous one.
std::atomic<uint32_t> nextRequestId{1};
}  // namespace

ControlChannel::ControlChannel() : socket_(io_) {}

ControlChannel::~ControlChannel() { close(); }

bool ControlChannel::connect(const std::string& ip, uint16_t port, std::chrono::milliseconds timeout) {
    asio::error_code ec;
    const auto addr = asio::ip::make_address_v4(ip, ec);
    if (ec) return false;
    // Connect asynchronously so the attempt is bounded by our timeout rather
    // than the kernel's (minutes for an address nobody answers).
    bool done = false;
    asio::error_code result = asio::error::timed_out;
    socket_.async_connect(tcp::endpoint(addr, port), [&](const asio::error_code& e) {
        done = true;
        result = e;
    });
    io_.run_for(timeout);
    settleExchange(io_, socket_, done);
    if (result) {
        broken_ = true;
        return false;
    }
    socket_.set_option(tcp::no_delay(true), ec);
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        lastReceived_ = Clock::now();
        broken_ = false;
    }
    readHeader();
    thread_ = std::thread([this] { io_.run(); });
    return true;
}

void ControlChannel::close() {
    stopIoThread(io_, thread_, socket_);
    fail();
}

void ControlChannel::fail() {
    {
        // Under the lock a waiting request holds between testing broken_ and
        // going to sleep, so it either sees the break or gets the wake-up.
        std::lock_guard<std::mutex> lock(stateMutex_);
        broken_ = true;
    }
    replied_.notify_all();
}

Clock::time_point ControlChannel::lastReceived() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return lastReceived_;
}

void ControlChannel::readHeader() {
    asio::async_read(socket_, asio::buffer(header_), [this](const asio::error_code& ec, size_t) {
        if (ec || d3proto::decodeHeader(header_, sizeof header_, d3proto::kMaxControlPayload, current_) !=
                      d3proto::DecodeResult::Ok) {
            // A stream we cannot parse cannot be resynchronised: drop it.
            return fail();
        }
        payload_.resize(current_.payloadLength);
        readPayload();
    });
}

void ControlChannel::readPayload() {
    asio::async_read(socket_, asio::buffer(payload_), [this](const asio::error_code& ec, size_t) {
        if (ec) return fail();
        {
            std::lock_guard<std::mutex> lock(stateMutex_);
            lastReceived_ = Clock::now();
            if (current_.type == d3proto::MessageType::Reply && current_.requestId == waitingFor_ && !haveReply_) {
                haveReply_ = true;
                replyStatus_ = current_.status;
                replyPayload_.swap(payload_);
            }
        }
        replied_.notify_all();
        readHeader();
    });
}

void ControlChannel::writeNext() {
    // A timed-out request's bytes may still be on their way; queueing keeps
    // the next request from overwriting them mid-write.
    asio::async_write(socket_, asio::buffer(writeQueue_.front()), [this](const asio::error_code& ec, size_t) {
        if (ec) return fail();
        writeQueue_.pop_front();
        if (!writeQueue_.empty()) writeNext();
    });
}

int32_t ControlChannel::request(d3proto::Command cmd, const d3proto::Json& args, d3proto::Json* reply,
                                std::chrono::milliseconds timeout) {
    const std::string text = args.is_null() ? std::string() : d3proto::dump(args);
    return exchange(cmd, reinterpret_cast<const uint8_t*>(text.data()), text.size(), reply, timeout);
}

int32_t ControlChannel::requestBytes(d3proto::Command cmd, const std::vector<uint8_t>& payload, d3proto::Json* reply,
                                     std::chrono::milliseconds timeout) {
    return exchange(cmd, payload.data(), payload.size(), reply, timeout);
}

bool ControlChannel::waitBroken(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(stateMutex_);
    return replied_.wait_for(lock, timeout, [&] { return bool(broken_); });
}

int32_t ControlChannel::exchange(d3proto::Command cmd, const uint8_t* payload, size_t size, d3proto::Json* reply,
                                 std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    // Waiting for the previous request counts against this one's timeout.
    TimedGate::Pass one(oneRequest_, deadline);
    if (!one) return kTimeout;
    if (broken_ || !thread_.joinable()) return kNetworkError;

    uint32_t id;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        id = nextRequestId++;
        if (id == 0) id = nextRequestId++;  // 0 means "no id" to the camera
        waitingFor_ = id;
        haveReply_ = false;
    }
    d3proto::Header h;
    h.type = d3proto::MessageType::Request;
    h.command = uint16_t(cmd);
    h.requestId = id;
    std::vector<uint8_t> msg;
    d3proto::appendMessage(h, payload, size, msg);
    // Writes happen on the io thread, which also reads: the socket is never
    // used from two threads at once.
    asio::post(io_, [this, m = std::move(msg)]() mutable {
        writeQueue_.push_back(std::move(m));
        if (writeQueue_.size() == 1) writeNext();
    });

    std::unique_lock<std::mutex> lock(stateMutex_);
    replied_.wait_until(lock, deadline, [&] { return haveReply_ || broken_; });
    waitingFor_ = 0;
    if (!haveReply_) return broken_ ? kNetworkError : kTimeout;
    if (reply) {
        *reply = d3proto::Json::object();
        if (!replyPayload_.empty() && !d3proto::parseJsonObject(replyPayload_.data(), replyPayload_.size(), *reply))
            return d3proto::status::kProtocolError;
    }
    return replyStatus_;
}

}  // namespace d3sdk
