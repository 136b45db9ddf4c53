#include "UdpReceiver.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"

namespace d3sdk {

using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

constexpr int kWantedReceiveBuffer = 4 << 20;
constexpr milliseconds kTick{5};
// No datagram of a frame for this long: the camera is done answering the
// last request for it. For the newest frame, whose sending may just be
// stalled on a busy camera, the wait is longer before its tail counts as lost.
constexpr milliseconds kQuiet{5};
constexpr milliseconds kTailQuiet{20};
constexpr milliseconds kHelloEvery{100};
// What the kernel charges a datagram of ours against the receive buffer, at
// most (payload, headers and its own bookkeeping); a gathering sleep lets no
// more than a quarter of the buffer fill.
constexpr size_t kChargePerDatagram = 4096;

// Frame ids wrap: a is newer than b when it is less than half the range ahead.
bool newer(uint32_t a, uint32_t b) { return int32_t(a - b) > 0; }

// Largest frame payload a camera with these images can send: the ToF
// sections, and colour no larger than raw RGB (a JPEG of a camera image is far
// smaller), with room to spare for a JPEG's headers.
size_t maxFrameBytes(const d3proto::ImageInfo& image) {
    const size_t tof = size_t(std::max(0, image.tofWidth)) * size_t(std::max(0, image.tofHeight)) * 5;
    const size_t rgb = size_t(std::max(0, image.rgbWidth)) * size_t(std::max(0, image.rgbHeight)) * 3;
    return std::min<size_t>(d3proto::kFrameHeaderSize + tof + rgb + (64 << 10), d3proto::kMaxStreamPayload);
}

bool sizesAgree(const Frame& f, const d3proto::ImageInfo& image) {
    const int rgbW = image.rgb ? image.rgbWidth : 0, rgbH = image.rgb ? image.rgbHeight : 0;
    return int(f.depth.cols()) == image.tofWidth && int(f.depth.rows()) == image.tofHeight &&
           int(f.rgb.cols()) == rgbW && int(f.rgb.rows()) == rgbH;
}

// Returns the bytes the kernel lets queue on the socket.
int setReceiveBuffer(int fd) {
    int want = kWantedReceiveBuffer;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &want, sizeof want);
    int got = 0;
    socklen_t len = sizeof got;
    ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &got, &len);
    // Linux reports twice what was granted (the rest is its bookkeeping); less
    // than that means net.core.rmem_max capped us. A privileged process may
    // exceed the cap.
    if (got >= 2 * want) return got;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &want, sizeof want);
    ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &got, &len);
    if (got >= 2 * want) return got;
    std::fprintf(stderr,
                 "d3_sdk: the system caps the UDP receive buffer at %d kB (wanted %d kB); raise net.core.rmem_max "
                 "or frames will lose datagrams\n",
                 got / 2 / 1024, want / 1024);
    return got;
}

}  // namespace

UdpReceiver::UdpReceiver(FrameExchange& exchange, const d3proto::ImageInfo& image)
    : exchange_(exchange), image_(image), maxFrameBytes_(maxFrameBytes(image)), rx_(kBatch * kDatagramMax) {
    const size_t maxPackets = d3proto::udpPacketCount(uint32_t(maxFrameBytes_));
    for (Slot& s : slots_) {
        // Pages are only touched as datagrams land, so the reserve costs address space, not memory.
        s.data.reserve(maxFrameBytes_);
        s.have.assign(maxPackets, 0);
        s.askedIn.assign(maxPackets, 0);
        s.asks.assign(maxPackets, 0);
    }
    for (size_t i = 0; i < kBatch; ++i) {
        iov_[i] = {rx_.data() + i * kDatagramMax, kDatagramMax};
        msgs_[i].msg_hdr.msg_iov = &iov_[i];
        msgs_[i].msg_hdr.msg_iovlen = 1;
        msgs_[i].msg_hdr.msg_name = &from_[i];
    }
    resend_.ranges.reserve(d3proto::kMaxResendRanges);
    resendBytes_.reserve(12 + 4 * d3proto::kMaxResendRanges);
    stats_.udp = true;
}

UdpReceiver::~UdpReceiver() { close(); }

