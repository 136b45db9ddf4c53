// Recovery through the SDK from faults a camera shows on demand: a camera
// that dies and comes back, one that freezes for a while, one that moves, a
// second client, injected failures, and the stored configuration across
// restarts of the simulator on the same state folder.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "FaultControl.h"
#include "d3_sdk/Extensions.h"
#include "networkfixture.h"
#include "rawclient.h"
#include "waituntil.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint16_t kPort = 48785;

// Deadlines are generous: they only decide how long a broken build takes to fail.
bool waitFor(const std::function<bool()>& done, int ms) {
    return d3test::waitUntil(done, std::chrono::milliseconds(3 * ms));
}

size_t heartbeats(d3sim::CameraServer& cam) {
    size_t n = 0;
    for (const auto& c : cam.camera().commandLog()) n += c.name == "Heartbeat" ? 1 : 0;
    return n;
}

double msSince(Clock::time_point t) { return std::chrono::duration<double, std::milli>(Clock::now() - t).count(); }

// One camera on `address`, optionally on a state folder, with short reboots.
std::unique_ptr<d3sim::SimulatedCameras> startCamera(const std::string& address, char model,
                                                     const std::string& stateDir = {}, int heartbeatTimeoutMs = 3000) {
    setenv("D3_DISCOVERY_PORT", std::to_string(kPort).c_str(), 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    d3sim::CamerasConfig cfg;
    cfg.baseAddress = address;
    cfg.models = {model};
    cfg.stateDir = stateDir;
    cfg.discoveryPort = kPort;
    cfg.heartbeatTimeoutMs = heartbeatTimeoutMs;
    cfg.rebootMs = 300;
    cfg.fps = 20;
    auto cams = std::make_unique<d3sim::SimulatedCameras>(cfg);
    EXPECT_TRUE(cams->start()) << cams->lastError();
    return cams;
}

class Recovery : public ::testing::Test {
protected:
    void SetUp() override {
        dm.SetTimeout(1000);
        dm.RegisterNetworkMonitoringCallback(
            [this](std::string sn, std::string msg, void*) {
                lostSerial = sn;
                lostMessage = msg;
                ++lost;
            },
            nullptr);
        stateDir =
            std::filesystem::temp_directory_path() / ("d3-recovery-" + std::to_string(::getpid()) + "-" +
                                                      ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(stateDir);
    }
    void TearDown() override {
        dm.DisconnectFromDevice();
        dm.RegisterNetworkMonitoringCallback(nullptr, nullptr);
        std::filesystem::remove_all(stateDir);
    }
    // ReconnectDevice(1000) until it succeeds, as an application's recovery loop does.
    ReturnCode reconnect(int attempts = 15) {
        ReturnCode rc = NETWORK_ERROR;
        for (int i = 0; i < attempts && rc != SUCCESS; ++i) rc = dm.ReconnectDevice(1000);
        return rc;
    }
    ReturnCode readDepth() { return dm.GetTofData(&depth, nullptr, nullptr, nullptr); }

    DeviceManager& dm = DeviceManager::GetInstance();
    std::atomic<int> lost{0};
    std::string lostSerial, lostMessage;  // written before `lost` is counted up
    std::filesystem::path stateDir;
    DataContainer<uint16_t> depth;
};

}  // namespace

TEST_F(Recovery, KilledCameraIsReportedAndComesBackWithWhatItStored) {
    auto cams = startCamera("127.0.85.2", '1', stateDir.string());
    d3sim::CameraServer& cam = (*cams)[0];
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.SetFrameRate(9), SUCCESS);
    ASSERT_EQ(dm.SaveConfigureInfo(), SUCCESS);
    ASSERT_EQ(dm.SetFrameRate(12), SUCCESS);  // held, never stored: a power cycle forgets it
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    ASSERT_EQ(readDepth(), SUCCESS);

    const auto killedAt = Clock::now();
    cam.kill();
    ASSERT_TRUE(waitFor([&] { return lost > 0; }, 5000)) << "no callback after the camera died";
    // Noticed through the heartbeat, not at some later call: well before the
    // viewer's own patience would run out.
    EXPECT_LT(msSince(killedAt), 15000);
    EXPECT_EQ(lostSerial, cam.serial());
    EXPECT_NE(lostMessage.find(cam.serial()), std::string::npos) << lostMessage;
    int fps = 0;
    EXPECT_EQ(dm.GetFrameRate(fps), NETWORK_ERROR);
    EXPECT_EQ(readDepth(), NETWORK_ERROR);
    EXPECT_EQ(dm.StartStream(), NETWORK_ERROR);

    // While the camera is away a reconnect fails, and within its budget.
    const auto tried = Clock::now();
    EXPECT_NE(dm.ReconnectDevice(600), SUCCESS);
    EXPECT_LT(msSince(tried), 6000) << "the reconnect did not keep to its budget";

    ASSERT_TRUE(cam.restart()) << cam.lastError();
    ASSERT_EQ(reconnect(), SUCCESS);
    ASSERT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_EQ(fps, 9);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    dm.SetTimeout(3000);  // the first frame after a start is slow under sanitizers
    EXPECT_EQ(readDepth(), SUCCESS);
    EXPECT_EQ(lost, 1);
}

