// The camera's command rules without any sockets: ranges, refusal codes,
// model differences, the command log and the non-volatile store.
#include "Camera.h"

#include <gtest/gtest.h>

#include <filesystem>

using d3proto::Command;
using d3proto::Json;
using namespace d3sim;
namespace st = d3proto::status;

namespace {

struct TempDir {
    std::filesystem::path path;
    TempDir() {
        path = std::filesystem::temp_directory_path() /
               ("d3cam-" + std::to_string(::getpid()) + "-" + std::to_string(counter()++));
        std::filesystem::create_directories(path);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    static int& counter() {
        static int c = 0;
        return c;
    }
};

Camera makeCamera(char model, const std::string& dir = "", const std::string& ip = "127.0.0.2") {
    NetworkSettings net;
    net.ip = ip;
    return Camera(Camera::makeIdentity(model, ip, ""), net, dir, 7);
}

int32_t run(Camera& cam, Command cmd, const Json& args = Json::object()) {
    Json reply;
    AfterReply after;
    return cam.execute(cmd, args, reply, after);
}

Json get(Camera& cam, Command cmd) {
    Json reply;
    AfterReply after;
    EXPECT_EQ(cam.execute(cmd, Json::object(), reply, after), st::kSuccess);
    return reply;
}

}  // namespace

TEST(CameraIdentity, SerialCarriesTheModelDigitAndDiffersPerAddress) {
    const auto a = Camera::makeIdentity('3', "127.0.0.2", "");
    const auto b = Camera::makeIdentity('3', "127.0.0.3", "");
    const auto c = Camera::makeIdentity('1', "127.0.0.2", "");
    EXPECT_EQ(a.serial[8], '3');
    EXPECT_EQ(c.serial[8], '1');
    EXPECT_NE(a.serial, b.serial);
    EXPECT_NE(a.mac, b.mac);
    EXPECT_EQ(Camera::makeIdentity('2', "127.0.0.9", "MYSERIAL0").serial, "MYSERIAL0");
}

TEST(CameraCommands, RangesAndRefusalCodes) {
    Camera cam = makeCamera('3');
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", 0}}), st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", 26}}), st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", "10"}}), st::kProtocolError);
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", 10}}), st::kSuccess);
    EXPECT_EQ(get(cam, Command::GetFrameRate)["value"], 10);
    EXPECT_EQ(run(cam, Command::SetIrGamma, {{"value", 256}}), st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetTriggerMode, {{"value", 4}}), st::kTriggerModeRefused);
    EXPECT_EQ(run(cam, Command::SetTriggerMode, {{"value", -1}}), st::kTriggerModeRefused);
    EXPECT_EQ(run(cam, Command::SetTriggerMode, {{"value", 3}}), st::kSuccess);
    EXPECT_EQ(run(cam, Command::SetHardTriggerDelay, {{"ms", 5}, {"us", 1000}}), st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetHardTriggerDelay, {{"ms", 5}, {"us", 250}}), st::kSuccess);
    EXPECT_EQ(get(cam, Command::GetHardTriggerDelay), (Json{{"ms", 5}, {"us", 250}}));
    EXPECT_EQ(run(cam, Command::SetFrequencyMode, {{"value", 2}}), st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetRgbGain, {{"value", 1024}}), st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetRgbContrast, {{"value", 99}}), st::kInvalidParameter);
    // A refused value leaves the setting as it was.
    EXPECT_EQ(get(cam, Command::GetTriggerMode)["value"], 3);
}

TEST(CameraCommands, ModelsWithoutColourOrTriggerRefuseThem) {
    Camera mono = makeCamera('1');
    EXPECT_EQ(run(mono, Command::SetRgbExposureTime, {{"value", 100}}), st::kNotSupported);
    EXPECT_EQ(run(mono, Command::GetRgbGain), st::kNotSupported);
    EXPECT_EQ(run(mono, Command::GetExtrinsics), st::kNotSupported);
    EXPECT_EQ(get(mono, Command::GetImageInfo)["rgb"], false);
    EXPECT_EQ(run(mono, Command::SetTriggerMode, {{"value", 1}}), st::kSuccess);

    Camera basic = makeCamera('0');
    EXPECT_EQ(run(basic, Command::SetTriggerMode, {{"value", 1}}), st::kTriggerModeRefused);
    EXPECT_EQ(run(basic, Command::SetTriggerMode, {{"value", 0}}), st::kSuccess);

    Camera rgb = makeCamera('4');
    const Json info = get(rgb, Command::GetImageInfo);
    EXPECT_EQ(info["rgbWidth"], 1600);
    EXPECT_EQ(info["rgbHeight"], 1200);
}

