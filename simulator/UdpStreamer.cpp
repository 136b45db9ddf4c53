#include "UdpStreamer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace d3sim {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

namespace {

// Datagrams sent back to back before the sender pauses: small enough that a
// client with the default 208 kB socket buffer keeps up between pauses.
constexpr uint32_t kBurst = 32;
static_assert(kBurst <= UdpStreamer::kMaxBurst, "a burst is gathered in one go");
// A frame's datagrams are spread over this share of the frame period, so
// resends of one frame fit before the next frame starts.
constexpr int kPacingShareOfPeriod = 2;  // one half
constexpr microseconds kMaxPacing{2000};
constexpr microseconds kIdleWait{20000};
constexpr size_t kMaxQueuedResends = 256;
constexpr size_t kReceiveBatch = 64;

bool sameEndpoint(const sockaddr_in& a, const sockaddr_in& b) {
    return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

}  // namespace

UdpStreamer::UdpStreamer(LinkFaults& faults, std::function<void()> onClient)
    : faults_(faults), onClient_(std::move(onClient)), rx_(2048) {}

UdpStreamer::~UdpStreamer() { close(); }

bool UdpStreamer::open(const std::string& ip, uint16_t port, std::string& error) {
    close();
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    if (inet_pton(AF_INET, ip.c_str(), &addr.sin_addr) != 1) {
        error = "bad address " + ip;
        return false;
    }
    fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd_ < 0 || wakeFd_ < 0 || ::bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
        error = "stream port (udp) " + ip + ": " + std::strerror(errno);
        close();
        return false;
    }
    // A frame is over a megabyte; a deep send queue keeps bursts from blocking.
    const int sndbuf = 4 << 20;
    ::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);
    quit_ = false;
    thread_ = std::thread([this] { run(); });
    return true;
}

void UdpStreamer::close() {
    if (thread_.joinable()) {
        quit_ = true;
        wake();
        thread_.join();
    }
    // Under the lock: submit() wakes through wakeFd_ under it too, so it never
    // writes to a descriptor number that was closed and reused meanwhile.
    std::lock_guard<std::mutex> lock(mutex_);
    if (fd_ >= 0) ::close(fd_.exchange(-1));
    if (wakeFd_ >= 0) ::close(wakeFd_.exchange(-1));
    token_ = 0;
    haveClient_ = false;
    dropJobs();
    for (Slot& s : slots_) s.valid = false;
}

void UdpStreamer::dropJobs() {
    jobs_.clear();
    for (Slot& s : slots_) s.pending = 0;
}

UdpStreamer::Slot* UdpStreamer::findSlot(uint32_t frameId) {
    for (Slot& s : slots_)
        if (s.valid && s.frameId == frameId) return &s;
    return nullptr;
}

void UdpStreamer::beginSession(uint32_t token) {
    std::lock_guard<std::mutex> lock(mutex_);
    token_ = token;
    haveClient_ = false;
    dropJobs();
}

void UdpStreamer::endSession() {
    std::lock_guard<std::mutex> lock(mutex_);
    token_ = 0;
    haveClient_ = false;
    dropJobs();
}

bool UdpStreamer::hasClient() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return haveClient_;
}

UdpStreamer::Stats UdpStreamer::stats() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stats_;
}

void UdpStreamer::wake() {
    const int fd = wakeFd_;
    if (fd < 0) return;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = ::write(fd, &one, sizeof one);
}

void UdpStreamer::submit(uint32_t frameId, const uint8_t* payload, size_t size, int frameRate,
                         Clock::time_point exposure) {
    const uint32_t count = d3proto::udpPacketCount(uint32_t(size));
    if (size == 0 || count > 0xFFFF) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!haveClient_) return;
        // Reuse the slot of the oldest frame that is neither being sent, nor
        // waiting to be, nor among the last kHistory sent.
        Slot* target = nullptr;
        for (Slot& s : slots_) {
            if (s.busy || s.pending) continue;
            if (!s.valid) {
                target = &s;
                break;
            }
            if (s.sentOrder != 0 && sentOrder_ - s.sentOrder < kHistory) continue;
            if (!target || frameId - s.frameId > frameId - target->frameId) target = &s;
        }
        if (!target && slots_.size() < kMaxFrames) target = &slots_.emplace_back();
        if (!target) {
            ++stats_.framesExpired;  // the link already holds all it can
            return;
        }
        target->frameId = frameId;
        target->valid = true;
        target->pending = 1;
        target->sentOrder = 0;
        target->exposure = exposure;
        target->payload.assign(payload, payload + size);
        const microseconds period(1000000 / std::max(1, frameRate));
        const uint32_t bursts = (count + kBurst - 1) / kBurst;
        target->pacing = std::min(kMaxPacing, period / kPacingShareOfPeriod / bursts);
        jobs_.push_back(Job{frameId, faults_.datagramFrameDue(), {}});
        wake();
    }
}