int32_t UdpReceiver::open(const std::string& ip, uint16_t port, uint32_t token, milliseconds timeout) {
    in_addr addr{};
    if (::inet_pton(AF_INET, ip.c_str(), &addr) != 1) return 33;
    fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    if (fd_ < 0 || wakeFd_ < 0 || ::bind(fd_, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        close();
        return 33;
    }
    bufferDatagrams_ = size_t(setReceiveBuffer(fd_)) / kChargePerDatagram;
    camera_ = {};
    camera_.sin_family = AF_INET;
    camera_.sin_port = htons(port);
    camera_.sin_addr = addr;
    if (!sayHello(token, timeout)) {
        close();
        return 5;
    }
    sockaddr_in local{};
    socklen_t len = sizeof local;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &len);
    {
        std::lock_guard<std::mutex> lock(statsMutex_);
        stats_.localPort = ntohs(local.sin_port);
    }
    broken_ = false;
    resetStats();
    thread_ = std::thread([this] { run(); });
    return 2;
}

void UdpReceiver::close() {
    if (thread_.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(wakeFd_, &one, sizeof one);
        thread_.join();
    }
    if (fd_ >= 0) ::close(fd_);
    if (wakeFd_ >= 0) ::close(wakeFd_);
    fd_ = wakeFd_ = -1;
    broken_ = true;
}

bool UdpReceiver::sayHello(uint32_t token, milliseconds timeout) {
    // Before the receive thread exists: a plain exchange on this thread. The
    // camera echoes the hello; without the echo the hello may have been lost.
    std::vector<uint8_t> hello;
    d3proto::encodeUdpHello(token, hello);
    const int fd = fd_;
    const auto deadline = Clock::now() + timeout;
    for (auto now = Clock::now(); now < deadline; now = Clock::now()) {
        ::sendto(fd, hello.data(), hello.size(), 0, reinterpret_cast<const sockaddr*>(&camera_), sizeof camera_);
        const auto until = std::min(deadline, now + kHelloEvery);
        for (now = Clock::now(); now < until; now = Clock::now()) {
            pollfd p{fd, POLLIN, 0};
            const auto left = std::chrono::duration_cast<milliseconds>(until - now) + milliseconds(1);
            if (::poll(&p, 1, int(left.count())) <= 0) continue;
            sockaddr_in from{};
            socklen_t len = sizeof from;
            const ssize_t n =
                ::recvfrom(fd, rx_.data(), kDatagramMax, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &len);
            uint32_t echoed = 0;
            if (n > 0 && from.sin_addr.s_addr == camera_.sin_addr.s_addr &&
                d3proto::decodeUdpHello(rx_.data(), size_t(n), echoed) && echoed == token)
                return true;
        }
    }
    return false;
}

void UdpReceiver::run() {
    bool gathering = false;
    Clock::time_point gatherUntil;
    for (;;) {
        pollfd fds[2] = {{wakeFd_, POLLIN, 0}, {fd_, POLLIN, 0}};
        // While a frame gathers, arrivals do not end the sleep; otherwise the
        // first datagram does. Retry rules need a look every kTick only
        // while frames are in flight.
        const bool active = anyActive();
        Clock::time_point until = gathering ? gatherUntil : active ? nextTick_ : Clock::time_point::max();
        timespec ts{};
        const timespec* timeout = nullptr;
        if (until != Clock::time_point::max()) {
            const auto ns = std::max<int64_t>(
                0, std::chrono::duration_cast<std::chrono::nanoseconds>(until - Clock::now()).count());
            ts = {time_t(ns / 1000000000), long(ns % 1000000000)};
            timeout = &ts;
        }
        if (::ppoll(fds, gathering ? 1 : 2, timeout, nullptr) < 0 && errno != EINTR) {
            broken_ = true;
            return;
        }
        if (fds[0].revents) return;  // close()
        if (!active) nextTick_ = Clock::now() + kTick;
        const size_t got = drain();
        const auto now = Clock::now();
        if (anyActive() && now >= nextTick_) {
            tick(now);
            nextTick_ = now + kTick;
        }
        const microseconds wait = got ? gatherWait(now) : microseconds(0);
        gathering = wait.count() > 0;
        gatherUntil = now + wait;
    }
}

