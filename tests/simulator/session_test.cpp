// Discovery, sessions, the reply cache, heartbeats, bad input and reboots,
// over real loopback sockets. Address block 127.0.77.x, discovery port 48777.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "SimulatedCameras.h"
#include "rawclient.h"

using d3proto::Command;
using d3proto::Json;
using d3test::RawClient;
using namespace d3sim;
namespace st = d3proto::status;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint16_t kDiscoveryPort = 48777;

ServerConfig config(const std::string& ip, char model = '1') {
    ServerConfig c;
    c.address = ip;
    c.model = model;
    c.discoveryPort = kDiscoveryPort;
    c.rebootMs = 400;
    return c;
}

std::string tempDir(const char* tag) {
    auto p = std::filesystem::temp_directory_path() / (std::string("d3sess-") + tag + "-" + std::to_string(getpid()));
    std::filesystem::remove_all(p);
    return p.string();
}

}  // namespace

TEST(Discovery, EveryCameraOnTheLoopbackAnswersABroadcast) {
    CamerasConfig cc;
    cc.count = 3;
    cc.baseAddress = "127.0.77.2";
    cc.models = {'3', '0', '4'};
    cc.discoveryPort = kDiscoveryPort;
    SimulatedCameras cams(cc);
    ASSERT_TRUE(cams.start()) << cams.lastError();

    const auto found = d3test::discover(kDiscoveryPort);
    ASSERT_EQ(found.size(), 3u);
    std::set<std::string> serials, ips;
    for (const auto& d : found) {
        serials.insert(d.serial);
        ips.insert(d.ip);
        ASSERT_GE(d.serial.size(), 9u);
        EXPECT_EQ(d.serial.substr(8, 1), d.model);
        EXPECT_EQ(d.controlPort, 48601);
    }
    EXPECT_EQ(serials.size(), 3u);
    EXPECT_EQ(ips, (std::set<std::string>{"127.0.77.2", "127.0.77.3", "127.0.77.4"}));
    EXPECT_EQ(cams[1].deviceString(), cams[1].serial() + ":127.0.77.3");

    cams.stop();
    EXPECT_TRUE(d3test::discover(kDiscoveryPort, 150).empty());
}

TEST(Session, SecondClientIsBusyUntilTheFirstCloses) {
    CameraServer server(config("127.0.77.10"));
    ASSERT_TRUE(server.start()) << server.lastError();
    RawClient a, b;
    ASSERT_TRUE(a.connect("127.0.77.10", 48601));
    ASSERT_TRUE(b.connect("127.0.77.10", 48601));
    ASSERT_NE(a.open("client-a"), 0u);
    EXPECT_EQ(b.call(Command::OpenSession, {{"client", "client-b"}}).status(), st::kBusy);
    // Without a session, b may still read the identity but not drive the camera.
    EXPECT_EQ(b.call(Command::GetDeviceInfo).status(), st::kSuccess);
    EXPECT_EQ(b.call(Command::SetFrameRate, {{"value", 5}}).status(), st::kNotConnected);

    EXPECT_EQ(a.call(Command::CloseSession).status(), st::kSuccess);
    EXPECT_TRUE(a.waitClosed(1000));
    EXPECT_NE(b.open("client-b"), 0u);
    EXPECT_EQ(b.call(Command::SetFrameRate, {{"value", 5}}).status(), st::kSuccess);
}

TEST(Session, SameClientOnANewConnectionTakesOver) {
    CameraServer server(config("127.0.77.11"));
    ASSERT_TRUE(server.start());
    RawClient first, second;
    ASSERT_TRUE(first.connect("127.0.77.11", 48601));
    ASSERT_NE(first.open("same"), 0u);
    ASSERT_TRUE(second.connect("127.0.77.11", 48601));
    EXPECT_NE(second.open("same"), 0u);
    EXPECT_TRUE(first.waitClosed(1000));
    EXPECT_EQ(second.call(Command::Heartbeat).status(), st::kSuccess);
}