TEST(CameraCommands, FrameRateCapsExposureAndExposureSwitchesToManual) {
    Camera cam = makeCamera('3');
    ASSERT_EQ(run(cam, Command::SetTofAutoExposure), st::kSuccess);
    EXPECT_EQ(get(cam, Command::GetTofExposureMode)["value"], 0);
    ASSERT_EQ(run(cam, Command::SetFrameRate, {{"value", 25}}), st::kSuccess);
    const int limit = exposureLimitForFps(25).tofMaxUs;
    ASSERT_EQ(run(cam, Command::SetTofExposureTime, {{"value", limit + 5000}}), st::kSuccess);
    EXPECT_EQ(get(cam, Command::GetTofExposureTime)["value"], limit);
    EXPECT_EQ(get(cam, Command::GetTofExposureMode)["value"], 1);
    EXPECT_EQ(run(cam, Command::SetTofExposureTime, {{"value", 0}}), st::kInvalidParameter);

    // Raising the rate later lowers an exposure that no longer fits.
    ASSERT_EQ(run(cam, Command::SetFrameRate, {{"value", 1}}), st::kSuccess);
    const int longLimit = exposureLimitForFps(1).tofMaxUs;
    ASSERT_EQ(run(cam, Command::SetTofExposureTime, {{"value", longLimit}}), st::kSuccess);
    ASSERT_EQ(run(cam, Command::SetFrameRate, {{"value", 25}}), st::kSuccess);
    EXPECT_LE(cam.settings().tofExposureUs, limit);
    EXPECT_LE(cam.settings().rgbExposureUs, exposureLimitForFps(25).rgbMaxUs);
}

TEST(CameraCommands, FiltersKeepValue2AndTheBoolFormKeepsValues) {
    Camera cam = makeCamera('1');
    ASSERT_EQ(run(cam, Command::SetSpatialFilter, {{"enable", true}, {"value", 5}, {"value2", 100.0}}), st::kSuccess);
    ASSERT_EQ(run(cam, Command::SetSpatialFilter, {{"enable", false}}), st::kSuccess);
    const Json f = get(cam, Command::GetSpatialFilter);
    EXPECT_EQ(f["enable"], false);
    EXPECT_FLOAT_EQ(f["value"].get<float>(), 5.0f);
    EXPECT_FLOAT_EQ(f["value2"].get<float>(), 100.0f);
    EXPECT_EQ(run(cam, Command::SetConfidenceFilter, {{"enable", true}, {"value", -1}, {"value2", 1}}),
              st::kInvalidParameter);
    EXPECT_EQ(run(cam, Command::SetFlyPixelFilter, {{"enable", true}, {"value", 1e9}, {"value2", 1}}),
              st::kInvalidParameter);
}

TEST(CameraCommands, StreamStateAndSoftTrigger) {
    Camera cam = makeCamera('1');
    EXPECT_EQ(run(cam, Command::StopStream), st::kNotStreaming);
    EXPECT_EQ(run(cam, Command::StartStream), st::kSuccess);
    EXPECT_EQ(run(cam, Command::StartStream), st::kSuccess);
    EXPECT_EQ(run(cam, Command::SoftTrigger), st::kNotSupported);  // free-running
    ASSERT_EQ(run(cam, Command::SetTriggerMode, {{"value", 1}}), st::kSuccess);
    EXPECT_EQ(run(cam, Command::SoftTrigger), st::kSuccess);
    EXPECT_EQ(run(cam, Command::StopStream), st::kSuccess);
    EXPECT_EQ(run(cam, Command::StopStream), st::kNotStreaming);
}

TEST(CameraCommands, LogRecordsNameArgumentsAndResultInOrder) {
    Camera cam = makeCamera('3');
    run(cam, Command::SetFrameRate, {{"value", 15}});
    run(cam, Command::SetIrGamma, {{"value", 999}});
    run(cam, Command::StopStream);
    const auto log = cam.commandLog();
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log[0].name, "SetFrameRate");
    EXPECT_EQ(log[0].args, R"({"value":15})");
    EXPECT_EQ(log[0].status, st::kSuccess);
    EXPECT_EQ(log[1].name, "SetIrGamma");
    EXPECT_EQ(log[1].status, st::kInvalidParameter);
    EXPECT_EQ(log[2].name, "StopStream");
    EXPECT_EQ(log[2].status, st::kNotStreaming);
    EXPECT_LE(log[0].time, log[2].time);
    cam.clearCommandLog();
    EXPECT_TRUE(cam.commandLog().empty());
}