bool UdpReceiver::anyActive() const {
    for (const Slot& s : slots_)
        if (s.active) return true;
    return false;
}

microseconds UdpReceiver::gatherWait(Clock::time_point now) const {
    const Slot* newest = nullptr;
    for (const Slot& s : slots_)
        if (s.active && !s.whole && (!newest || newer(s.frameId, newest->frameId))) newest = &s;
    if (!newest || newest->received == 0) return microseconds(0);
    // The frame's datagrams so far came at a rate; sleep about until the
    // rest should be in, within the bounds, and while no more than a quarter
    // of the socket buffer fills at that rate.
    const double elapsedUs = std::max(1.0, std::chrono::duration<double, std::micro>(now - newest->first).count());
    const double perUs = double(newest->received) / elapsedUs;
    const double restUs = double(newest->count - newest->received) / perUs;
    const double bufferUs = double(bufferDatagrams_ / 4) / perUs;
    const double us = std::min({restUs, bufferUs, double(kGatherMax.count())});
    return microseconds(std::max<int64_t>(kGatherMin.count(), int64_t(us)));
}

size_t UdpReceiver::drain() {
    const int fd = fd_;
    uint64_t bytes = 0;
    size_t datagrams = 0;
    // Bounded per wake-up so the retry timer gets its turn under a flood.
    for (int batch = 0; batch < 32; ++batch) {
        for (mmsghdr& m : msgs_) m.msg_hdr.msg_namelen = sizeof(sockaddr_in);
        const int n = ::recvmmsg(fd, msgs_, kBatch, MSG_DONTWAIT, nullptr);
        if (n <= 0) break;
        const auto now = Clock::now();
        datagrams += size_t(n);
        for (int i = 0; i < n; ++i) {
            bytes += msgs_[i].msg_len;
            // Longer than any datagram of ours: cut off by the buffer, so not ours.
            if (msgs_[i].msg_hdr.msg_flags & MSG_TRUNC) {
                ++ignored_;
                continue;
            }
            onDatagram(rx_.data() + size_t(i) * kDatagramMax, msgs_[i].msg_len, from_[i], now);
        }
        afterBatch(now);
        publishReady(now);
        if (size_t(n) < kBatch) break;
    }
    noteReceived(bytes);
    std::lock_guard<std::mutex> lock(statsMutex_);
    stats_.datagramsIgnored += ignored_;
    stats_.packetsReceived += accepted_;
    ignored_ = accepted_ = 0;
    return datagrams;
}

void UdpReceiver::onDatagram(const uint8_t* data, size_t size, const sockaddr_in& from, Clock::time_point now) {
    d3proto::UdpDataHeader h;
    const uint8_t* chunk = nullptr;
    size_t n = 0;
    if (from.sin_addr.s_addr != camera_.sin_addr.s_addr || !d3proto::decodeUdpData(data, size, h, chunk, n)) {
        ++ignored_;
        return;
    }
    Slot* s = slotFor(h, now);
    if (!s || s->have[h.packetId]) {
        ++ignored_;  // stale, duplicate or inconsistent with the frame's other datagrams
        return;
    }
    std::memcpy(s->data.data() + size_t(h.packetId) * d3proto::kUdpChunk, chunk, n);
    s->have[h.packetId] = 1;
    ++s->received;
    if (const uint32_t request = s->askedIn[h.packetId]) {
        ++s->recovered;
        // The camera answers a request in the order it was asked, and
        // requests in the order they came.
        if (request > s->answeredRequest || (request == s->answeredRequest && h.packetId > s->answeredPacket)) {
            s->answeredRequest = request;
            s->answeredPacket = h.packetId;
            s->answerNews = true;
        }
    }
    s->highest = std::max<uint32_t>(s->highest, h.packetId + 1u);
    s->lastData = now;
    ++accepted_;
    if (s->received == s->count) {
        s->whole = true;
        s->wholeAt = now;
    }
}

