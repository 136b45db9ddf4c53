// Reading a capture back for replay: the viewer's CSV and YUV files, the
// time-stamp folder names and the rate they give, which folders make a
// capture, and a camera that serves one and refuses what it cannot honour.
#include "Recording.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Camera.h"

using d3proto::Command;
using d3proto::Json;
using namespace d3sim;
namespace fs = std::filesystem;
namespace st = d3proto::status;

namespace {

struct TempDir {
    fs::path path;
    TempDir() {
        static int counter = 0;
        path = fs::temp_directory_path() / ("d3rec-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        fs::create_directories(path);
    }
    ~TempDir() { fs::remove_all(path); }
};

void writeFile(const fs::path& p, const std::string& text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

// A 640x480 table as the viewer writes it, value(x, y) at each cell.
template <typename F>
std::string csv(F value) {
    std::string s;
    for (int y = 0; y < kTofHeight; ++y) {
        for (int x = 0; x < kTofWidth; ++x) {
            s += std::to_string(value(x, y));
            s += x + 1 < kTofWidth ? ", " : "\n";
        }
    }
    return s;
}

// One frame folder: depth d0 + x, IR (x + y) % 256, optional grey colour picture.
void writeFrame(const fs::path& dir, int d0, int yuvWidth = 0, int yuvHeight = 0, uint8_t luma = 16) {
    writeFile(dir / "Depth.csv", csv([d0](int x, int) { return d0 + x; }));
    writeFile(dir / "IR.csv", csv([](int x, int y) { return (x + y) % 256; }));
    if (yuvWidth > 0) {
        const size_t n = size_t(yuvWidth) * size_t(yuvHeight);
        std::string yuv(n, char(luma));
        yuv.append(n / 2, char(128));
        writeFile(dir / "Rgb.yuv", yuv);
    }
}

int32_t run(Camera& cam, Command cmd, const Json& args) {
    Json reply;
    AfterReply after;
    return cam.execute(cmd, args, reply, after);
}

}  // namespace

TEST(ValueCsv, ReadsTheViewersLayoutAndRejectsAnythingElse) {
    int rows = 0, cols = 0;
    std::vector<uint16_t> v;
    ASSERT_TRUE(parseValueCsv("1, 2, 3\n4, 5, 6\n", 255, rows, cols, v));
    EXPECT_EQ(rows, 2);
    EXPECT_EQ(cols, 3);
    EXPECT_EQ(v, (std::vector<uint16_t>{1, 2, 3, 4, 5, 6}));
    // Windows line ends, a single column and no final line end are all fine.
    ASSERT_TRUE(parseValueCsv("7\r\n65535\r\n0", 65535, rows, cols, v));
    EXPECT_EQ(rows, 3);
    EXPECT_EQ(cols, 1);
    EXPECT_EQ(v, (std::vector<uint16_t>{7, 65535, 0}));

    EXPECT_FALSE(parseValueCsv("1, 2\n3\n", 255, rows, cols, v));  // ragged
    EXPECT_FALSE(parseValueCsv("1, 256\n", 255, rows, cols, v));   // above the range
    EXPECT_FALSE(parseValueCsv("1, -2\n", 255, rows, cols, v));
    EXPECT_FALSE(parseValueCsv("1, , 2\n", 255, rows, cols, v));
    EXPECT_FALSE(parseValueCsv("1, 2,\n", 255, rows, cols, v));
    EXPECT_FALSE(parseValueCsv("", 255, rows, cols, v));
}

TEST(ColourPlanes, InvertTheViewersConversion) {
    // 2x2 picture: one chroma sample; the viewer's white, black and red.
    auto pixel = [](uint8_t y, uint8_t u, uint8_t v) {
        const uint8_t yuv[6] = {y, y, y, y, u, v};
        std::vector<uint8_t> rgb(12);
        i420ToRgb(yuv, 2, 2, rgb.data());
        return std::vector<int>{rgb[0], rgb[1], rgb[2]};
    };
    EXPECT_EQ(pixel(235, 128, 128), (std::vector<int>{255, 255, 255}));
    EXPECT_EQ(pixel(16, 128, 128), (std::vector<int>{0, 0, 0}));
    // Red (255, 0, 0) was stored as Y 81, U 90, V 239, each truncated.
    const std::vector<int> red = pixel(81, 90, 239);
    EXPECT_NEAR(red[0], 255, 3);
    EXPECT_NEAR(red[1], 0, 3);
    EXPECT_NEAR(red[2], 0, 3);

    // Each chroma sample covers its own 2x2 block of a 4x2 picture.
    const uint8_t yuv[12] = {128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 60, 200};
    std::vector<uint8_t> rgb(24);
    i420ToRgb(yuv, 4, 2, rgb.data());
    EXPECT_EQ(rgb[0 * 3], rgb[5 * 3]);  // (0,0) and (1,1) share the left sample
    // V 60 on the left, 200 on the right: redder on the right, same blue.
    EXPECT_GT(rgb[2 * 3], rgb[0 * 3] + 100);
    EXPECT_EQ(rgb[2 * 3 + 2], rgb[0 * 3 + 2]);
}

TEST(TimeStamps, GiveTheRecordedRate) {
    EXPECT_EQ(parseTimeStamp("20240105143012345") - parseTimeStamp("20240105143011345"), 1000);
    // Across midnight at the end of a leap-year February.
    EXPECT_EQ(parseTimeStamp("20240301000000010") - parseTimeStamp("20240229235959970"), 40);
    EXPECT_EQ(parseTimeStamp("2024010514301234"), -1);
    EXPECT_EQ(parseTimeStamp("20241305143012345"), -1);
    EXPECT_EQ(parseTimeStamp("2024010514301234x"), -1);

    // The median gap: one stall while saving does not change the rate.
    EXPECT_EQ(recordedFrameRate({0, 40, 80, 120, 1120, 1160}), 25);
    EXPECT_EQ(recordedFrameRate({0, 100, 200}), 10);
    EXPECT_EQ(recordedFrameRate({0, 5000}), 1);  // single saves, far apart
    EXPECT_EQ(recordedFrameRate({0, 10}), 25);   // faster than a camera goes
    EXPECT_EQ(recordedFrameRate({1000}), 0);
    EXPECT_EQ(recordedFrameRate({-1, -1}), 0);
}

TEST(RecordingLoad, TakesFrameFoldersInTimeOrderAndTheModelFromTheColourSize) {
    TempDir d;
    writeFrame(d.path / "20240105143012080", 300, 1600, 1200);
    writeFrame(d.path / "20240105143012000", 100, 1600, 1200);
    writeFrame(d.path / "20240105143012040", 200, 1600, 1200);
    fs::create_directories(d.path / "notes");  // no Depth.csv: not a frame
    Recording r;
    std::string error;
    ASSERT_TRUE(r.load(d.path.string(), error)) << error;
    EXPECT_EQ(r.frameCount(), 3u);
    EXPECT_EQ(r.model(), '4');
    EXPECT_EQ(r.rgbWidth(), 1600);
    EXPECT_EQ(r.frameRate(), 25);

    FrameSet f;
    std::vector<uint8_t> scratch;
    ASSERT_TRUE(r.frame(4, f, scratch));  // loops: frame 4 is the second one
    EXPECT_EQ(f.depth[0], 200);
    EXPECT_EQ(f.depth[639], 200 + 639);
    EXPECT_EQ(f.ir[size_t(2 * 640 + 3)], 5);
    EXPECT_EQ(f.amplitude, std::vector<uint16_t>(f.ir.begin(), f.ir.end()));
    ASSERT_EQ(f.rgb.size(), size_t(1600) * 1200 * 3);
    EXPECT_EQ(f.rgb[0], 0);  // luma 16, neutral chroma: black

    // A single save's own folder is a capture of one frame, of a depth-only camera.
    Recording one;
    writeFrame(d.path / "single", 500);
    ASSERT_TRUE(one.load((d.path / "single").string(), error)) << error;
    EXPECT_EQ(one.frameCount(), 1u);
    EXPECT_EQ(one.model(), '1');
    EXPECT_FALSE(one.colour());
    EXPECT_EQ(one.frameRate(), 0);
}

TEST(RecordingLoad, RefusesWhatItCannotServe) {
    std::string error;
    {
        TempDir d;
        Recording r;
        EXPECT_FALSE(r.load(d.path.string(), error));
        EXPECT_NE(error.find("no saved frame"), std::string::npos);
    }
    {
        // A depth registered to the colour picture has the picture's size.
        TempDir d;
        writeFile(d.path / "20240105143012000" / "Depth.csv", "1, 2\n3, 4\n");
        Recording r;
        EXPECT_FALSE(r.load(d.path.string(), error));
        EXPECT_NE(error.find("640x480"), std::string::npos);
    }
    {
        TempDir d;
        writeFrame(d.path / "20240105143012000", 100, 640, 480);  // colour registered to depth
        Recording r;
        EXPECT_FALSE(r.load(d.path.string(), error));
    }
    {
        TempDir d;
        writeFrame(d.path / "20240105143012000", 100, 1920, 1080);
        writeFrame(d.path / "20240105143012040", 100);  // the colour pane was closed meanwhile
        Recording r;
        EXPECT_FALSE(r.load(d.path.string(), error));
    }
}

TEST(ReplayCamera, ServesTheCaptureAndRefusesSettingsItCannotHonour) {
    TempDir d;
    writeFrame(d.path / "20240105143012000", 100);
    writeFrame(d.path / "20240105143012100", 200);
    auto recording = std::make_shared<Recording>();
    std::string error;
    ASSERT_TRUE(recording->load(d.path.string(), error)) << error;
    NetworkSettings net;
    net.ip = "127.0.0.2";
    const CameraIdentity id = Camera::makeReplayIdentity(recording->model(), net.ip);
    EXPECT_EQ(id.serial.substr(0, 8), "D3REPLAY");
    EXPECT_EQ(id.serial[8], '1');
    Camera cam(id, net, "", 1);
    cam.setRecording(recording);

    FrameSet f;
    cam.render(1, f);
    EXPECT_EQ(f.depth[10], 210);
    EXPECT_EQ(f.rgbWidth, 0);

    const CameraSettings before = cam.settings();
    EXPECT_EQ(run(cam, Command::SetIrGamma, {{"value", 40}}), st::kRefusedByRecording);
    EXPECT_EQ(run(cam, Command::SetHdr, {{"value", true}}), st::kRefusedByRecording);
    EXPECT_EQ(run(cam, Command::SetTimeMedianFilter, {{"enable", true}, {"value", 5}, {"value2", 100}}),
              st::kRefusedByRecording);
    EXPECT_EQ(cam.settings().irGamma, before.irGamma);
    EXPECT_FALSE(cam.settings().hdr);
    // Out of range stays an invalid parameter, not a refusal.
    EXPECT_EQ(run(cam, Command::SetIrGamma, {{"value", 400}}), st::kInvalidParameter);
    // What it already has, the pace and the trigger are accepted.
    EXPECT_EQ(run(cam, Command::SetIrGamma, {{"value", before.irGamma}}), st::kSuccess);
    EXPECT_EQ(run(cam, Command::SetFrameRate, {{"value", 5}}), st::kSuccess);
    EXPECT_EQ(cam.settings().frameRate, 5);
    EXPECT_EQ(run(cam, Command::SetTriggerMode, {{"value", 1}}), st::kSuccess);
    const auto log = cam.commandLog();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front().name, "SetIrGamma");
    EXPECT_EQ(log.front().status, st::kRefusedByRecording);
}