TEST(Session, RepeatedRequestIdIsAnsweredFromTheCacheWithoutExecuting) {
    auto cfg = config("127.0.77.12");
    cfg.heartbeatTimeoutMs = 30000;  // this test sends no heartbeats; a slow run must not lose the session
    CameraServer server(cfg);
    ASSERT_TRUE(server.start());
    RawClient c;
    ASSERT_TRUE(c.connect("127.0.77.12", 48601));
    ASSERT_NE(c.open("retry"), 0u);
    server.camera().clearCommandLog();

    ASSERT_TRUE(c.send(Command::SetFrameRate, {{"value", 10}}, 500));
    auto r1 = c.read();
    ASSERT_TRUE(r1.ok);
    EXPECT_EQ(r1.status(), st::kSuccess);
    // Same id and command, different value: a retry must not execute again.
    ASSERT_TRUE(c.send(Command::SetFrameRate, {{"value", 12}}, 500));
    auto r2 = c.read();
    ASSERT_TRUE(r2.ok);
    EXPECT_EQ(r2.header.requestId, 500u);
    EXPECT_EQ(r2.status(), st::kSuccess);
    EXPECT_EQ(server.camera().settings().frameRate, 10);
    EXPECT_EQ(server.stats().repliesFromCache, 1u);
    ASSERT_EQ(server.camera().commandLog().size(), 1u);

    // The cache survives a reconnect of the same client that the camera has not
    // noticed yet (the usual reason for a retry)...
    RawClient again;
    ASSERT_TRUE(again.connect("127.0.77.12", 48601));
    ASSERT_NE(again.open("retry"), 0u);
    ASSERT_TRUE(again.send(Command::SetFrameRate, {{"value", 12}}, 500));
    EXPECT_EQ(again.read().status(), st::kSuccess);
    EXPECT_EQ(server.camera().settings().frameRate, 10);

    // ...but a new session starts empty, even for the same client id, because its
    // request ids may start over.
    again.close();
    ASSERT_TRUE(c.waitClosed(1000));
    ASSERT_TRUE(c.connect("127.0.77.12", 48601));
    ASSERT_NE(c.open("retry"), 0u);
    ASSERT_TRUE(c.send(Command::SetFrameRate, {{"value", 12}}, 500));
    EXPECT_EQ(c.read().status(), st::kSuccess);
    EXPECT_EQ(server.camera().settings().frameRate, 12);
}

TEST(Session, ErrorsAreRepliesAndBadInputNeverTakesTheCameraDown) {
    CameraServer server(config("127.0.77.13"));
    ASSERT_TRUE(server.start());
    RawClient c;
    ASSERT_TRUE(c.connect("127.0.77.13", 48601));
    EXPECT_EQ(c.call(Command::StartStream).status(), st::kNotConnected);
    ASSERT_NE(c.open("errors"), 0u);
    EXPECT_EQ(c.call(Command::StopStream).status(), st::kNotStreaming);
    EXPECT_EQ(c.call(Command(0x7777)).status(), st::kNotSupported);
    EXPECT_EQ(c.call(Command::SetTriggerMode, {{"value", 9}}).status(), st::kTriggerModeRefused);
    ASSERT_TRUE(
        c.sendRaw(d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(Command::SetHdr), 77, 0, "{oops")));
    EXPECT_EQ(c.read().status(), st::kProtocolError);
    EXPECT_EQ(c.call(Command::Heartbeat).status(), st::kSuccess);  // still usable

    // Another protocol version: one protocol-error reply, then the camera hangs up.
    RawClient v2;
    ASSERT_TRUE(v2.connect("127.0.77.13", 48601));
    auto bytes = d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(Command::GetDeviceInfo), 5, 0, "");
    bytes[4] = 2;
    ASSERT_TRUE(v2.sendRaw(bytes));
    auto r = v2.read();
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.status(), st::kProtocolError);
    EXPECT_TRUE(v2.waitClosed(1000));

    // Not our protocol, or a length beyond the limit: dropped without an answer.
    RawClient junk;
    ASSERT_TRUE(junk.connect("127.0.77.13", 48601));
    ASSERT_TRUE(junk.sendRaw(std::vector<uint8_t>(64, 0xAB)));
    EXPECT_TRUE(junk.waitClosed(1000));
    ASSERT_TRUE(junk.connect("127.0.77.13", 48601));
    auto huge = d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(Command::Heartbeat), 1, 0, "");
    d3proto::putU32(huge.data() + 16, 0x7FFFFFFF);
    ASSERT_TRUE(junk.sendRaw(huge));
    EXPECT_TRUE(junk.waitClosed(1000));

    EXPECT_EQ(c.call(Command::GetFrameRate).status(), st::kSuccess);
    EXPECT_EQ(d3test::discover(kDiscoveryPort).size(), 1u);
}

