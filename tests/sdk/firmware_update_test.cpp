// UpdateFirmware against simulated cameras: a whole update beside an open
// session, and the code and reason of every way one fails. Short timeouts
// throughout. Address block 127.0.112.x, discovery port 48812.
#include <gtest/gtest.h>

#include <cstdlib>

#include "SimulatedCameras.h"
#include "d3_protocol/Firmware.h"
#include "d3_sdk/DeviceManager.h"
#include "d3_sdk/Extensions.h"
#include "firmwarecameras.h"

using namespace d3sdk;

namespace {

constexpr uint16_t kDiscoveryPort = 48812;
constexpr const char* kWord = "qm-tbrwkex";

std::vector<uint8_t> makeImage(const std::string& version = "1.5.0", char model = '3', uint32_t payload = 200000) {
    std::vector<uint8_t> img;
    std::string error;
    EXPECT_TRUE(d3proto::makeFirmwareImage(version, model, payload, img, error)) << error;
    return img;
}

FirmwareUpdateOptions quick() {
    FirmwareUpdateOptions o;
    o.accessWord = kWord;
    o.searchMs = 600;
    o.replyTimeoutMs = 1000;
    o.flashTimeoutMs = 2000;
    o.rebootTimeoutMs = 3000;
    return o;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

bool logged(d3sim::CameraServer& cam, const std::string& name) {
    for (const auto& e : cam.camera().commandLog())
        if (e.name == name) return true;
    return false;
}

using d3test::waitForUpdateEnd;

class FirmwareUpdateTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string error;
        cameras = d3test::startFirmwareCameras("127.0.112.2", kDiscoveryPort, error).release();
        ASSERT_TRUE(cameras) << error;
    }
    static void TearDownTestSuite() {
        delete cameras;
        cameras = nullptr;
    }
    void TearDown() override {
        for (int i = 0; i < cameras->size(); ++i) {
            (*cameras)[i].clearFirmwareFaults();
            (*cameras)[i].waitUntilUp(3000);
            (*cameras)[i].camera().clearCommandLog();
        }
    }

    static d3sim::SimulatedCameras* cameras;
};

d3sim::SimulatedCameras* FirmwareUpdateTest::cameras = nullptr;

}  // namespace

TEST_F(FirmwareUpdateTest, UpdatesACameraAnApplicationHoldsOpenAndFollowsItsReboot) {
    d3sim::CameraServer& cam = (*cameras)[0];
    DeviceManager& dm = DeviceManager::GetInstance();
    ASSERT_EQ(dm.InitDevice(cam.deviceString()), SUCCESS);

    const auto img = makeImage("1.5.0");
    std::vector<FirmwareProgress> seen;
    FirmwareUpdateOptions o = quick();
    o.progress = [&seen](const FirmwareProgress& p) { seen.push_back(p); };
    FirmwareUpdateResult r;
    ASSERT_EQ(UpdateFirmware(cam.deviceString(), img, o, r), SUCCESS) << r.reason;
    EXPECT_EQ(r.code, SUCCESS);
    EXPECT_EQ(r.step, FirmwareStep::Done);
    EXPECT_TRUE(r.reason.empty());
    EXPECT_EQ(r.serial, cam.serial());
    EXPECT_EQ(r.imageVersion, "1.5.0");
    EXPECT_EQ(r.versionBefore, "1.4.2");
    EXPECT_EQ(r.versionAfter, "1.5.0");
    EXPECT_TRUE(r.written);
    EXPECT_TRUE(r.rebooted);

    // Steps in order, the transfer counted up to the whole image.
    ASSERT_FALSE(seen.empty());
    for (size_t i = 1; i < seen.size(); ++i) {
        EXPECT_GE(int(seen[i].step), int(seen[i - 1].step));
        if (seen[i].step == FirmwareStep::Sending && seen[i - 1].step == FirmwareStep::Sending) {
            EXPECT_GT(seen[i].bytesSent, seen[i - 1].bytesSent);
        }
    }
    uint64_t sent = 0;
    for (const auto& p : seen)
        if (p.step == FirmwareStep::Sending) sent = p.bytesSent;
    EXPECT_EQ(sent, img.size());
    EXPECT_TRUE(contains(seen.back().text, "camera back with firmware 1.5.0")) << seen.back().text;

    // The application's session went with the reboot; a new one sees the new firmware.
    std::string fw, dv;
    dm.DisconnectFromDevice();
    ASSERT_EQ(dm.InitDevice(cam.serial()), SUCCESS);
    ASSERT_EQ(dm.GetVersion(fw, dv), SUCCESS);
    EXPECT_EQ(fw, "1.5.0");
    dm.DisconnectFromDevice();
}

TEST_F(FirmwareUpdateTest, WithoutWriteOrRebootTheCameraOnlyChecksTheImage) {
    d3sim::CameraServer& cam = (*cameras)[1];
    const std::string before = cam.camera().firmwareVersion();
    FirmwareUpdateOptions o = quick();
    o.write = false;
    o.reboot = false;
    FirmwareUpdateResult r;
    ASSERT_EQ(UpdateFirmware(cam.address(), makeImage("9.9.9"), o, r), SUCCESS) << r.reason;
    EXPECT_FALSE(r.written);
    EXPECT_FALSE(r.rebooted);
    EXPECT_EQ(cam.camera().installedFirmware(), before);
    EXPECT_EQ(cam.stats().reboots, 0u);
}