void UdpStreamer::run() {
    while (!quit_) {
        // A paused camera sends nothing; what was queued goes out afterwards.
        if (faults_.paused()) {
            receive(microseconds(1000));
            continue;
        }
        receive(microseconds(0));
        Job job;
        microseconds wait = kIdleWait;
        if (takeJob(job, wait))
            sendJob(job);
        else
            receive(wait);
    }
}

bool UdpStreamer::takeJob(Job& job, microseconds& wait) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto now = Clock::now();
    auto take = [&](std::deque<Job>::iterator it) {
        if (Slot* slot = findSlot(it->frameId)) --slot->pending;
        job = std::move(*it);
        return jobs_.erase(it);
    };
    // Resends first: they finish frames already on their way.
    auto resend =
        std::find_if(jobs_.begin(), jobs_.end(), [&](const Job& j) { return !j.ranges.empty() && j.due <= now; });
    if (resend != jobs_.end()) {
        take(resend);
        return true;
    }
    // Only the newest due frame goes out: a sender that fell behind skips
    // frames rather than building up delay, as over TCP. Jobs are in order of
    // their due times, so every job before it is a frame that is due too.
    auto newestDue = jobs_.end();
    for (auto it = jobs_.begin(); it != jobs_.end() && it->due <= now; ++it)
        if (it->ranges.empty()) newestDue = it;
    if (newestDue == jobs_.end()) {
        if (!jobs_.empty())
            wait = std::min(wait, std::chrono::duration_cast<microseconds>(jobs_.front().due - now) + microseconds(1));
        return false;
    }
    for (auto it = jobs_.begin(); it != newestDue; ++it) {
        if (Slot* slot = findSlot(it->frameId)) --slot->pending;
        ++stats_.framesExpired;
    }
    newestDue = jobs_.erase(jobs_.begin(), newestDue);
    take(newestDue);
    return true;
}

void UdpStreamer::sendJob(const Job& job) {
    Slot* slot = nullptr;
    sockaddr_in to{};
    double delayMs = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        slot = findSlot(job.frameId);
        if (!slot) {
            ++(job.ranges.empty() ? stats_.framesExpired : stats_.resendsTooLate);
            return;
        }
        if (!haveClient_) return;
        to = client_;
        ++slot->busy;
        if (job.ranges.empty()) {
            slot->sentOrder = ++sentOrder_;
            delayMs = std::chrono::duration<double, std::milli>(Clock::now() - slot->exposure).count();
        }
    }
    const uint16_t count = uint16_t(d3proto::udpPacketCount(uint32_t(slot->payload.size())));
    std::vector<d3proto::PacketRange> all;
    const std::vector<d3proto::PacketRange>* ranges = &job.ranges;
    if (job.ranges.empty()) {
        all.push_back({0, uint16_t(count - 1)});
        ranges = &all;
    }
    uint64_t sent = 0, lost = 0;
    uint32_t inBurst = 0;
    size_t burstBytes = 0;
    bool stillClient = true;
    // Pauses between bursts, still answering hellos and resend requests. A
    // bandwidth limit stretches the pause to the time the burst takes on the
    // link, which is what lowers the frame rate on a slow link.
    auto pace = [&] {
        const auto until = Clock::now() + std::max(slot->pacing, faults_.transmitTime(burstBytes));
        for (auto now = Clock::now(); now < until; now = Clock::now())
            receive(std::chrono::duration_cast<microseconds>(until - now));
        burstBytes = 0;
    };
    for (const d3proto::PacketRange& r : *ranges) {
        for (uint32_t p = r.first; p <= r.last && p < count && stillClient && !quit_; ++p) {
            // A datagram lost on the way has used the link all the same.
            burstBytes +=
                d3proto::kUdpHeaderSize + std::min(d3proto::kUdpChunk, slot->payload.size() - p * d3proto::kUdpChunk);
            if (faults_.dropPacket()) {
                ++lost;
            } else {
                gather(*slot, uint16_t(p), count, to);
                ++sent;
            }
            if (++inBurst < kBurst) continue;
            inBurst = 0;
            flush();
            pace();
            // Resends go out between a frame's bursts: the client should not
            // wait a whole frame for them.
            if (job.ranges.empty()) sendQueuedResends();
            std::lock_guard<std::mutex> lock(mutex_);
            stillClient = haveClient_;
        }
    }
    flush();
    if (burstBytes > 0 && faults_.bandwidthMbit() > 0) pace();
    std::lock_guard<std::mutex> lock(mutex_);
    --slot->busy;
    stats_.datagramsSent += sent;
    stats_.datagramsLost += lost;
    if (job.ranges.empty()) {
        // Counted together, so the figures of any stretch of time agree.
        ++stats_.framesSent;
        stats_.bytesSent += slot->payload.size();
        stats_.delayMsTotal += delayMs;
    } else {
        stats_.datagramsResent += sent + lost;
    }
}

