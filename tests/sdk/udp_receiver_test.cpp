// The datagram receiver's repair rules against a camera this test plays by
// hand on the loopback: which packets it asks for and when (judged by what a
// request contains, never by how long it took), frames delivered whole and in
// frame order, and frames given up on.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "FrameExchange.h"
#include "UdpReceiver.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Udp.h"
#include "waituntil.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kToken = 4242;
// A bound for waits on events that come within milliseconds on a quiet machine.
constexpr auto kPatience = 10s;

d3proto::ImageInfo smallImage() {
    d3proto::ImageInfo image;
    image.tofWidth = 64;
    image.tofHeight = 48;
    return image;
}

// A frame payload of the small image whose depth encodes the frame id.
std::vector<uint8_t> framePayload(uint32_t id) {
    const d3proto::ImageInfo image = smallImage();
    const size_t n = size_t(image.tofWidth) * image.tofHeight;
    std::vector<uint16_t> depth(n), amplitude(n, 7);
    for (size_t i = 0; i < n; ++i) depth[i] = uint16_t(id * 1000 + i % 1000);
    std::vector<uint8_t> ir(n, 9), out;
    d3proto::FrameHeader h;
    h.frameId = id;
    h.tofWidth = uint16_t(image.tofWidth);
    h.tofHeight = uint16_t(image.tofHeight);
    d3proto::encodeFrame(h, depth.data(), ir.data(), amplitude.data(), nullptr, out);
    return out;
}

uint16_t packetCount() { return uint16_t(d3proto::udpPacketCount(uint32_t(framePayload(1).size()))); }

// The camera's stream port, played by the test.
class HandCamera {
public:
    explicit HandCamera(const char* address) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        inet_pton(AF_INET, address, &a.sin_addr);
        EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
        socklen_t len = sizeof a;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
    }
    ~HandCamera() { ::close(fd_); }
    uint16_t port() const { return port_; }

    // Answers the receiver's hello: the session is attached.
    bool acceptHello() {
        std::vector<uint8_t> buf;
        for (auto end = Clock::now() + kPatience; Clock::now() < end;) {
            uint32_t token = 0;
            if (receive(buf) && d3proto::decodeUdpHello(buf.data(), buf.size(), token) && token == kToken) {
                ::sendto(fd_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&client_), sizeof client_);
                return true;
            }
        }
        return false;
    }

    void send(uint32_t frameId, const std::vector<uint16_t>& packets) {
        const auto payload = framePayload(frameId);
        const uint16_t count = uint16_t(d3proto::udpPacketCount(uint32_t(payload.size())));
        std::vector<uint8_t> dgram;
        for (uint16_t p : packets) {
            const size_t off = size_t(p) * d3proto::kUdpChunk;
            d3proto::encodeUdpData({frameId, p, count, uint32_t(payload.size())}, payload.data() + off,
                                   std::min(d3proto::kUdpChunk, payload.size() - off), dgram);
            ::sendto(fd_, dgram.data(), dgram.size(), 0, reinterpret_cast<sockaddr*>(&client_), sizeof client_);
        }
    }
    void sendAllBut(uint32_t frameId, const std::set<uint16_t>& left) {
        std::vector<uint16_t> packets;
        for (uint16_t p = 0; p < packetCount(); ++p)
            if (!left.count(p)) packets.push_back(p);
        send(frameId, packets);
    }

    // The next resend request, as the set of packets it asks for.
    std::optional<std::pair<uint32_t, std::set<uint16_t>>> nextRequest() {
        std::vector<uint8_t> buf;
        for (auto end = Clock::now() + kPatience; Clock::now() < end;) {
            d3proto::UdpResend r;
            if (!receive(buf) || !d3proto::decodeUdpResend(buf.data(), buf.size(), r)) continue;
            std::set<uint16_t> asked;
            for (const auto& range : r.ranges)
                for (uint32_t p = range.first; p <= range.last; ++p) asked.insert(uint16_t(p));
            return std::make_pair(r.frameId, asked);
        }
        return std::nullopt;
    }

private:
    bool receive(std::vector<uint8_t>& out) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, 100) <= 0) return false;
        out.resize(2048);
        socklen_t len = sizeof client_;
        const ssize_t n = ::recvfrom(fd_, out.data(), out.size(), 0, reinterpret_cast<sockaddr*>(&client_), &len);
        out.resize(n > 0 ? size_t(n) : 0);
        return n > 0;
    }

    int fd_ = -1;
    uint16_t port_ = 0;
    sockaddr_in client_{};
};