TEST(CameraCommands, InjectedFailureHitsOnlyTheNamedCommandOnceWithoutActing) {
    Camera cam = makeCamera('3');
    cam.failNext("SetFrameRate", 39);
    EXPECT_EQ(run(cam, Command::SetIrGamma, {{"value", 5}}), st::kSuccess);  // another command passes
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", 7}}), 39);
    EXPECT_NE(cam.settings().frameRate, 7);
    EXPECT_EQ(cam.commandLog().back().status, 39);
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", 7}}), st::kSuccess);  // only once
    EXPECT_EQ(cam.settings().frameRate, 7);
    cam.failNext("", st::kBusy);
    EXPECT_EQ(run(cam, Command::SetIrGamma, {{"value", 6}}), st::kBusy);  // any command
}

// Fast mode is entered with single integration and left by any HDR command;
// while in it the camera reports exposure 0, which is how a client spots it.
TEST(CameraCommands, SingleIntegrationReportsZeroExposureUntilAnHdrCommand) {
    Camera cam = makeCamera('3');
    run(cam, Command::SetTofExposureTime, {{"value", 800}});
    run(cam, Command::SetHdr, {{"value", true}});
    run(cam, Command::SetSingleIntegralMode);
    EXPECT_FALSE(cam.settings().hdr);
    EXPECT_EQ(get(cam, Command::GetTofExposureTime)["value"], 0);
    run(cam, Command::SetHdr, {{"value", true}});
    run(cam, Command::SetHdr, {{"value", false}});
    EXPECT_FALSE(cam.settings().singleIntegral);
    EXPECT_EQ(get(cam, Command::GetTofExposureTime)["value"], 800);
}

TEST(CameraStore, SavedConfigurationSurvivesARestartAndDeleteRestoresDefaults) {
    TempDir dir;
    const CameraSettings defaults;
    {
        Camera cam = makeCamera('3', dir.path.string());
        run(cam, Command::SetFrameRate, {{"value", 12}});
        run(cam, Command::SetHdr, {{"value", true}});
        run(cam, Command::SetTimeMedianFilter, {{"enable", true}, {"value", 2}, {"value2", 100}});
        run(cam, Command::SetRgbGain, {{"value", 300}});
        ASSERT_EQ(run(cam, Command::SaveConfig), st::kSuccess);
        run(cam, Command::SetFrameRate, {{"value", 3}});  // not saved
    }
    Camera again = makeCamera('3', dir.path.string());
    EXPECT_TRUE(std::filesystem::exists(dir.path / again.identity().serial / "config.json"));
    EXPECT_TRUE(std::filesystem::exists(dir.path / again.identity().serial / "identity.json"));
    EXPECT_EQ(again.settings().frameRate, 12);
    EXPECT_TRUE(again.settings().hdr);
    EXPECT_TRUE(again.settings().timeMedian.enable);
    EXPECT_EQ(again.settings().rgbGain, 300);

    Json reply;
    AfterReply after;
    ASSERT_EQ(again.execute(Command::DeleteConfig, Json::object(), reply, after), st::kSuccess);
    EXPECT_EQ(after, AfterReply::Reboot);
    again.reboot();
    EXPECT_EQ(again.settings().frameRate, defaults.frameRate);
    EXPECT_FALSE(again.settings().hdr);
}

TEST(CameraStore, NetworkModeIsValidatedAndAppliedOnReboot) {
    TempDir dir;
    Camera cam = makeCamera('1', dir.path.string(), "127.0.5.2");
    Json reply;
    AfterReply after;
    auto net = [](const char* ip) {
        return Json{{"ip", ip}, {"netmask", "255.0.0.0"}, {"gateway", ""}, {"dhcp", false}};
    };
    EXPECT_EQ(cam.execute(Command::SetNetworkMode, net("192.168.1.10"), reply, after), st::kInvalidParameter);
    EXPECT_EQ(cam.execute(Command::SetNetworkMode, net("127.0.5"), reply, after), st::kInvalidParameter);
    EXPECT_EQ(cam.execute(Command::SetNetworkMode, net("127.255.255.255"), reply, after), st::kInvalidParameter);
    EXPECT_EQ(after, AfterReply::Nothing);
    ASSERT_EQ(cam.execute(Command::SetNetworkMode, net("127.0.5.40"), reply, after), st::kSuccess);
    EXPECT_EQ(after, AfterReply::Reboot);
    EXPECT_EQ(cam.network().ip, "127.0.5.2");  // takes effect at the reboot
    cam.reboot();
    EXPECT_EQ(cam.network().ip, "127.0.5.40");
    // The stored address also wins over the start address of a new process.
    Camera later = makeCamera('1', dir.path.string(), "127.0.5.2");
    EXPECT_EQ(later.network().ip, "127.0.5.40");
    EXPECT_EQ(later.deviceInfo(1, 2).ip, "127.0.5.40");
}
