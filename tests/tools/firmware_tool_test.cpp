// firmwareUpdateTool-v1.0.3 as the viewer runs it: a child process against
// simulated cameras in this program. Success prints the marker; each failure
// its exit code and reason, and never the marker. Short timeouts throughout.
// Address block 127.0.113.x, discovery port 48813.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "SimulatedCameras.h"
#include "childprocess.h"
#include "d3_protocol/Firmware.h"
#include "firmwarecameras.h"

namespace fs = std::filesystem;
using tooltest::ChildResult;
using tooltest::runChild;

namespace {

constexpr uint16_t kDiscoveryPort = 48813;
constexpr const char* kMarker = "update successed!";
constexpr const char* kWord = "qm-tbrwkex";

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

using d3test::waitForUpdateEnd;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

class FirmwareToolTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string error;
        cameras = d3test::startFirmwareCameras("127.0.113.2", kDiscoveryPort, error).release();
        ASSERT_TRUE(cameras) << error;
        folder = new fs::path(fs::temp_directory_path() / ("d3fwtool-" + std::to_string(::getpid())));
        fs::create_directories(*folder);
    }
    static void TearDownTestSuite() {
        delete cameras;
        fs::remove_all(*folder);
        delete folder;
    }

    // Writes an image into the test's folder and returns its path.
    static std::string imageFile(const std::string& name, const std::string& version, char model,
                                 uint32_t payload = 300000,
                                 const std::function<void(std::vector<uint8_t>&)>& edit = {}) {
        std::vector<uint8_t> img;
        std::string error;
        EXPECT_TRUE(d3proto::makeFirmwareImage(version, model, payload, img, error)) << error;
        if (edit) edit(img);
        const fs::path p = *folder / name;
        std::ofstream(p, std::ios::binary)
            .write(reinterpret_cast<const char*>(img.data()), std::streamsize(img.size()));
        return p.string();
    }

    static ChildResult tool(const std::vector<std::string>& args) { return runChild(FIRMWARE_TOOL, args); }

    static d3sim::SimulatedCameras* cameras;
    static fs::path* folder;
};

d3sim::SimulatedCameras* FirmwareToolTest::cameras = nullptr;
fs::path* FirmwareToolTest::folder = nullptr;

}  // namespace

TEST_F(FirmwareToolTest, TheViewersCommandLineUpdatesTheCameraAndSaysSo) {
    d3sim::CameraServer& cam = (*cameras)[0];
    const std::string file = imageFile("good.bin", "1.5.0", '3', d3proto::kDefaultFirmwarePayload);
    // Exactly as the viewer starts it: by a relative name, from the folder it lives in.
    const fs::path tool(FIRMWARE_TOOL);
    const ChildResult r =
        runChild("./" + tool.filename().string(), {"-f", file, "-h", cam.deviceString(), "-p", kWord, "-e", "-w", "-r"},
                 tool.parent_path().string());
    ASSERT_FALSE(r.timedOut);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const auto out = lines(r.out);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out.back(), kMarker);
    int sending = 0;
    for (const std::string& l : out) sending += l.rfind("sending ", 0) == 0;
    EXPECT_GE(sending, 2);
    EXPECT_LE(sending, 21);  // at most one line per 5 %
    const std::string total = std::to_string(d3proto::kFirmwareHeaderSize + d3proto::kDefaultFirmwarePayload);
    EXPECT_TRUE(contains(r.out, "sending 100% (" + total + "/" + total + " bytes)")) << r.out;
    EXPECT_TRUE(contains(r.out, "found " + cam.serial() + " at " + cam.address() + ", firmware 1.4.2")) << r.out;
    EXPECT_TRUE(contains(r.out, "camera back with firmware 1.5.0\n" + std::string(kMarker))) << r.out;
    EXPECT_EQ(cam.camera().firmwareVersion(), "1.5.0");
    std::printf("an update of a %s-byte image took %.2f s end to end\n", total.c_str(), r.seconds);
}

