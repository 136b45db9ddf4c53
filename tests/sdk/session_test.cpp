// A whole session against simulated cameras: discovery, identity, every
// parameter, streaming every kind of frame, and the stop/close rules.
#include <algorithm>
#include <chrono>
#include <set>

#include "backgroundread.h"
#include "d3_sdk/Extensions.h"
#include "networkfixture.h"
#include "waituntil.h"

using sdktest::startCameras;

namespace {

class Session : public testing::Test {
protected:
    static void SetUpTestSuite() { cams_ = startCameras("127.0.76.2", 48760, {'3', '0', '4'}).release(); }
    static void TearDownTestSuite() {
        DeviceManager::GetInstance().DisconnectFromDevice();
        delete cams_;
    }
    void SetUp() override {
        dm.SetTimeout(2000);
        dm.DisconnectFromDevice();
    }
    void TearDown() override { dm.DisconnectFromDevice(); }

    static d3sim::SimulatedCameras* cams_;
    DeviceManager& dm = DeviceManager::GetInstance();
};
d3sim::SimulatedCameras* Session::cams_ = nullptr;

}  // namespace

TEST_F(Session, DiscoveryFindsEveryCameraAsSerialColonIp) {
    const auto found = dm.FindDevices();
    std::set<std::string> got(found.begin(), found.end());
    for (int i = 0; i < cams_->size(); ++i)
        EXPECT_TRUE(got.count((*cams_)[i].deviceString())) << (*cams_)[i].deviceString();
    EXPECT_EQ(got.size(), found.size()) << "duplicates in the device list";
}

TEST_F(Session, OpensByListEntryAddressOrSerialAndReportsIdentity) {
    d3sim::CameraServer& cam = (*cams_)[0];
    for (const std::string& name : {cam.deviceString(), cam.address(), cam.serial()}) {
        ASSERT_EQ(dm.InitDevice(name, true), SUCCESS) << name;
        std::string sn, fw, dv;
        EXPECT_EQ(dm.GetDeviceSN(sn), SUCCESS);
        EXPECT_EQ(sn, cam.serial());
        EXPECT_EQ(sn[8], '3');
        EXPECT_EQ(dm.GetVersion(fw, dv), SUCCESS);
        EXPECT_FALSE(fw.empty());
        EXPECT_FALSE(dv.empty());
        EXPECT_EQ(dm.InitDevice(name, true), SUCCESS);  // the open camera again: kept
        EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
    }
    EXPECT_EQ(dm.DisconnectFromDevice(), NOT_CONNECTED);
    EXPECT_EQ(dm.StartStream(), NOT_CONNECTED);
    EXPECT_EQ(dm.InitDevice("127.0.76.99", true), INIT_NETWORK_FAILED);
}

// A viewer that stopped the stream asks for its camera again before starting
// it: the session stays as it is. The other transport needs a new session;
// another camera is refused while one is open.
// Device strings come from users and files too: without ":", empty parts,
// bad addresses, binary, huge. None opens a camera, each is answered with a
// code and its text, and the SDK opens a real camera afterwards.
TEST_F(Session, MalformedDeviceStringsAreRefusedAndTheSdkCarriesOn) {
    const std::string serial = (*cams_)[0].serial();
    const std::string malformed[] = {"",
                                     ":",
                                     "::::",
                                     "no colon at all",
                                     serial + "X",
                                     "127.0.76.250",
                                     ":127.0.76.250",
                                     serial + ":300.1.2.3",
                                     serial + ":127.0.76.2:48601",
                                     "127.0.76",
                                     std::string("D3\0SIM:127.0.76.2", 17),
                                     "\xff\xfe\x80:\x01\x02",
                                     std::string(100000, ':'),
                                     std::string(100000, 'x')};
    dm.SetTimeout(1000);
    for (const std::string& device : malformed) {
        const ReturnCode rc = dm.InitDevice(device, true);
        EXPECT_NE(rc, SUCCESS) << device.substr(0, 40);
        EXPECT_FALSE(std::string(dm.GetReturnCodeDescriptor(rc)).empty());
        int fps = 0;
        EXPECT_NE(dm.GetFrameRate(fps), SUCCESS) << "no camera is open after " << device.substr(0, 40);
    }
    EXPECT_EQ(dm.InitDevice(serial, true), SUCCESS);
}