void UdpStreamer::sendQueuedResends() {
    for (;;) {
        Job resend;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto now = Clock::now();
            auto it = std::find_if(jobs_.begin(), jobs_.end(),
                                   [&](const Job& j) { return !j.ranges.empty() && j.due <= now; });
            if (it == jobs_.end()) return;
            if (Slot* slot = findSlot(it->frameId)) --slot->pending;
            resend = std::move(*it);
            jobs_.erase(it);
        }
        sendJob(resend);
    }
}

void UdpStreamer::gather(const Slot& slot, uint16_t packetId, uint16_t count, const sockaddr_in& to) {
    const size_t offset = size_t(packetId) * d3proto::kUdpChunk;
    const size_t length = std::min(d3proto::kUdpChunk, slot.payload.size() - offset);
    const size_t i = gathered_++;
    d3proto::writeUdpDataHeader({slot.frameId, packetId, count, uint32_t(slot.payload.size())}, headers_[i]);
    parts_[i][0] = {headers_[i], d3proto::kUdpHeaderSize};
    parts_[i][1] = {const_cast<uint8_t*>(slot.payload.data() + offset), length};
    burstTo_ = to;
    msghdr& m = burst_[i].msg_hdr;
    m = msghdr{};
    m.msg_name = &burstTo_;
    m.msg_namelen = sizeof burstTo_;
    m.msg_iov = parts_[i];
    m.msg_iovlen = 2;
    if (gathered_ == kMaxBurst) flush();
}

void UdpStreamer::flush() {
    // A full send queue or an unreachable client loses datagrams, as on a wire.
    for (size_t done = 0; done < gathered_;) {
        const int n = ::sendmmsg(fd_, burst_ + done, unsigned(gathered_ - done), 0);
        if (n <= 0) break;
        done += size_t(n);
    }
    gathered_ = 0;
}

void UdpStreamer::receive(microseconds timeout) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    const timespec ts{time_t(timeout.count() / 1000000), long(timeout.count() % 1000000) * 1000};
    if (::ppoll(fds, 2, &ts, nullptr) <= 0) return;
    if (fds[1].revents & POLLIN) {
        uint64_t n;
        [[maybe_unused]] const ssize_t r = ::read(wakeFd_, &n, sizeof n);
    }
    for (size_t i = 0; i < kReceiveBatch; ++i) {
        sockaddr_in from{};
        socklen_t len = sizeof from;
        const ssize_t n =
            ::recvfrom(fd_, rx_.data(), rx_.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &len);
        if (n < 0) break;
        handle(rx_.data(), size_t(n), from);
    }
}

void UdpStreamer::handle(const uint8_t* data, size_t size, const sockaddr_in& from) {
    if (faults_.paused()) return;  // frozen: what arrives meanwhile is lost
    d3proto::UdpKind kind;
    uint32_t token = 0;
    d3proto::UdpResend resend;
    if (d3proto::peekUdpKind(data, size, kind) && kind == d3proto::UdpKind::Hello &&
        d3proto::decodeUdpHello(data, size, token)) {
        bool accepted;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            accepted = token_ != 0 && token == token_;
            if (accepted) {
                client_ = from;
                haveClient_ = true;
            } else {
                ++stats_.datagramsIgnored;
            }
        }
        if (!accepted) return;
        // The echo tells the client its hello arrived; it repeats the hello until then.
        std::vector<uint8_t> ack;
        d3proto::encodeUdpHello(token, ack);
        if (!faults_.dropPacket())
            ::sendto(fd_, ack.data(), ack.size(), 0, reinterpret_cast<const sockaddr*>(&from), sizeof from);
        if (onClient_) onClient_();
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (!d3proto::decodeUdpResend(data, size, resend) || !haveClient_ || !sameEndpoint(from, client_)) {
        ++stats_.datagramsIgnored;
        return;
    }
    Slot* slot = findSlot(resend.frameId);
    if (!slot || slot->sentOrder == 0) {
        ++stats_.resendsTooLate;
        return;
    }
    ++stats_.resendRequests;
    const size_t queued =
        size_t(std::count_if(jobs_.begin(), jobs_.end(), [](const Job& j) { return !j.ranges.empty(); }));
    if (queued >= kMaxQueuedResends) return;  // a flood of requests must not starve new frames
    // The answer travels the same link as the frames: it waits out the delay
    // too, and the frame stays kept until then.
    ++slot->pending;
    jobs_.push_back(Job{resend.frameId, faults_.datagramFrameDue(), std::move(resend.ranges)});
}

}  // namespace d3sim
