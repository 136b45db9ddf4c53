// Faults on demand at the camera's end, seen on the wire: the control
// socket's commands, a pause that holds requests back, a camera that dies and
// returns by itself, seeded loss. Address block 127.0.86.x, discovery port 48786.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "FaultControl.h"
#include "rawclient.h"
#include "SimulatedCameras.h"

using d3proto::Command;
using d3test::RawClient;
using namespace d3sim;
namespace st = d3proto::status;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint16_t kDiscoveryPort = 48786;

ServerConfig config(const std::string& ip) {
    ServerConfig c;
    c.address = ip;
    c.model = '1';
    c.discoveryPort = kDiscoveryPort;
    c.rebootMs = 300;
    return c;
}

double msSince(Clock::time_point t) { return std::chrono::duration<double, std::milli>(Clock::now() - t).count(); }

bool startsWith(const std::string& s, const std::string& prefix) { return s.rfind(prefix, 0) == 0; }

// A bare TCP connection to the control socket, to send what the client never would.
int connectTcp(const std::string& ip, uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    ::inet_pton(AF_INET, ip.c_str(), &a.sin_addr);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        ::close(fd);
        return -1;
    }
    timeval tv{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    return fd;
}

std::string readSome(int fd) {
    std::string out;
    char buf[512];
    for (;;) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) break;
        out.append(buf, size_t(n));
        if (std::count(out.begin(), out.end(), '\n') >= 2) break;
    }
    return out;
}

}  // namespace

TEST(FaultCommands, MalformedOrOutOfRangeCommandsChangeNothing) {
    CameraServer cam(config("127.0.86.2"));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    for (const char* bad : {"",
                            "loss",
                            "loss 1.5",
                            "loss -0.1",
                            "loss x",
                            "loss 0.1 seed",
                            "latency -1",
                            "latency 20000",
                            "jitter -5",
                            "jitter 10001",
                            "jitter soon",
                            "bandwidth -1",
                            "bandwidth fast",
                            "bandwidth 1e9",
                            "pause",
                            "pause -2",
                            "pause 1e9",
                            "kill 0",
                            "kill soon",
                            "restart",
                            "fail",
                            "fail 2",
                            "fail 0",
                            "fail 9 NoSuchCommand",
                            "fail nine",
                            "address 1.2.3",
                            "address 127.255.255.255",
                            "address 127.0.0.0",
                            "trigger now",
                            "explode"}) {
        EXPECT_TRUE(startsWith(runFaultCommand(cam, bad), "error:")) << "'" << bad << "'";
    }
    EXPECT_EQ(cam.faults().loss(), 0);
    EXPECT_EQ(cam.faults().latencyMs(), 0);
    EXPECT_FALSE(cam.faults().shaped());
    EXPECT_FALSE(cam.faults().paused());
    EXPECT_FALSE(cam.killed());
    EXPECT_EQ(cam.address(), "127.0.86.2");

    EXPECT_EQ(runFaultCommand(cam, "loss 0.25 7"), "ok loss 0.25");
    EXPECT_EQ(cam.faults().loss(), 0.25);
    EXPECT_EQ(runFaultCommand(cam, "latency 40"), "ok latency 40 ms");
    EXPECT_EQ(cam.faults().latencyMs(), 40);
    const std::string status = runFaultCommand(cam, "status");
    EXPECT_TRUE(startsWith(status, "ok serial=" + cam.serial())) << status;
    EXPECT_NE(status.find("loss=0.25"), std::string::npos) << status;
    EXPECT_NE(status.find("latencyMs=40"), std::string::npos) << status;

    EXPECT_EQ(runFaultCommand(cam, "jitter 15"), "ok jitter 15 ms");
    EXPECT_EQ(runFaultCommand(cam, "bandwidth 100"), "ok bandwidth 100 Mbit/s");
    EXPECT_EQ(cam.faults().jitterMs(), 15);
    EXPECT_EQ(cam.faults().bandwidthMbit(), 100);
    EXPECT_NE(runFaultCommand(cam, "status").find("jitterMs=15 bandwidthMbit=100"), std::string::npos);
    EXPECT_EQ(runFaultCommand(cam, "bandwidth 0"), "ok bandwidth unlimited");
    EXPECT_EQ(cam.faults().bandwidthMbit(), 0);
}