TEST_F(Session, InitDeviceOnTheOpenCameraKeepsOrReopensItAndRefusesAnother) {
    d3sim::CameraServer& cam = (*cams_)[1];
    d3sim::CameraServer& other = (*cams_)[0];
    const auto logged = [](d3sim::CameraServer& c, const std::string& command, const std::string& argsPart = "") {
        const auto log = c.camera().commandLog();
        return std::count_if(log.begin(), log.end(), [&](const d3sim::LoggedCommand& l) {
            return l.name == command && l.args.find(argsPart) != std::string::npos;
        });
    };
    DataContainer<uint16_t> depth;
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    ASSERT_EQ(dm.StopStream(), SUCCESS);
    cam.camera().clearCommandLog();
    other.camera().clearCommandLog();
    for (const std::string& name : {cam.deviceString(), cam.address(), cam.serial()})
        EXPECT_EQ(dm.InitDevice(name, true), SUCCESS) << name;
    EXPECT_EQ(logged(cam, "OpenSession"), 0);
    EXPECT_EQ(logged(cam, "CloseSession"), 0);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    EXPECT_EQ(dm.InitDevice(cam.deviceString(), true), SUCCESS);  // while streaming, too
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    EXPECT_EQ(logged(cam, "OpenSession"), 0);

    for (const std::string& name : {other.deviceString(), other.address(), other.serial()})
        EXPECT_EQ(dm.InitDevice(name, true), ALREADY_CONNECTED) << name;
    EXPECT_EQ(logged(other, "OpenSession"), 0);

    ASSERT_EQ(dm.InitDevice(cam.serial(), false), SUCCESS);
    EXPECT_EQ(logged(cam, "CloseSession"), 1);
    EXPECT_EQ(logged(cam, "OpenSession", "\"transport\":\"udp\""), 1);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    d3sdk::StreamStats stats;
    ASSERT_EQ(d3sdk::GetStreamStats(stats), SUCCESS);
    EXPECT_TRUE(stats.udp);
    EXPECT_EQ(dm.InitDevice(cam.address(), false), SUCCESS);
    EXPECT_EQ(logged(cam, "OpenSession"), 1);
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
}

TEST_F(Session, ImageInfoAndIntrinsicsFollowTheModel) {
    int w = -1, h = -1;
    bool rgb = true;
    CameraIntrinsicParam k{};
    ASSERT_EQ(dm.InitDevice((*cams_)[2].deviceString(), true), SUCCESS);
    EXPECT_EQ(dm.GetImageInfo(w, h), SUCCESS);
    EXPECT_EQ(w, 1600);
    EXPECT_EQ(h, 1200);
    EXPECT_EQ(dm.GetTofCameraIntrinsicParam(k), SUCCESS);
    EXPECT_NEAR(k.fx, 520, 30);
    EXPECT_NEAR(k.cx, 320, 10);
    EXPECT_NEAR(k.cy, 240, 10);
    dm.DisconnectFromDevice();

    ASSERT_EQ(dm.InitDevice((*cams_)[1].deviceString(), true), SUCCESS);
    EXPECT_EQ(dm.IsRgbDevice(rgb), SUCCESS);
    EXPECT_FALSE(rgb);
    EXPECT_EQ(dm.GetImageInfo(w, h), SUCCESS);
    EXPECT_EQ(w, 0);
    int gain;
    EXPECT_EQ(dm.GetRgbCameraGain(gain), NOT_SUPPORTED);
    DataContainer<RGB888Pixel> colour(480, 640);
    EXPECT_EQ(dm.GetRgbTofData(&colour, nullptr, nullptr, nullptr, nullptr), NOT_SUPPORTED);
}