TEST_F(Recovery, ShortPauseKeepsTheSessionAndTheStreamResumes) {
    auto cams = startCamera("127.0.85.10", '1');
    d3sim::CameraServer& cam = (*cams)[0];
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    ASSERT_EQ(readDepth(), SUCCESS);

    dm.SetTimeout(400);
    cam.pause(2000);
    const auto pausedAt = Clock::now();
    // A frozen camera sends nothing: frame reads time out instead of hanging.
    int timeouts = 0;
    while (msSince(pausedAt) < 1500) {
        const auto t = Clock::now();
        const ReturnCode rc = readDepth();
        if (rc == TIMEOUT) ++timeouts;
        EXPECT_NE(rc, NETWORK_ERROR);
        EXPECT_LT(msSince(t), 6000) << "a frame read did not end with its timeout";
    }
    EXPECT_GE(timeouts, 2);
    ReturnCode rc = TIMEOUT;
    ASSERT_TRUE(waitFor([&] { return (rc = readDepth()) == SUCCESS; }, 5000)) << rc;
    int fps = 0;
    EXPECT_EQ(dm.GetFrameRate(fps), SUCCESS);
    // Past the heartbeat limit counted from before the pause (three more
    // heartbeats, a second apart): the session really survived.
    cam.camera().clearCommandLog();
    ASSERT_TRUE(d3test::waitUntil([&] { return heartbeats(cam) >= 3; }));
    EXPECT_EQ(readDepth(), SUCCESS);
    EXPECT_EQ(lost, 0) << lostMessage;
}

TEST_F(Recovery, PauseBeyondTheHeartbeatLimitLosesTheLinkAndReconnectKeepsHeldSettings) {
    // A short heartbeat limit keeps the test short; the rules are the same as at 3 s.
    auto cams = startCamera("127.0.85.20", '1', {}, 1500);
    d3sim::CameraServer& cam = (*cams)[0];
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.SetFrameRate(11), SUCCESS);  // held by the camera, not stored
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    cam.pause(2600);
    ASSERT_TRUE(waitFor([&] { return lost > 0; }, 5000));
    EXPECT_NE(lostMessage.find("no answer"), std::string::npos) << lostMessage;
    EXPECT_EQ(readDepth(), NETWORK_ERROR);

    ASSERT_EQ(reconnect(), SUCCESS);
    int fps = 0;
    ASSERT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_EQ(fps, 11);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    dm.SetTimeout(3000);
    EXPECT_EQ(readDepth(), SUCCESS);
}

TEST_F(Recovery, SecondClientIsToldTheCameraIsBusy) {
    auto cams = startCamera("127.0.85.30", '1');
    d3sim::CameraServer& cam = (*cams)[0];
    {
        // Another application holds the camera: we are refused, it keeps it.
        d3test::RawClient other;
        ASSERT_TRUE(other.connect(cam.address(), cam.config().controlPort));
        ASSERT_NE(other.open("another-application"), 0u);
        EXPECT_EQ(dm.InitDevice(cam.deviceString(), true), DEVICE_BUSY);
        EXPECT_EQ(other.call(d3proto::Command::Heartbeat).status(), d3proto::status::kSuccess);
        int fps = 0;
        EXPECT_EQ(dm.GetFrameRate(fps), NOT_CONNECTED);
    }
    // Once it lets go, the camera is ours; then the other one is refused.
    ASSERT_TRUE(waitFor([&] { return dm.InitDevice(cam.deviceString(), true) == SUCCESS; }, 3000));
    d3test::RawClient late;
    ASSERT_TRUE(late.connect(cam.address(), cam.config().controlPort));
    const d3test::Reply r = late.call(d3proto::Command::OpenSession, {{"client", "late"}, {"transport", "tcp"}});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.status(), int32_t(DEVICE_BUSY));
    EXPECT_EQ(dm.StartStream(), SUCCESS);
    EXPECT_EQ(readDepth(), SUCCESS);
    EXPECT_EQ(lost, 0);
}