TEST(FaultCommands, SocketAnswersEachLineAndDropsAbusiveClients) {
    CameraServer cam(config("127.0.86.10"));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    FaultControlServer control(cam);
    std::string err;
    ASSERT_TRUE(control.start("127.0.86.10", 0, err)) << err;

    // Two commands in one write, the second with a Windows line end.
    int fd = connectTcp("127.0.86.10", control.port());
    ASSERT_GE(fd, 0);
    const std::string two = "latency 5\nfail 9 SetFrameRate\r\n";
    ASSERT_EQ(::send(fd, two.data(), two.size(), 0), ssize_t(two.size()));
    EXPECT_EQ(readSome(fd), "ok latency 5 ms\nok next SetFrameRate fails with 9\n");
    ::close(fd);

    // A line that never ends is cut off, not buffered without bound.
    fd = connectTcp("127.0.86.10", control.port());
    ASSERT_GE(fd, 0);
    const std::string flood(4096, 'x');
    ::send(fd, flood.data(), flood.size(), MSG_NOSIGNAL);
    char c;
    EXPECT_LE(::recv(fd, &c, 1, 0), 0) << "the connection should have been closed";
    ::close(fd);

    EXPECT_EQ(sendFaultCommand("127.0.86.10", control.port(), "latency 0"), "ok latency 0 ms");
    EXPECT_TRUE(startsWith(sendFaultCommand("127.0.86.10", 1, "status", 500), "error:"));
    control.stop();
    EXPECT_TRUE(startsWith(sendFaultCommand("127.0.86.10", control.port(), "status", 500), "error:"));
}

TEST(Pause, RequestsWaitForTheEndAndAreAnsweredInOrder) {
    CameraServer cam(config("127.0.86.20"));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    RawClient c;
    ASSERT_TRUE(c.connect("127.0.86.20", 48601));
    ASSERT_NE(c.open("pauser"), 0u);

    cam.pause(900);
    const auto t0 = Clock::now();
    ASSERT_TRUE(c.send(Command::Heartbeat, d3proto::Json::object(), 100));
    ASSERT_TRUE(c.send(Command::GetFrameRate, d3proto::Json::object(), 101));
    EXPECT_TRUE(d3test::discover(kDiscoveryPort, 300).empty()) << "a paused camera must not answer a search";
    const d3test::Reply first = c.read(3000);
    const double waited = msSince(t0);
    const d3test::Reply second = c.read(3000);
    ASSERT_TRUE(first.ok && second.ok);
    EXPECT_GE(waited, 800);
    EXPECT_EQ(first.header.requestId, 100u);
    EXPECT_EQ(second.header.requestId, 101u);
    EXPECT_EQ(second.status(), st::kSuccess);
    EXPECT_EQ(d3test::discover(kDiscoveryPort, 300).size(), 1u);
    EXPECT_EQ(cam.stats().sessionsTimedOut, 0u);
}

TEST(Kill, CameraVanishesAndComesBackByItselfWithItsStoredSettings) {
    CameraServer cam(config("127.0.86.30"));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    RawClient c;
    ASSERT_TRUE(c.connect("127.0.86.30", 48601));
    ASSERT_NE(c.open("victim"), 0u);
    ASSERT_EQ(c.call(Command::SetFrameRate, {{"value", 7}}).status(), st::kSuccess);
    ASSERT_EQ(c.call(Command::SaveConfig).status(), st::kSuccess);
    ASSERT_EQ(c.call(Command::SetFrameRate, {{"value", 13}}).status(), st::kSuccess);

    EXPECT_EQ(runFaultCommand(cam, "kill 0.8"), "ok killed for 0.8 s");
    EXPECT_TRUE(cam.killed());
    EXPECT_TRUE(c.waitClosed(1000));
    RawClient refused;
    EXPECT_FALSE(refused.connect("127.0.86.30", 48601));
    EXPECT_TRUE(d3test::discover(kDiscoveryPort, 200).empty());

    ASSERT_TRUE(cam.waitUntilUp(3000));
    EXPECT_FALSE(cam.killed());
    EXPECT_EQ(d3test::discover(kDiscoveryPort, 300).size(), 1u);
    RawClient again;
    ASSERT_TRUE(again.connect("127.0.86.30", 48601));
    ASSERT_NE(again.open("victim"), 0u);
    const d3test::Reply fps = again.call(Command::GetFrameRate);
    ASSERT_EQ(fps.status(), st::kSuccess);
    EXPECT_EQ(fps.body.value("value", 0), 7) << "a restart is a power cycle: only stored settings remain";
}

TEST(Loss, SameSeedDropsTheSameDatagrams) {
    LinkFaults a, b;
    a.setLoss(0.3, 42);
    b.setLoss(0.3, 42);
    int dropped = 0;
    for (int i = 0; i < 2000; ++i) {
        const bool d = a.dropPacket();
        ASSERT_EQ(d, b.dropPacket()) << "draw " << i;
        dropped += d;
    }
    EXPECT_NEAR(dropped / 2000.0, 0.3, 0.05);
    a.setLoss(0, 42);
    for (int i = 0; i < 100; ++i) EXPECT_FALSE(a.dropPacket());
}