UdpReceiver::Slot* UdpReceiver::slotFor(const d3proto::UdpDataHeader& h, Clock::time_point now) {
    // A frame at or before the last one published can only be a late
    // duplicate, unless nothing else has come for a long time.
    if (haveHorizon_ && !newer(h.frameId, horizon_)) {
        if (!staleRun_) {
            staleRun_ = true;
            staleSince_ = now;
        }
        if (now - staleSince_ < kStaleReset) return nullptr;
        haveHorizon_ = false;
    }
    staleRun_ = false;
    for (Slot& s : slots_)
        if (s.active && s.frameId == h.frameId) return s.frameBytes == h.frameBytes ? &s : nullptr;
    if (h.frameBytes > maxFrameBytes_) return nullptr;
    // A new frame: a free slot, or the one with the fewest datagrams (a stray
    // announcement rather than a frame well on its way), oldest on a tie.
    Slot* target = nullptr;
    for (Slot& s : slots_) {
        if (!s.active) {
            target = &s;
            break;
        }
        if (!target || s.received < target->received ||
            (s.received == target->received && newer(target->frameId, s.frameId)))
            target = &s;
    }
    if (target->active) release(*target, true);
    // Frames between the newest one seen and this one sent us nothing at all
    // (or the camera skipped them). A jump too far is no frame sequence.
    const uint32_t ahead = h.frameId - newest_;
    if (!haveNewest_ || (newer(h.frameId, newest_) && ahead < 1024)) {
        if (haveNewest_ && ahead > 1) {
            std::lock_guard<std::mutex> lock(statsMutex_);
            stats_.framesDropped += ahead - 1;
        }
        haveNewest_ = true;
        newest_ = h.frameId;
    }
    Slot& s = *target;
    s.active = true;
    s.whole = false;
    s.frameId = h.frameId;
    s.frameBytes = h.frameBytes;
    s.count = h.packetCount;
    s.received = s.recovered = s.highest = s.nackedUpTo = 0;
    s.rounds = 0;
    s.requests = s.answeredRequest = s.answeredPacket = 0;
    s.answerNews = false;
    s.first = s.lastData = now;
    s.lastRequest = Clock::time_point();
    std::fill_n(s.have.begin(), s.count, uint8_t(0));
    std::fill_n(s.askedIn.begin(), s.count, 0u);
    std::fill_n(s.asks.begin(), s.count, uint8_t(0));
    return &s;
}

void UdpReceiver::publishReady(Clock::time_point now) {
    for (;;) {
        Slot* oldest = nullptr;
        Slot* waiting = nullptr;  // the whole frame that has waited longest
        for (Slot& s : slots_) {
            if (!s.active) continue;
            if (!oldest || newer(oldest->frameId, s.frameId)) oldest = &s;
            if (s.whole && (!waiting || s.wholeAt < waiting->wholeAt)) waiting = &s;
        }
        if (!oldest || !waiting) return;
        if (oldest->whole) {
            publish(*oldest);
        } else if (now - waiting->wholeAt > kMaxHold) {
            // Delivering a newer frame now beats waiting on an old one any longer.
            release(*oldest, true);
        } else {
            return;
        }
    }
}

void UdpReceiver::publish(Slot& s) {
    Frame& f = exchange_.back();
    // The frame takes the reassembled payload as it is, and the slot the
    // frame's old storage (sized for our frames after the first few).
    f.payload.swap(s.data);
    s.data.reserve(maxFrameBytes_);
    // The payload repeats the frame id; a disagreement means a forged or
    // mixed-up frame. Frame calls rely on the sizes reported at session start.
    const bool ok = unpacker_.unpackInPlace(s.frameBytes, f) && f.frameId == s.frameId && sizesAgree(f, image_);
    if (!ok) {
        {
            std::lock_guard<std::mutex> lock(statsMutex_);
            ++stats_.framesDropped;
        }
        release(s, false);
        return;
    }
    f.arrived = Clock::now();
    const double ms = std::chrono::duration<double, std::milli>(f.arrived - s.first).count();
    haveHorizon_ = true;
    horizon_ = s.frameId;
    release(s, false);
    countPublished(horizon_, exchange_.publish(), ms, false);
}