TEST(Session, SilentSessionEndsAfterThreeSeconds) {
    CameraServer server(config("127.0.77.14"));
    ASSERT_TRUE(server.start());
    RawClient c;
    ASSERT_TRUE(c.connect("127.0.77.14", 48601));
    ASSERT_NE(c.open("quiet"), 0u);
    ASSERT_EQ(c.call(Command::StartStream).status(), st::kSuccess);
    // Heartbeats keep it alive past the timeout: the connection stays open
    // through every wait between them...
    const auto opened = Clock::now();
    for (int i = 0; Clock::now() - opened < std::chrono::milliseconds(4000); ++i) {
        ASSERT_FALSE(c.waitClosed(300)) << "closed before heartbeat " << i;
        ASSERT_EQ(c.call(Command::Heartbeat).status(), st::kSuccess) << i;
    }
    // ...silence ends it, and not before the timeout (a loaded machine can
    // only make it later).
    const auto silentSince = Clock::now();
    EXPECT_TRUE(c.waitClosed(20000));
    const double waited = std::chrono::duration<double>(Clock::now() - silentSince).count();
    EXPECT_GT(waited, 2.9);
    EXPECT_FALSE(server.camera().streaming());
    EXPECT_EQ(server.stats().sessionsTimedOut, 1u);
    RawClient next;
    ASSERT_TRUE(next.connect("127.0.77.14", 48601));
    EXPECT_NE(next.open("next"), 0u);
}

TEST(Reboot, NetworkModeMovesTheCameraToItsNewAddress) {
    const std::string dir = tempDir("net");
    auto cfg = config("127.0.77.20");
    cfg.stateDir = dir;
    {
        CameraServer server(cfg);
        ASSERT_TRUE(server.start());
        RawClient c;
        ASSERT_TRUE(c.connect("127.0.77.20", 48601));
        ASSERT_NE(c.open("net"), 0u);
        const Json net = {{"ip", "127.0.77.21"}, {"netmask", "255.0.0.0"}, {"gateway", ""}, {"dhcp", false}};
        ASSERT_EQ(c.call(Command::SetNetworkMode, net).status(), st::kSuccess);
        EXPECT_TRUE(c.waitClosed(1000));
        EXPECT_TRUE(d3test::discover(kDiscoveryPort, 150).empty());  // rebooting
        ASSERT_TRUE(server.waitUntilUp(3000));
        EXPECT_EQ(server.address(), "127.0.77.21");
        const auto found = d3test::discover(kDiscoveryPort);
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(found[0].ip, "127.0.77.21");
        EXPECT_FALSE(c.connect("127.0.77.20", 48601));
        ASSERT_TRUE(c.connect("127.0.77.21", 48601));
        EXPECT_NE(c.open("net"), 0u);
        EXPECT_EQ(server.stats().reboots, 1u);
    }
    // A new process on the same folder comes up at the stored address.
    CameraServer again(cfg);
    ASSERT_TRUE(again.start());
    EXPECT_EQ(again.address(), "127.0.77.21");
    std::filesystem::remove_all(dir);
}

TEST(Reboot, StoredConfigurationComesBackAfterARestart) {
    const std::string dir = tempDir("cfg");
    auto cfg = config("127.0.77.30", '3');
    cfg.stateDir = dir;
    {
        CameraServer server(cfg);
        ASSERT_TRUE(server.start());
        RawClient c;
        ASSERT_TRUE(c.connect("127.0.77.30", 48601));
        ASSERT_NE(c.open("cfg"), 0u);
        ASSERT_EQ(c.call(Command::SetFrameRate, {{"value", 7}}).status(), st::kSuccess);
        ASSERT_EQ(c.call(Command::SetIrGamma, {{"value", 99}}).status(), st::kSuccess);
        ASSERT_EQ(c.call(Command::SetFlyPixelFilter, {{"enable", true}, {"value", 40}, {"value2", 100}}).status(),
                  st::kSuccess);
        ASSERT_EQ(c.call(Command::SetRgbContrast, {{"value", 250}}).status(), st::kSuccess);
        ASSERT_EQ(c.call(Command::SaveConfig).status(), st::kSuccess);
    }
    CameraServer server(cfg);
    ASSERT_TRUE(server.start());
    RawClient c;
    ASSERT_TRUE(c.connect("127.0.77.30", 48601));
    ASSERT_NE(c.open("cfg"), 0u);
    EXPECT_EQ(c.call(Command::GetFrameRate).body["value"], 7);
    EXPECT_EQ(c.call(Command::GetIrGamma).body["value"], 99);
    EXPECT_EQ(c.call(Command::GetFlyPixelFilter).body["value"], 40.0);
    EXPECT_EQ(c.call(Command::GetRgbContrast).body["value"], 250);

    // Factory defaults forget it, reboot, and come back with the defaults.
    ASSERT_EQ(c.call(Command::FactoryDefaults).status(), st::kSuccess);
    EXPECT_TRUE(c.waitClosed(1000));
    ASSERT_TRUE(server.waitUntilUp(3000));
    ASSERT_TRUE(c.connect("127.0.77.30", 48601));
    ASSERT_NE(c.open("cfg"), 0u);
    EXPECT_EQ(c.call(Command::GetFrameRate).body["value"], CameraSettings().frameRate);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(dir) / server.serial() / "config.json"));
    std::filesystem::remove_all(dir);
}
