// Frame delivery over the stream connection: pacing, payload, trigger modes.
// Address block 127.0.78.x, discovery port 48778.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "SimulatedCameras.h"
#include "d3_protocol/Frame.h"
#include "rawclient.h"

using d3proto::Command;
using d3proto::Json;
using d3test::RawClient;
using namespace d3sim;
namespace st = d3proto::status;
using Clock = std::chrono::steady_clock;

namespace {

struct Session {
    RawClient control, stream;
    Json calibration;

    bool open(const std::string& ip) {
        if (!control.connect(ip, 48601)) return false;
        const uint32_t token = control.open("stream-test");
        if (!token || !stream.connect(ip, 48602)) return false;
        if (!stream.send(Command::AttachStream, {{"token", token}}, 1)) return false;
        const auto r = stream.read();
        if (!r.ok || r.status() != st::kSuccess) return false;
        const auto calib = stream.read();
        calibration = calib.body;
        return calib.ok && calib.header.command == uint16_t(Command::CalibrationEvent);
    }

    // Next frame event, decoded; false on timeout.
    bool frame(d3test::Reply& raw, d3proto::FrameView& view, int timeoutMs = 2000) {
        raw = stream.read(timeoutMs);
        if (!raw.ok || raw.header.command != uint16_t(Command::FrameEvent)) return false;
        return d3proto::decodeFrame(raw.payload.data(), raw.payload.size(), view) == d3proto::FrameDecodeResult::Ok;
    }
};

std::unique_ptr<CameraServer> startCamera(const std::string& ip, char model, int fps) {
    ServerConfig c;
    c.address = ip;
    c.model = model;
    c.discoveryPort = 48778;
    c.fps = fps;
    auto s = std::make_unique<CameraServer>(c);
    return s->start() ? std::move(s) : nullptr;
}

}  // namespace

TEST(Stream, AttachNeedsTheSessionToken) {
    auto server = startCamera("127.0.78.2", '1', 10);
    ASSERT_TRUE(server);
    RawClient control, stream;
    ASSERT_TRUE(control.connect("127.0.78.2", 48601));
    const uint32_t token = control.open("tok");
    ASSERT_NE(token, 0u);
    ASSERT_TRUE(stream.connect("127.0.78.2", 48602));
    ASSERT_TRUE(stream.send(Command::AttachStream, {{"token", int64_t(token) + 1}}, 1));
    EXPECT_EQ(stream.read().status(), st::kAccessDenied);
    ASSERT_TRUE(stream.send(Command::AttachStream, {{"token", token}}, 2));
    EXPECT_EQ(stream.read().status(), st::kSuccess);
}

TEST(Stream, FramesArriveAtTheConfiguredRateWithConsecutiveIds) {
    auto server = startCamera("127.0.78.3", '1', 10);
    ASSERT_TRUE(server);
    Session s;
    ASSERT_TRUE(s.open("127.0.78.3"));
    EXPECT_NEAR(s.calibration["tof"]["fx"].get<double>(), 520.0, 60.0);
    EXPECT_EQ(s.calibration["image"]["rgb"], false);
    ASSERT_EQ(s.control.call(Command::StartStream).status(), st::kSuccess);

    d3test::Reply raw;
    d3proto::FrameView v;
    ASSERT_TRUE(s.frame(raw, v));  // the first frame starts the clock
    const uint32_t firstId = v.header.frameId;
    const uint64_t firstTs = v.header.timestampUs;
    uint32_t lastId = firstId;
    for (int i = 0; i < 15; ++i) {
        ASSERT_TRUE(s.frame(raw, v));
        EXPECT_EQ(v.header.frameId, lastId + 1);
        lastId = v.header.frameId;
    }
    // Camera timestamps advance by at least the frame period: the camera
    // paces itself. A camera that cannot render in time (a loaded machine, a
    // sanitizer build) falls behind, so only this bound holds everywhere.
    const double meanPeriodMs = double(v.header.timestampUs - firstTs) / 1000.0 / (lastId - firstId);
    EXPECT_GE(meanPeriodMs, 95.0);
    EXPECT_EQ(v.header.tofWidth, 640);
    EXPECT_EQ(v.header.tofHeight, 480);
    EXPECT_EQ(v.rgb, nullptr);

    ASSERT_EQ(s.control.call(Command::StopStream).status(), st::kSuccess);
    // At most one frame was already on its way when the stop arrived.
    int after = 0;
    while (s.frame(raw, v, 300)) ++after;
    EXPECT_LE(after, 1);
}