TEST_F(Recovery, InjectedFailuresReachTheCallerThroughTheControlSocket) {
    auto cams = startCamera("127.0.85.40", '3');
    d3sim::CameraServer& cam = (*cams)[0];
    d3sim::FaultControlServer control(cam);
    std::string err;
    ASSERT_TRUE(control.start("127.0.85.40", 0, err)) << err;
    auto ctl = [&](const std::string& line) { return d3sim::sendFaultCommand("127.0.85.40", control.port(), line); };
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);

    EXPECT_EQ(ctl("fail 9 SetFrameRate").rfind("ok", 0), 0u);
    EXPECT_EQ(dm.SetHDR(true), SUCCESS);  // another command is not hit
    EXPECT_EQ(dm.SetFrameRate(5), FILE_ERROR);
    int fps = 0;
    ASSERT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_NE(fps, 5) << "the failed call must not act";
    EXPECT_EQ(dm.SetFrameRate(5), SUCCESS);  // only the next one fails

    // A code the SDK has no name for still reaches the caller unchanged.
    EXPECT_EQ(ctl("fail 77").rfind("ok", 0), 0u);
    EXPECT_EQ(int(dm.SetRgbCameraGain(10)), 77);
    EXPECT_NE(dm.GetReturnCodeDescriptor(ReturnCode(77)).find("77"), std::string::npos);

    // Latency slows answers down without breaking the session.
    EXPECT_EQ(ctl("latency 300").rfind("ok", 0), 0u);
    const auto t = Clock::now();
    EXPECT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_GE(msSince(t), 280);
    EXPECT_EQ(ctl("latency 0").rfind("ok", 0), 0u);
    EXPECT_EQ(lost, 0);
}

TEST_F(Recovery, CameraMovedFromOutsideIsFoundAtItsNewAddress) {
    auto cams = startCamera("127.0.85.50", '1');
    d3sim::CameraServer& cam = (*cams)[0];
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    ASSERT_EQ(d3sim::runFaultCommand(cam, "address 127.0.85.60"), "ok moving to 127.0.85.60");
    ASSERT_TRUE(waitFor([&] { return lost > 0; }, 5000));
    ASSERT_TRUE(cam.waitUntilUp(3000));
    EXPECT_EQ(cam.address(), "127.0.85.60");

    std::vector<std::string> found;
    ASSERT_TRUE(waitFor(
        [&] {
            found = dm.FindDevices();
            return !found.empty();
        },
        3000));
    EXPECT_EQ(found, std::vector<std::string>{cam.serial() + ":127.0.85.60"});
    ASSERT_EQ(reconnect(), SUCCESS);
    d3sdk::DeviceDetails details;
    ASSERT_EQ(d3sdk::GetDeviceDetails(details), SUCCESS);
    EXPECT_EQ(details.ip, "127.0.85.60");
}

// Store, reset and factory reset, each checked across a full restart of the
// simulator on the same state folder (a power cycle of the camera).
TEST_F(Recovery, StoredConfigurationAndAddressSurviveRestartsOfTheSimulator) {
    auto cams = startCamera("127.0.85.70", '1', stateDir.string());
    const std::string serial = (*cams)[0].serial();
    int fps = 0;
    ASSERT_EQ(dm.InitDevice((*cams)[0].deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.GetFrameRate(fps), SUCCESS);
    const int defaultFps = fps;
    ASSERT_EQ(dm.SetFrameRate(6), SUCCESS);
    ASSERT_EQ(dm.SaveConfigureInfo(), SUCCESS);
    NetworkMode mode;
    mode.ip = "127.0.85.80";
    mode.netmask = "255.0.0.0";
    mode.isStatic = true;
    ASSERT_EQ(dm.SetNetworkMode(mode), SUCCESS);
    ASSERT_TRUE(waitFor([&] { return lost > 0; }, 5000));
    // A power cycle: the simulator started again on the camera's old
    // address and state folder, then a fresh session; the frame rate read.
    const auto restartAndReadFps = [&] {
        dm.DisconnectFromDevice();
        cams.reset();
        cams = startCamera("127.0.85.70", '1', stateDir.string());
        int read = -1;
        EXPECT_EQ(dm.InitDevice(serial, true), SUCCESS);
        EXPECT_EQ(dm.GetFrameRate(read), SUCCESS);
        return read;
    };

    // Started again on its old address, the camera comes up where it was told to go.
    EXPECT_EQ(restartAndReadFps(), 6);
    EXPECT_EQ((*cams)[0].address(), "127.0.85.80");

    // Reset of the stored configuration: defaults after its reboot and after a restart.
    lost = 0;
    ASSERT_EQ(dm.DeleteConfigureInfo(), SUCCESS);
    ASSERT_TRUE(waitFor([&] { return lost > 0; }, 5000));
    ASSERT_EQ(reconnect(), SUCCESS);
    ASSERT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_EQ(fps, defaultFps);
    ASSERT_EQ(dm.SetFrameRate(8), SUCCESS);
    ASSERT_EQ(dm.SaveConfigureInfo(), SUCCESS);

    // Factory reset: the stored settings go, the address stays.
    EXPECT_EQ(restartAndReadFps(), 8);
    lost = 0;
    ASSERT_EQ(dm.RecoveryDefaultConfigure(), SUCCESS);
    ASSERT_TRUE(waitFor([&] { return lost > 0; }, 5000));
    EXPECT_EQ(restartAndReadFps(), defaultFps);
    EXPECT_EQ((*cams)[0].address(), "127.0.85.80");
}