// A receiver attached to a hand camera at `address` (127.0.160.x).
struct Link {
    explicit Link(const char* address) : camera(address), receiver(exchange, smallImage()) {
        auto opened = std::async(
            std::launch::async, [&] { return receiver.open(address, camera.port(), kToken, std::chrono::seconds(5)); });
        EXPECT_TRUE(camera.acceptHello());
        EXPECT_EQ(opened.get(), 2);
    }
    // Waits until the receiver's counters satisfy `done` (they are updated
    // just after a frame is handed over).
    template <class Done>
    bool statsReach(Done done) {
        return d3test::waitUntil([&] { return done(receiver.stats()); },
                                 std::chrono::duration_cast<std::chrono::milliseconds>(kPatience));
    }
    // Waits until the receiver has taken `n` data datagrams into frames.
    bool received(uint64_t n) {
        return statsReach([n](const d3sdk::StreamStats& s) { return s.packetsReceived >= n; });
    }

    HandCamera camera;
    d3sdk::FrameExchange exchange;
    d3sdk::UdpReceiver receiver;
};

uint16_t depthAt(const d3sdk::Frame& f, size_t i) { return f.depth.data()[i]; }

}  // namespace

// A hole is asked for as soon as a later datagram shows it; a newer frame that
// is already whole waits for the older one, and both are delivered in order.
TEST(UdpReceiver, AsksForHolesAtOnceAndDeliversFramesInOrder) {
    Link link("127.0.160.2");
    const uint16_t count = packetCount();
    link.camera.sendAllBut(1, {3});
    auto request = link.camera.nextRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->first, 1u);
    EXPECT_EQ(request->second, std::set<uint16_t>{3});

    link.camera.sendAllBut(2, {});
    ASSERT_TRUE(link.received(2u * count - 1));
    EXPECT_EQ(link.exchange.acquire(0ms), nullptr) << "frame 2 went out while frame 1 was still being repaired";

    link.camera.send(1, {3});
    // Frame 1 goes out first; a reader may take it or find frame 2 already
    // in its place.
    std::vector<uint32_t> seen;
    while (seen.empty() || seen.back() != 2) {
        const d3sdk::Frame* f = link.exchange.acquire(kPatience);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(depthAt(*f, 5), f->frameId * 1000 + 5);
        seen.push_back(f->frameId);
    }
    EXPECT_TRUE(seen == std::vector<uint32_t>{2} || seen == (std::vector<uint32_t>{1, 2}));
    ASSERT_TRUE(link.statsReach([](const d3sdk::StreamStats& s) { return s.framesComplete == 2; }));
    const d3sdk::StreamStats s = link.receiver.stats();
    EXPECT_EQ(s.framesIncomplete, 0u);
    EXPECT_EQ(s.packetsRecovered, 1u);
}

// The camera answers a request in order: an answer for a later packet shows
// an earlier one was lost again, and that one alone is asked for at once.
// The frame's tail, which never came, is asked for only after the camera has
// gone quiet.
TEST(UdpReceiver, AsksAgainForWhatAnAnswerPassedOverAndForTheTailOnlyWhenQuiet) {
    Link link("127.0.160.3");
    const uint16_t last = uint16_t(packetCount() - 1);
    std::vector<uint16_t> first;
    for (uint16_t p = 0; p < last; ++p)
        if (p != 3 && p != 5) first.push_back(p);
    link.camera.send(7, first);
    auto request = link.camera.nextRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->second, (std::set<uint16_t>{3, 5}));

    link.camera.send(7, {5});  // the answer for 3 is lost
    request = link.camera.nextRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->second, std::set<uint16_t>{3});

    // Nothing more comes: after the quiet, everything missing, the tail too.
    request = link.camera.nextRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->second, (std::set<uint16_t>{3, last}));
    link.camera.send(7, {3, last});
    const d3sdk::Frame* f = link.exchange.acquire(kPatience);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->frameId, 7u);
    EXPECT_EQ(link.receiver.stats().framesIncomplete, 0u);
}

// A frame that is never repaired is given up once a newer one has waited for
// it long enough: counted, never delivered in part, and the newer one flows.
TEST(UdpReceiver, GivesUpAFrameThatStaysIncompleteAndDeliversTheNewerOne) {
    Link link("127.0.160.4");
    link.camera.sendAllBut(10, {2});
    link.camera.sendAllBut(11, {});
    const d3sdk::Frame* f = link.exchange.acquire(kPatience);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->frameId, 11u);
    EXPECT_EQ(depthAt(*f, 0), 11000);
    ASSERT_TRUE(link.statsReach([](const d3sdk::StreamStats& s) { return s.framesComplete == 1; }));
    const d3sdk::StreamStats s = link.receiver.stats();
    EXPECT_EQ(s.framesIncomplete, 1u);
    EXPECT_GE(s.packetsResendRequested, 1u);
}