TEST_F(Session, EveryParameterReadsBackWhatWasSet) {
    ASSERT_EQ(dm.InitDevice((*cams_)[0].deviceString(), true), SUCCESS);
    int v = 0, ms = 0, us = 0;
    bool on = true;
    ExposureMode em;
    TriggerMode tm;
    FrequencyMode fm;
    FilterParam f{};

    EXPECT_EQ(dm.SetFrameRate(15), SUCCESS);
    EXPECT_EQ(dm.GetFrameRate(v), SUCCESS);
    EXPECT_EQ(v, 15);
    EXPECT_EQ(dm.SetFrameRate(99), INVALID_PARAMETER);
    EXPECT_EQ(dm.SetTofCameraExposureTime(300), SUCCESS);
    EXPECT_EQ(dm.GetTofCameraExposureTime(v), SUCCESS);
    EXPECT_EQ(v, 300);
    EXPECT_EQ(dm.GetTofCameraExposureMode(em), SUCCESS);
    EXPECT_EQ(em, MANUAL_EXPOSURE);
    EXPECT_EQ(dm.SetTofCameraAutoExposure(), SUCCESS);
    EXPECT_EQ(dm.GetTofCameraExposureMode(em), SUCCESS);
    EXPECT_EQ(em, AUTO_EXPOSURE);
    EXPECT_EQ(dm.SetHDR(true), SUCCESS);
    EXPECT_EQ(dm.GetHDR(on), SUCCESS);
    EXPECT_TRUE(on);
    EXPECT_EQ(dm.SetHDR(false), SUCCESS);
    EXPECT_EQ(dm.SetIRGMMGain(77), SUCCESS);
    EXPECT_EQ(dm.GetIRGMMGain(v), SUCCESS);
    EXPECT_EQ(v, 77);
    EXPECT_EQ(dm.SetTriggerMode(TRIGGER_MODE_HARDWARE_DELAY), SUCCESS);
    EXPECT_EQ(dm.GetTriggerMode(tm), SUCCESS);
    EXPECT_EQ(tm, TRIGGER_MODE_HARDWARE_DELAY);
    EXPECT_EQ(dm.SetTriggerMode(TriggerMode(7)), TRIGGER_MODE_REFUSED);
    EXPECT_EQ(dm.SetTriggerMode(TRIGGER_MODE_NORMAL), SUCCESS);
    EXPECT_EQ(dm.SetDelayHardTriggerTime(12, 345), SUCCESS);
    EXPECT_EQ(dm.GetDelayHardTriggerTime(ms, us), SUCCESS);
    EXPECT_EQ(ms, 12);
    EXPECT_EQ(us, 345);
    EXPECT_EQ(dm.SetTofFrequencyMode(SINGLE_FREQUENCY), SUCCESS);
    EXPECT_EQ(dm.GetTofFrequencyMode(fm), SUCCESS);
    EXPECT_EQ(fm, SINGLE_FREQUENCY);
    EXPECT_EQ(dm.SetTofFrequencyMode(DUAL_FREQUENCY), SUCCESS);
    EXPECT_EQ(dm.SetSingleIntegralMode(), SUCCESS);

    // Each filter: full setter, then the switch-only setter keeps the values.
    using Set = ReturnCode (DeviceManager::*)(FilterParam);
    using Switch = ReturnCode (DeviceManager::*)(bool);
    using Get = ReturnCode (DeviceManager::*)(FilterParam&);
    const struct {
        Set set;
        Switch sw;
        Get get;
        float value;
    } filters[] = {
        {&DeviceManager::SetTimeMedianFilter, &DeviceManager::SetTimeMedianFilter, &DeviceManager::GetTimeMedianFilter,
         5},
        {&DeviceManager::SetFlyPixeFilter, &DeviceManager::SetFlyPixeFilter, &DeviceManager::GetFlyPixeFilter, 40},
        {&DeviceManager::SetConfidenceFilter, &DeviceManager::SetConfidenceFilter, &DeviceManager::GetConfidenceFilter,
         12},
        {&DeviceManager::SetSpatialFilter, &DeviceManager::SetSpatialFilter, &DeviceManager::GetSpatialFilter, 7}};
    for (const auto& c : filters) {
        EXPECT_EQ((dm.*c.set)(FilterParam{true, c.value, 100.0f}), SUCCESS);
        EXPECT_EQ((dm.*c.get)(f), SUCCESS);
        EXPECT_TRUE(f.enable);
        EXPECT_FLOAT_EQ(f.value, c.value);
        EXPECT_FLOAT_EQ(f.value2, 100.0f);
        EXPECT_EQ((dm.*c.sw)(false), SUCCESS);
        EXPECT_EQ((dm.*c.get)(f), SUCCESS);
        EXPECT_FALSE(f.enable);
        EXPECT_FLOAT_EQ(f.value, c.value);
    }

    EXPECT_EQ(dm.SetRgbCameraExposureMode(MANUAL_EXPOSURE), SUCCESS);
    EXPECT_EQ(dm.GetRgbCameraExposureMode(em), SUCCESS);
    EXPECT_EQ(em, MANUAL_EXPOSURE);
    EXPECT_EQ(dm.SetRgbCameraExposureTime(500), SUCCESS);
    EXPECT_EQ(dm.GetRgbCameraExposureTime(v), SUCCESS);
    EXPECT_EQ(v, 500);
    EXPECT_EQ(dm.SetRgbCameraGain(64), SUCCESS);
    EXPECT_EQ(dm.GetRgbCameraGain(v), SUCCESS);
    EXPECT_EQ(v, 64);
    EXPECT_EQ(dm.SetRgbCameraContrastRatio(250), SUCCESS);
    EXPECT_EQ(dm.GetRgbCameraContrastRatio(v), SUCCESS);
    EXPECT_EQ(v, 250);
    EXPECT_EQ(dm.SetRgbCameraContrastRatio(50), INVALID_PARAMETER);
}