void UdpReceiver::release(Slot& s, bool givenUp) {
    s.active = false;
    s.whole = false;
    std::lock_guard<std::mutex> lock(statsMutex_);
    stats_.packetsLost += s.count - (s.received - s.recovered);
    stats_.packetsRecovered += s.recovered;
    if (givenUp) {
        ++stats_.framesIncomplete;
        ++stats_.framesDropped;
    }
}

void UdpReceiver::requestMissing(Slot& s, uint32_t to, bool all, Clock::time_point now) {
    const int fd = fd_;
    auto send = [&] {
        d3proto::encodeUdpResend(resend_, resendBytes_);
        ::sendto(fd, resendBytes_.data(), resendBytes_.size(), MSG_DONTWAIT,
                 reinterpret_cast<const sockaddr*>(&camera_), sizeof camera_);
        resend_.ranges.clear();
    };
    resend_.frameId = s.frameId;
    resend_.ranges.clear();
    const uint32_t request = s.requests + 1;
    uint64_t asked = 0;
    for (uint32_t p = 0; p < to && p < s.count; ++p) {
        if (s.have[p]) continue;
        const uint32_t in = s.askedIn[p];
        const bool passedOver =
            in != 0 && (in < s.answeredRequest || (in == s.answeredRequest && p < s.answeredPacket));
        // However a packet is found missing, it is asked for no more often
        // than the rounds allow: a frame that needs more is given up.
        if ((!all && in != 0 && !passedOver) || s.asks[p] > kMaxRounds) continue;
        s.askedIn[p] = request;
        ++s.asks[p];
        ++asked;
        if (!resend_.ranges.empty() && resend_.ranges.back().last + 1u == p) {
            resend_.ranges.back().last = uint16_t(p);
            continue;
        }
        if (resend_.ranges.size() == d3proto::kMaxResendRanges) send();
        resend_.ranges.push_back({uint16_t(p), uint16_t(p)});
    }
    if (!asked) return;
    send();
    s.requests = request;
    s.lastRequest = now;
    std::lock_guard<std::mutex> lock(statsMutex_);
    stats_.packetsResendRequested += asked;
}

void UdpReceiver::afterBatch(Clock::time_point now) {
    Slot* newest = nullptr;
    for (Slot& s : slots_)
        if (s.active && (!newest || newer(s.frameId, newest->frameId))) newest = &s;
    for (Slot& s : slots_) {
        if (!s.active || s.whole) continue;
        // The camera sends a frame's datagrams in order: a hole below the
        // highest one seen is a loss, and once a newer frame has begun, so is
        // everything still missing of an older one. It answers requests in
        // order too: a packet asked for before the newest answer is lost again.
        const uint32_t seen = &s == newest ? s.highest : s.count;
        if (seen > s.nackedUpTo || s.answerNews) {
            requestMissing(s, std::max(seen, s.nackedUpTo), false, now);
            s.nackedUpTo = std::max(seen, s.nackedUpTo);
            s.answerNews = false;
        }
    }
}

void UdpReceiver::tick(Clock::time_point now) {
    Slot* newest = nullptr;
    for (Slot& s : slots_)
        if (s.active && (!newest || newer(s.frameId, newest->frameId))) newest = &s;
    for (Slot& s : slots_) {
        if (!s.active || s.whole) continue;
        if (now - s.first > kFrameDeadline || s.rounds >= kMaxRounds) {
            release(s, true);
            continue;
        }
        // Once nothing of the frame has come for a while (its sending and the
        // answers to the last request are over), ask again for everything
        // still missing, the tail included. Each round waits longer, so a
        // camera that is slow to answer is not flooded with repeats. Only a
        // newest frame whose last datagram has not come may still be on its
        // way from a stalled camera, so only its tail waits longer.
        const auto backoff = std::min(kQuiet * (s.rounds + 1), milliseconds(50));
        const auto quiet = &s == newest && s.highest < s.count ? kTailQuiet : kQuiet;
        if (now - s.lastData > quiet && now - s.lastRequest > backoff) {
            requestMissing(s, s.count, true, now);
            s.nackedUpTo = s.count;
            ++s.rounds;
        }
    }
    publishReady(now);
}

}  // namespace d3sdk
