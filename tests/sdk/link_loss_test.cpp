// Losing the camera: the monitoring callback fires once on an SDK thread and
// every later call reports the lost link.
#include <atomic>
#include <chrono>
#include <thread>

#include "backgroundread.h"
#include "d3_sdk/Extensions.h"
#include "networkfixture.h"
#include "waituntil.h"

namespace {

size_t heartbeats(d3sim::CameraServer& cam) {
    size_t n = 0;
    for (const auto& c : cam.camera().commandLog()) n += c.name == "Heartbeat" ? 1 : 0;
    return n;
}

class LinkLoss : public ::testing::Test {
protected:
    // One camera of `model` on `address`, opened over TCP, with a callback
    // that counts losses and keeps the serial and thread of the last.
    void open(const std::string& address, uint16_t discoveryPort, char model) {
        cams = sdktest::startCameras(address, discoveryPort, {model});
        dm.RegisterNetworkMonitoringCallback(
            [this](std::string sn, std::string, void*) {
                serial = sn;
                callbackThread = std::this_thread::get_id();
                ++calls;
            },
            nullptr);
        dm.SetTimeout(1000);
        ASSERT_EQ(dm.InitDevice(camera().deviceString(), true), SUCCESS);
    }
    void TearDown() override {
        dm.DisconnectFromDevice();
        dm.RegisterNetworkMonitoringCallback(nullptr, nullptr);
        dm.SetTimeout(1000);
    }
    d3sim::CameraServer& camera() { return (*cams)[0]; }

    DeviceManager& dm = DeviceManager::GetInstance();
    std::unique_ptr<d3sim::SimulatedCameras> cams;
    std::atomic<int> calls{0};
    std::string serial;
    std::thread::id callbackThread;
};

}  // namespace

TEST_F(LinkLoss, CameraGoneFiresCallbackOnceAndCallsReportNetworkError) {
    ASSERT_NO_FATAL_FAILURE(open("127.0.79.2", 48763, '1'));
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    // Heartbeats keep an idle session alive past the camera's 3 s limit: four
    // of them, a second apart, span more than that.
    camera().camera().clearCommandLog();
    ASSERT_TRUE(d3test::waitUntil([&] { return heartbeats(camera()) >= 4; }));
    int fps;
    ASSERT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_EQ(calls, 0);

    DataContainer<uint16_t> depth;
    ReturnCode inFlight = SUCCESS;
    std::thread reader([&] {
        // Keeps reading until the loss surfaces.
        for (int i = 0; i < 200 && inFlight == SUCCESS; ++i)
            inFlight = dm.GetTofData(&depth, nullptr, nullptr, nullptr);
    });
    camera().stop();
    reader.join();
    EXPECT_EQ(inFlight, NETWORK_ERROR);
    ASSERT_TRUE(d3test::waitUntil([&] { return calls > 0; }));
    EXPECT_EQ(serial, camera().serial());
    EXPECT_NE(callbackThread, std::this_thread::get_id());
    EXPECT_EQ(dm.GetFrameRate(fps), NETWORK_ERROR);
    EXPECT_EQ(dm.StopStream(), NETWORK_ERROR);
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
    // Once the session is closed and the callback replaced, no call of it can
    // still be on its way: it fired exactly once.
    dm.RegisterNetworkMonitoringCallback(nullptr, nullptr);
    EXPECT_EQ(calls, 1);
}

// Readers often loop on frame calls without a pause. On a lost link a call
// answers 33 only when its timeout has passed, as a read without a frame
// does, so such a loop is paced instead of spinning; closing the session
// ends a read that is waiting.
TEST_F(LinkLoss, FrameReadsOnALostLinkWaitOutTheTimeoutUntilTheSessionCloses) {
    ASSERT_NO_FATAL_FAILURE(open("127.0.79.30", 48766, '1'));
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    DataContainer<uint16_t> depth;
    ASSERT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    camera().stop();
    ASSERT_TRUE(d3test::waitUntil([&] { return calls > 0; }));

    // Only a lower bound: a loaded machine can make the call later, never sooner.
    dm.SetTimeout(300);
    const auto t = std::chrono::steady_clock::now();
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), NETWORK_ERROR);
    using std::chrono::milliseconds;
    EXPECT_GE(std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - t).count(), 300);

    dm.SetTimeout(600000);
    BackgroundRead reader([&] { return dm.GetTofData(&depth, nullptr, nullptr, nullptr); });
    ASSERT_TRUE(d3test::waitUntil([&] { return reader.started(); }));
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
    // Whether the read was already waiting or came just after the close, it
    // ends long before its ten minutes.
    EXPECT_TRUE(d3test::waitUntil([&] { return reader.done(); }));
    const ReturnCode waited = reader.result();
    EXPECT_TRUE(waited == NETWORK_ERROR || waited == NOT_CONNECTED) << waited;
}

// A factory reset reboots the camera: the link drops like any other loss, and
// ReconnectDevice finds the camera again once it is back, with defaults.
TEST_F(LinkLoss, ReconnectAfterFactoryResetRestoresSessionWithDefaults) {
    ASSERT_NO_FATAL_FAILURE(open("127.0.79.10", 48764, '3'));
    ASSERT_EQ(dm.SetFrameRate(7), SUCCESS);
    ASSERT_EQ(dm.SaveConfigureInfo(), SUCCESS);
    ASSERT_EQ(dm.RecoveryDefaultConfigure(), SUCCESS);
    EXPECT_TRUE(d3test::waitUntil([&] { return calls > 0; }));
    EXPECT_EQ(calls, 1);
    int fps = 0;
    EXPECT_EQ(dm.GetFrameRate(fps), NETWORK_ERROR);

    ReturnCode rc = NETWORK_ERROR;
    for (int attempt = 0; attempt < 30 && rc != SUCCESS; ++attempt) rc = dm.ReconnectDevice(1000);
    ASSERT_EQ(rc, SUCCESS);
    EXPECT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_NE(fps, 7);  // the stored configuration went with the reset
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    dm.SetTimeout(3000);  // a first colour frame is slow to render under sanitizers
    DataContainer<uint16_t> depth;
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
}

// After an address change the camera reboots elsewhere: the old address is
// gone and ReconnectDevice must find the camera again by its serial.
TEST_F(LinkLoss, ReconnectFindsCameraAtItsNewAddress) {
    ASSERT_NO_FATAL_FAILURE(open("127.0.79.20", 48765, '1'));
    NetworkMode mode;
    mode.ip = "127.0.79.40";
    mode.netmask = "255.0.0.0";
    mode.isStatic = true;
    ASSERT_EQ(dm.SetNetworkMode(mode), SUCCESS);
    EXPECT_TRUE(d3test::waitUntil([&] { return calls > 0; }));
    EXPECT_EQ(calls, 1);

    ReturnCode rc = NETWORK_ERROR;
    for (int attempt = 0; attempt < 30 && rc != SUCCESS; ++attempt) rc = dm.ReconnectDevice(1000);
    ASSERT_EQ(rc, SUCCESS);
    d3sdk::DeviceDetails details;
    ASSERT_EQ(d3sdk::GetDeviceDetails(details), SUCCESS);
    EXPECT_EQ(details.ip, "127.0.79.40");
    EXPECT_EQ(details.serial, camera().serial());
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
}