TEST_F(FirmwareToolTest, EveryFailureHasItsExitCodeAndReasonAndNoMarker) {
    d3sim::CameraServer& cam = (*cameras)[1];
    const std::string good = imageFile("fw.bin", "1.6.0", '3');
    const std::string otherModel = imageFile("model1.bin", "1.6.0", '1');
    const std::string damaged = imageFile("damaged.bin", "1.6.0", '3', 300000, [](auto& i) { i[9000] ^= 4; });
    const std::string cutShort = imageFile("cut.bin", "1.6.0", '3', 300000, [](auto& i) { i.resize(200000); });
    const std::string headerOnly = imageFile("header.bin", "1.6.0", '3', 300000, [](auto& i) { i.resize(40); });
    const std::string empty = imageFile("empty.bin", "1.6.0", '3', 300000, [](auto& i) { i.clear(); });
    // One byte over the largest image: refused before it is read whole.
    const std::string oversized = imageFile("huge.bin", "1.6.0", '3', d3proto::kMaxFirmwarePayload,
                                            [](auto& i) { i.push_back(0); });
    d3sim::ServerConfig slowCfg;
    slowCfg.address = "127.0.113.20";
    slowCfg.discoveryPort = kDiscoveryPort;
    slowCfg.flashEraseMs = 0;
    slowCfg.flashWriteMs = 0;
    slowCfg.rebootMs = 60000;  // away for longer than the test lasts
    d3sim::CameraServer slow(slowCfg);
    ASSERT_TRUE(slow.start()) << slow.lastError();

    struct Case {
        const char* what;
        std::function<void()> arm;
        std::string file;
        std::string device;
        std::vector<std::string> extra;
        int exitCode;
        const char* reason;
        bool contactsCamera;
    };
    const std::string dev = cam.deviceString();
    const std::vector<Case> cases = {
        {"unreadable file", {}, (*folder / "missing.bin").string(), dev, {}, 3, "cannot read the image file", false},
        {"damaged file", {}, damaged, dev, {}, 4, "is not a valid firmware image: the payload is damaged", false},
        {"file cut short", {}, cutShort, dev, {}, 4, "truncated: 199936 of the 300000 payload bytes", false},
        {"file shorter than a header", {}, headerOnly, dev, {}, 4, "truncated: 40 bytes", false},
        {"empty file", {}, empty, dev, {}, 4, "truncated: 0 bytes", false},
        {"oversized file", {}, oversized, dev, {}, 4, "is larger than any firmware image", false},
        {"wrong access word", {}, good, dev, {"-p", "guess"}, 6, "refused the access word", true},
        {"camera not found",
         {},
         good,
         "D3SIM-003999999:127.0.113.99",
         {"--search-ms", "300"},
         5,
         "no camera answers as \"D3SIM-003999999:127.0.113.99\"",
         false},
        {"lost mid-transfer",
         [&cam] { cam.loseFirmwareUpdateAt(50); },
         good,
         dev,
         {},
         9,
         "the camera was lost after 131072 of 300064 bytes",
         true},
        {"stalled transfer",
         [&cam] { cam.stallFirmwareUpdateAt(30); },
         good,
         dev,
         {"--reply-timeout-ms", "300"},
         10,
         "stopped answering after 65536 of 300064 bytes",
         true},
        {"image for another model", {}, otherModel, dev, {}, 11, "the image is for model 1", true},
        {"bad flash",
         [&cam] { cam.failNextFlashWrite(); },
         good,
         dev,
         {},
         12,
         "verification after writing failed",
         true},
        {"camera does not come back",
         {},
         good,
         slow.deviceString(),
         {"--reboot-timeout-ms", "400"},
         13,
         "did not answer a search within 400 ms",
         true},
        {"missing access word", {}, good, dev, {"-p"}, 2, "-p needs a value", false},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        cam.camera().clearCommandLog();
        if (k.arm) k.arm();
        std::vector<std::string> args = {"-f", k.file, "-h", k.device, "-e", "-w", "-r"};
        if (k.extra.empty() || k.extra[0] != "-p") args.insert(args.end(), {"-p", kWord});
        args.insert(args.end(), k.extra.begin(), k.extra.end());
        const ChildResult r = tool(args);
        ASSERT_FALSE(r.timedOut);
        EXPECT_EQ(r.exitCode, k.exitCode) << r.err;
        EXPECT_TRUE(contains(r.err, k.reason)) << r.err;
        EXPECT_FALSE(contains(r.out, kMarker)) << r.out;
        bool contacted = false, begun = false;
        for (const auto& e : cam.camera().commandLog()) {
            contacted = contacted || e.name == "FirmwareBegin";
            begun = begun || (e.name == "FirmwareBegin" && e.status == d3proto::status::kSuccess);
        }
        if (k.device == dev) {
            EXPECT_EQ(contacted, k.contactsCamera);
        }
        // The next run must not find the camera still holding this run's update.
        if (begun) {
            ASSERT_TRUE(waitForUpdateEnd(cam));
        }
    }
    EXPECT_EQ(cam.camera().firmwareVersion(), "1.4.2");
    EXPECT_EQ(cam.camera().installedFirmware(), "1.4.2");
}

TEST_F(FirmwareToolTest, WithoutRebootOrWriteTheToolSucceedsQuietly) {
    d3sim::CameraServer& cam = (*cameras)[2];
    const std::string file = imageFile("next.bin", "2.0.0", '3');
    ChildResult r = tool({"-p", kWord, "-f", file, "-h", cam.address()});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "verified by the camera; nothing written")) << r.out;
    r = tool({"-e", "-w", "-h", cam.serial(), "-f", file, "-p", kWord});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "written; it runs from the camera's next start")) << r.out;
    EXPECT_FALSE(contains(r.out, kMarker));
    EXPECT_EQ(cam.camera().installedFirmware(), "2.0.0");
    EXPECT_EQ(cam.camera().firmwareVersion(), "1.4.2");

    r = tool({"--help"});
    EXPECT_EQ(r.exitCode, 0);
    for (const char* part :
         {"-f FILE", "-h DEVICE", "-p WORD", "Exit codes:", " 13  the camera did not come back", "magic \"D3FW\""})
        EXPECT_TRUE(contains(r.out, part)) << part;
    r = tool({"-f", file, "-h", cam.address(), "-p", kWord, "-x"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_TRUE(contains(r.err, "unknown argument \"-x\"")) << r.err;
}