TEST_F(Session, StreamsEveryKindOfFrameAtTheSizesReadersExpect) {
    ASSERT_EQ(dm.InitDevice((*cams_)[0].deviceString(), true), SUCCESS);
    EXPECT_EQ(dm.StopStream(), NOT_STREAMING);
    DataContainer<uint16_t> depth(480, 640), amplitude(480, 640), depthToRgb(480, 640);
    DataContainer<uint8_t> ir(480, 640);
    DataContainer<PointXYZ> points(480, 640);
    DataContainer<RGB888Pixel> rgb(480, 640), aligned(480, 640), rgbToDepth(480, 640);
    DataContainer<PointXYZRGBI> rgbPoints(480, 640);
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), NOT_STREAMING);
    ASSERT_EQ(dm.StartStream(), SUCCESS);

    ASSERT_EQ(dm.GetTofData(&depth, &points, &ir, &amplitude), SUCCESS);
    EXPECT_EQ(depth.cols(), 640u);
    EXPECT_EQ(depth.rows(), 480u);
    EXPECT_EQ(ir.cols(), 640u);
    EXPECT_EQ(amplitude.rows(), 480u);
    EXPECT_GT(points.getNumberSize(), 640u * 480u / 2);
    EXPECT_LE(points.getNumberSize(), 640u * 480u);

    ASSERT_EQ(dm.GetRgbTofData(&rgb, &depth, nullptr, &ir, nullptr), SUCCESS);
    EXPECT_EQ(rgb.cols(), 1920u);
    EXPECT_EQ(rgb.rows(), 1080u);

    EXPECT_EQ(dm.GetRgbToDepthData(aligned, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), NOT_SUPPORTED);
    EXPECT_EQ(dm.ConvertRgbToDepthEnable(true), SUCCESS);
    EXPECT_EQ(dm.ConvertDepthToRgbEnable(true), SUCCESS);
    ASSERT_EQ(dm.GetRgbToDepthData(aligned, &rgbPoints, &points, &depth, &rgbToDepth, &ir, nullptr), SUCCESS);
    EXPECT_EQ(aligned.cols(), 640u);
    EXPECT_EQ(aligned.rows(), 480u);
    EXPECT_EQ(rgbPoints.cols(), 640u);
    EXPECT_EQ(rgbToDepth.rows(), 480u);
    EXPECT_GT(rgbPoints.getNumberSize(), 0u);

    ASSERT_EQ(dm.GetDepthToRgbData(depthToRgb, &rgbPoints, nullptr, &rgb, &depth, &ir, nullptr), SUCCESS);
    EXPECT_EQ(depthToRgb.cols(), 1920u);
    EXPECT_EQ(depthToRgb.rows(), 1080u);
    EXPECT_EQ(rgbPoints.cols(), 1920u);
    EXPECT_EQ(rgbPoints.rows(), 1080u);
    EXPECT_GT(rgbPoints.getNumberSize(), 1920u * 1080u / 3);

    // Steady state: the same sizes again reuse the storage.
    const uint16_t* before = depthToRgb.data();
    ASSERT_EQ(dm.GetDepthToRgbData(depthToRgb, &rgbPoints, nullptr, &rgb, &depth, &ir, nullptr), SUCCESS);
    EXPECT_EQ(depthToRgb.data(), before);

    EXPECT_EQ(dm.StopStream(), SUCCESS);
    EXPECT_EQ(dm.StopStream(), NOT_STREAMING);
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
}