TEST(Stream, ColourModelsSendJpegAtTheirResolution) {
    auto server = startCamera("127.0.78.4", '3', 5);
    ASSERT_TRUE(server);
    Session s;
    ASSERT_TRUE(s.open("127.0.78.4"));
    EXPECT_EQ(s.calibration["image"]["rgbWidth"], 1920);
    ASSERT_EQ(s.control.call(Command::StartStream).status(), st::kSuccess);
    d3test::Reply raw;
    d3proto::FrameView v;
    ASSERT_TRUE(s.frame(raw, v));
    EXPECT_EQ(v.header.rgbEncoding, d3proto::RgbEncoding::Jpeg);
    EXPECT_EQ(v.header.rgbWidth, 1920);
    EXPECT_EQ(v.header.rgbHeight, 1080);
    ASSERT_GT(v.header.rgbBytes, 1000u);
    EXPECT_LT(v.header.rgbBytes, 1920u * 1080u);  // actually compressed
    EXPECT_EQ(v.rgb[0], 0xFF);
    EXPECT_EQ(v.rgb[1], 0xD8);  // JPEG start of image
    EXPECT_EQ(v.rgb[v.header.rgbBytes - 2], 0xFF);
    EXPECT_EQ(v.rgb[v.header.rgbBytes - 1], 0xD9);  // end of image
    // Depth carries measurements, not an empty image.
    int valid = 0;
    for (size_t i = 0; i < 640 * 480; i += 97) valid += d3proto::getU16(v.depth + 2 * i) != 0;
    EXPECT_GT(valid, 1000);
}

TEST(Stream, SoftwareTriggerGivesOneFramePerTrigger) {
    auto server = startCamera("127.0.78.5", '1', 25);
    ASSERT_TRUE(server);
    Session s;
    ASSERT_TRUE(s.open("127.0.78.5"));
    ASSERT_EQ(s.control.call(Command::SoftTrigger).status(), st::kNotSupported);  // free-running
    ASSERT_EQ(s.control.call(Command::SetTriggerMode, {{"value", 1}}).status(), st::kSuccess);
    ASSERT_EQ(s.control.call(Command::StartStream).status(), st::kSuccess);
    d3test::Reply raw;
    d3proto::FrameView v;
    EXPECT_FALSE(s.frame(raw, v, 300));  // nothing without a trigger
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(s.control.call(Command::SoftTrigger).status(), st::kSuccess);
        EXPECT_TRUE(s.frame(raw, v, 1000)) << i;
        EXPECT_FALSE(s.frame(raw, v, 150)) << i;
    }
}

TEST(Stream, HardwareTriggerWaitsTheConfiguredDelay) {
    auto server = startCamera("127.0.78.6", '2', 25);
    ASSERT_TRUE(server);
    Session s;
    ASSERT_TRUE(s.open("127.0.78.6"));
    ASSERT_EQ(s.control.call(Command::SetTriggerMode, {{"value", 3}}).status(), st::kSuccess);
    ASSERT_EQ(s.control.call(Command::SetHardTriggerDelay, {{"ms", 250}, {"us", 0}}).status(), st::kSuccess);
    ASSERT_EQ(s.control.call(Command::StartStream).status(), st::kSuccess);
    d3test::Reply raw;
    d3proto::FrameView v;
    EXPECT_FALSE(s.frame(raw, v, 200));
    const auto edge = Clock::now();
    server->hardwareTrigger();
    ASSERT_TRUE(s.frame(raw, v, 2000));
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - edge).count();
    // Not before the delay; how much later depends on the machine.
    EXPECT_GE(ms, 245.0);
    EXPECT_FALSE(s.frame(raw, v, 400));  // one edge, one frame
}
