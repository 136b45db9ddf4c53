// The camera's datagram stream against the wire format: the hello and its
// echo, frames cut into datagrams in order, and resend requests answered from
// the camera's history for the session's client only.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <thread>

#include "CameraServer.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Udp.h"
#include "rawclient.h"
#include "waituntil.h"

using d3proto::Command;

namespace {

constexpr uint16_t kDiscoveryPort = 48782;

// A bare UDP socket on the loopback talking to the camera's stream port.
class Datagrams {
public:
    Datagrams(const std::string& cameraIp, uint16_t port) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        const int big = 8 << 20;
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &big, sizeof big);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local);
        camera_.sin_family = AF_INET;
        camera_.sin_port = htons(port);
        inet_pton(AF_INET, cameraIp.c_str(), &camera_.sin_addr);
    }
    ~Datagrams() { ::close(fd_); }
    void send(const std::vector<uint8_t>& d) {
        ::sendto(fd_, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&camera_), sizeof camera_);
    }
    // Next datagram within `ms`, empty on timeout.
    std::vector<uint8_t> read(int ms) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, ms) <= 0) return {};
        std::vector<uint8_t> d(2048);
        const ssize_t n = ::recv(fd_, d.data(), d.size(), 0);
        d.resize(n > 0 ? size_t(n) : 0);
        return d;
    }

private:
    int fd_ = -1;
    sockaddr_in camera_{};
};

struct UdpSession {
    explicit UdpSession(d3sim::CameraServer& cam) : data(cam.address(), cam.config().streamPort) {
        EXPECT_TRUE(control.connect(cam.address(), cam.config().controlPort));
        const d3test::Reply r = control.call(Command::OpenSession, {{"client", "udp-raw"}, {"transport", "udp"}});
        EXPECT_EQ(r.status(), 2);
        token = uint32_t(r.body.value("token", 0));
    }
    d3test::RawClient control;
    Datagrams data;
    uint32_t token = 0;
};

// Collects the datagrams of the first frame that arrives whole, by packet id.
std::map<uint16_t, std::vector<uint8_t>> firstWholeFrame(Datagrams& d, uint32_t& frameId) {
    std::map<uint32_t, std::map<uint16_t, std::vector<uint8_t>>> frames;
    for (int i = 0; i < 20000; ++i) {
        std::vector<uint8_t> g = d.read(2000);
        d3proto::UdpDataHeader h;
        const uint8_t* chunk;
        size_t n;
        if (g.empty()) break;
        if (!d3proto::decodeUdpData(g.data(), g.size(), h, chunk, n)) continue;
        auto& f = frames[h.frameId];
        f[h.packetId] = g;
        if (f.size() == h.packetCount) {
            frameId = h.frameId;
            return f;
        }
    }
    return {};
}

}  // namespace

TEST(UdpStream, HelloIsEchoedForTheSessionTokenOnlyAndFramesArriveWholeAndDecodable) {
    d3sim::ServerConfig cfg;
    cfg.address = "127.0.82.2";
    cfg.model = '1';
    cfg.discoveryPort = kDiscoveryPort;
    d3sim::CameraServer cam(cfg);
    ASSERT_TRUE(cam.start()) << cam.lastError();
    UdpSession s(cam);
    ASSERT_NE(s.token, 0u);

    std::vector<uint8_t> hello;
    d3proto::encodeUdpHello(s.token + 1, hello);
    s.data.send(hello);
    // Answers go out in the order the hellos came: had the wrong token been
    // answered, its echo would come first.
    std::vector<uint8_t> right;
    d3proto::encodeUdpHello(s.token, right);
    s.data.send(right);
    EXPECT_EQ(s.data.read(2000), right) << "only the right one is echoed";

    // The stream connection is not how a datagram session gets its frames.
    d3test::RawClient tcp;
    ASSERT_TRUE(tcp.connect(cam.address(), cam.config().streamPort));
    EXPECT_EQ(tcp.call(Command::AttachStream, {{"token", s.token}}).status(), 8);

    ASSERT_EQ(s.control.call(Command::StartStream).status(), 2);
    uint32_t frameId = 0;
    const auto packets = firstWholeFrame(s.data, frameId);
    ASSERT_FALSE(packets.empty());
    std::vector<uint8_t> payload;
    for (const auto& [id, g] : packets) {
        ASSERT_EQ(size_t(id) * d3proto::kUdpChunk, payload.size()) << "packets cover the frame without gaps";
        ASSERT_LE(g.size(), d3proto::kUdpHeaderSize + d3proto::kUdpChunk);
        payload.insert(payload.end(), g.begin() + d3proto::kUdpHeaderSize, g.end());
    }
    d3proto::FrameView view;
    ASSERT_EQ(d3proto::decodeFrame(payload.data(), payload.size(), view), d3proto::FrameDecodeResult::Ok);
    EXPECT_EQ(view.header.frameId, frameId);
    EXPECT_EQ(view.header.tofWidth, 640);
}