TEST_F(FirmwareUpdateTest, FailuresBeforeTheTransferSayWhatStoppedThem) {
    d3sim::CameraServer& cam = (*cameras)[1];
    FirmwareUpdateResult r;

    // A broken image never reaches the camera.
    auto broken = makeImage();
    broken[100] ^= 1;
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), broken, quick(), r), INVALID_PARAMETER);
    EXPECT_EQ(r.step, FirmwareStep::Checking);
    EXPECT_TRUE(contains(r.reason, "payload is damaged")) << r.reason;
    EXPECT_FALSE(logged(cam, "FirmwareBegin"));

    FirmwareUpdateOptions wrongWord = quick();
    wrongWord.accessWord = "guess";
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), makeImage(), wrongWord, r), ACCESS_DENIED);
    EXPECT_EQ(r.step, FirmwareStep::Beginning);
    EXPECT_TRUE(contains(r.reason, "access word")) << r.reason;

    for (const std::string& nobody :
         {std::string("D3SIM-003999999:127.0.112.200"), std::string("D3SIM-003999999"), std::string("127.0.112.201")}) {
        EXPECT_EQ(UpdateFirmware(nobody, makeImage(), quick(), r), DEVICE_NOT_FOUND) << nobody;
        EXPECT_EQ(r.step, FirmwareStep::Locating);
        EXPECT_TRUE(contains(r.reason, nobody)) << r.reason;
    }

    // Streaming, then busy with another client's update.
    DeviceManager& dm = DeviceManager::GetInstance();
    ASSERT_EQ(dm.InitDevice(cam.deviceString()), SUCCESS);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), makeImage(), quick(), r), REFUSED_WHILE_STREAMING);
    EXPECT_TRUE(contains(r.reason, "stop the stream")) << r.reason;
    dm.StopStream();
    dm.DisconnectFromDevice();
    d3test::RawClient other;
    ASSERT_TRUE(other.connect(cam.address(), cam.config().controlPort));
    ASSERT_EQ(other.call(d3proto::Command::FirmwareBegin, {{"accessWord", kWord}, {"size", 1000}}).status(),
              d3proto::status::kSuccess);
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), makeImage(), quick(), r), DEVICE_BUSY);
    EXPECT_TRUE(contains(r.reason, "another firmware update")) << r.reason;
}

TEST_F(FirmwareUpdateTest, FailuresDuringAndAfterTheTransferSayWhatStoppedThem) {
    d3sim::CameraServer& cam = (*cameras)[2];
    const auto img = makeImage("1.6.0", '3', 300000);  // 64 KiB chunks: 65536, 131072, ...
    FirmwareUpdateResult r;

    cam.loseFirmwareUpdateAt(40);
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), img, quick(), r), NETWORK_ERROR);
    EXPECT_EQ(r.step, FirmwareStep::Sending);
    EXPECT_TRUE(contains(r.reason, "lost after 65536 of 300064 bytes")) << r.reason;

    cam.stallFirmwareUpdateAt(40);
    FirmwareUpdateOptions o = quick();
    o.replyTimeoutMs = 300;
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), img, o, r), TIMEOUT);
    EXPECT_EQ(r.step, FirmwareStep::Sending);
    EXPECT_TRUE(contains(r.reason, "stopped answering after 65536 of 300064 bytes")) << r.reason;
    EXPECT_TRUE(contains(r.reason, "within 300 ms")) << r.reason;
    ASSERT_TRUE(waitForUpdateEnd(cam));

    EXPECT_EQ(UpdateFirmware(cam.deviceString(), makeImage("1.6.0", '1'), quick(), r), FIRMWARE_REJECTED);
    EXPECT_EQ(r.step, FirmwareStep::Verifying);
    EXPECT_TRUE(contains(r.reason, "the image is for model 1")) << r.reason;

    cam.failNextFlashWrite();
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), img, quick(), r), FIRMWARE_WRITE_FAILED);
    EXPECT_TRUE(contains(r.reason, "verification after writing failed")) << r.reason;

    FirmwareUpdateOptions noErase = quick();
    noErase.erase = false;
    EXPECT_EQ(UpdateFirmware(cam.deviceString(), img, noErase, r), FLASH_NOT_ERASED);
    EXPECT_TRUE(contains(r.reason, "erase")) << r.reason;

    EXPECT_EQ(cam.camera().installedFirmware(), "1.4.2");
    EXPECT_EQ(cam.stats().reboots, 0u);
    // The new codes have texts of their own.
    for (ReturnCode code : {FIRMWARE_WRITE_FAILED, FLASH_NOT_ERASED})
        EXPECT_FALSE(contains(DeviceManager::GetInstance().GetReturnCodeDescriptor(code), "Unknown")) << code;
}

TEST_F(FirmwareUpdateTest, ACameraThatDoesNotReturnInTimeIsATimeout) {
    d3sim::ServerConfig cfg;
    cfg.address = "127.0.112.20";
    cfg.discoveryPort = kDiscoveryPort;
    cfg.flashEraseMs = 0;
    cfg.flashWriteMs = 0;
    cfg.rebootMs = 60000;  // gone for longer than the test lasts
    d3sim::CameraServer slow(cfg);
    ASSERT_TRUE(slow.start()) << slow.lastError();
    FirmwareUpdateOptions o = quick();
    o.rebootTimeoutMs = 400;
    FirmwareUpdateResult r;
    EXPECT_EQ(UpdateFirmware(slow.deviceString(), makeImage(), o, r), TIMEOUT);
    EXPECT_EQ(r.step, FirmwareStep::Rebooting);
    EXPECT_TRUE(r.written);
    EXPECT_FALSE(r.rebooted);
    EXPECT_TRUE(contains(r.reason, "did not answer a search within 400 ms")) << r.reason;
}