TEST_F(Session, FrameCallsAreBoundedByTheTimeoutAndDoNotBlockControl) {
    ASSERT_EQ(dm.InitDevice((*cams_)[0].deviceString(), true), SUCCESS);
    ASSERT_EQ(dm.SetTriggerMode(TRIGGER_MODE_SOFTWARE), SUCCESS);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    dm.SetTimeout(600);
    DataContainer<uint16_t> depth;
    // Frames made before the mode took effect may still come; then, without
    // a trigger, none: the call ends with its timeout, not before (a loaded
    // machine can only make it later).
    ReturnCode rc = SUCCESS;
    auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < 50 && rc == SUCCESS; ++i) {
        t0 = std::chrono::steady_clock::now();
        rc = dm.GetTofData(&depth, nullptr, nullptr, nullptr);
    }
    EXPECT_EQ(rc, TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(550));

    // A reader waiting for a frame does not hold control calls back: they
    // are answered while it still waits, and the trigger they send is what
    // ends its wait.
    dm.SetTimeout(60000);
    BackgroundRead reader([&] { return dm.GetTofData(&depth, nullptr, nullptr, nullptr); });
    ASSERT_TRUE(d3test::waitUntil([&] { return reader.started(); }));
    int fps = 0;
    EXPECT_EQ(dm.GetFrameRate(fps), SUCCESS);
    EXPECT_FALSE(reader.done()) << "the frame call ended before a frame was triggered";
    EXPECT_EQ(dm.SoftTrigger(), SUCCESS);
    EXPECT_EQ(reader.result(), SUCCESS);

    // One trigger, one frame, delivered once.
    dm.SetTimeout(2000);
    EXPECT_EQ(dm.SoftTrigger(), SUCCESS);
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    dm.SetTimeout(400);
    EXPECT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), TIMEOUT);
    dm.SetTimeout(2000);
    EXPECT_EQ(dm.SetTriggerMode(TRIGGER_MODE_NORMAL), SUCCESS);
    EXPECT_EQ(dm.StopStream(), SUCCESS);
}