TEST(UdpStream, ResendsComeFromHistoryForTheClientOnlyAndUnderTheLossFault) {
    d3sim::ServerConfig cfg;
    cfg.address = "127.0.82.10";
    cfg.model = '1';
    cfg.discoveryPort = kDiscoveryPort;
    // Slow enough that the frame asked about is still kept (16 frames) when a
    // slow test build reads its way through what is queued.
    cfg.fps = 5;
    d3sim::CameraServer cam(cfg);
    ASSERT_TRUE(cam.start()) << cam.lastError();
    UdpSession s(cam);
    std::vector<uint8_t> hello;
    d3proto::encodeUdpHello(s.token, hello);
    s.data.send(hello);
    ASSERT_EQ(s.data.read(2000), hello);
    ASSERT_EQ(s.control.call(Command::StartStream).status(), 2);
    uint32_t frameId = 0;
    const auto packets = firstWholeFrame(s.data, frameId);
    ASSERT_FALSE(packets.empty());

    // Asked again: exactly the same datagrams, amid the newer frames.
    std::vector<uint8_t> request;
    d3proto::encodeUdpResend({frameId, {{2, 4}, {7, 7}}}, request);
    s.data.send(request);
    std::map<uint16_t, int> resent;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (resent.size() < 4 && std::chrono::steady_clock::now() < deadline) {
        const std::vector<uint8_t> g = s.data.read(2000);
        ASSERT_FALSE(g.empty());
        if (d3proto::getU32(g.data() + 8) != frameId) continue;
        const uint16_t id = d3proto::getU16(g.data() + 6);
        EXPECT_EQ(g, packets.at(id));
        ++resent[id];
    }
    EXPECT_EQ(resent, (std::map<uint16_t, int>{{2, 1}, {3, 1}, {4, 1}, {7, 1}}));
    const uint64_t answered = cam.stats().udpResendRequests;
    EXPECT_EQ(answered, 1u);
    // The counters are updated once a resend job has gone out, which can be
    // a moment after its datagrams arrived here.
    d3test::waitUntil([&] { return cam.stats().udpDatagramsResent >= 4; });
    EXPECT_EQ(cam.stats().udpDatagramsResent, 4u);

    // Not the client, or a frame long gone: ignored.
    Datagrams stranger(cam.address(), cam.config().streamPort);
    stranger.send(request);
    d3proto::encodeUdpResend({frameId - 100000, {{0, 0}}}, request);
    s.data.send(request);
    // The loss fault withholds resent datagrams too: ten asked, ten counted, none sent.
    cam.faults().setLoss(1.0, 1);
    const d3sim::CameraServer::Stats before = cam.stats();
    d3proto::encodeUdpResend({frameId, {{0, 9}}}, request);
    s.data.send(request);
    d3test::waitUntil([&] { return cam.stats().udpDatagramsResent >= before.udpDatagramsResent + 10; });
    const d3sim::CameraServer::Stats after = cam.stats();
    EXPECT_EQ(after.udpResendRequests, answered + 1);
    EXPECT_EQ(after.udpDatagramsResent, before.udpDatagramsResent + 10);
    // Nothing of the asked-about frame reaches the client: all ten were withheld.
    EXPECT_GE(after.udpDatagramsLost, before.udpDatagramsLost + 10);
}
