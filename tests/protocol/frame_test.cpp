// Frame payload codec: round trip and rejection of inconsistent sizes.
#include "d3_protocol/Frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "d3_protocol/Message.h"

using namespace d3proto;

namespace {
struct Sample {
    std::vector<uint16_t> depth, amplitude;
    std::vector<uint8_t> ir, rgb;
    FrameHeader header;
    std::vector<uint8_t> bytes;

    Sample(uint16_t w, uint16_t h, size_t rgbBytes)
        : depth(size_t(w) * h), amplitude(size_t(w) * h), ir(size_t(w) * h) {
        for (size_t i = 0; i < depth.size(); ++i) {
            depth[i] = uint16_t(i * 7);
            amplitude[i] = uint16_t(65535 - i);
            ir[i] = uint8_t(i * 3);
        }
        rgb.resize(rgbBytes);
        for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = uint8_t(i ^ 0x5A);
        header.frameId = 42;
        header.timestampUs = 0x0102030405060708ull;
        header.tofWidth = w;
        header.tofHeight = h;
        header.exposureUs = 900;
        if (rgbBytes) {
            header.rgbWidth = 32;
            header.rgbHeight = 16;
            header.rgbEncoding = RgbEncoding::Jpeg;
            header.rgbBytes = uint32_t(rgbBytes);
        }
        encodeFrame(header, depth.data(), ir.data(), amplitude.data(), rgbBytes ? rgb.data() : nullptr, bytes);
    }
};
}  // namespace

TEST(FrameCodec, RoundTripGivesBackEverySection) {
    Sample s(64, 48, 777);
    FrameView v;
    ASSERT_EQ(decodeFrame(s.bytes.data(), s.bytes.size(), v), FrameDecodeResult::Ok);
    EXPECT_EQ(v.header.frameId, 42u);
    EXPECT_EQ(v.header.timestampUs, 0x0102030405060708ull);
    EXPECT_EQ(v.header.exposureUs, 900u);
    EXPECT_EQ(v.header.rgbEncoding, RgbEncoding::Jpeg);
    EXPECT_EQ(std::memcmp(v.depth, s.depth.data(), s.depth.size() * 2), 0);
    EXPECT_EQ(std::memcmp(v.ir, s.ir.data(), s.ir.size()), 0);
    EXPECT_EQ(std::memcmp(v.amplitude, s.amplitude.data(), s.amplitude.size() * 2), 0);
    EXPECT_EQ(std::memcmp(v.rgb, s.rgb.data(), s.rgb.size()), 0);
}

TEST(FrameCodec, OffsetLeavesRoomForTheMessageHeader) {
    Sample s(8, 4, 0);
    std::vector<uint8_t> out;
    const size_t n = encodeFrame(s.header, s.depth.data(), s.ir.data(), s.amplitude.data(), nullptr, out, kHeaderSize);
    ASSERT_EQ(out.size(), kHeaderSize + n);
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + kHeaderSize, out.end()), s.bytes);
    FrameView v;
    EXPECT_EQ(decodeFrame(out.data() + kHeaderSize, n, v), FrameDecodeResult::Ok);
    EXPECT_EQ(v.rgb, nullptr);
}

TEST(FrameCodec, RejectsInconsistentSizes) {
    Sample s(16, 8, 100);
    FrameView v;
    for (size_t n : {size_t(0), kFrameHeaderSize - 1})
        EXPECT_EQ(decodeFrame(s.bytes.data(), n, v), FrameDecodeResult::Truncated);
    EXPECT_EQ(decodeFrame(s.bytes.data(), s.bytes.size() - 1, v), FrameDecodeResult::LengthMismatch);

    auto patched = [&](size_t offset, uint32_t value, int width) {
        auto b = s.bytes;
        if (width == 2)
            putU16(b.data() + offset, uint16_t(value));
        else if (width == 1)
            b[offset] = uint8_t(value);
        else
            putU32(b.data() + offset, value);
        return decodeFrame(b.data(), b.size(), v);
    };
    EXPECT_EQ(patched(16, 0, 2), FrameDecodeResult::BadSize);                      // zero width
    EXPECT_EQ(patched(18, 5000, 2), FrameDecodeResult::BadSize);                   // absurd height
    EXPECT_EQ(patched(24, 9, 1), FrameDecodeResult::BadEncoding);                  // unknown colour encoding
    EXPECT_EQ(patched(24, 0, 1), FrameDecodeResult::BadSize);                      // colour size without colour
    EXPECT_EQ(patched(28, 16 * 8 * 2 + 2, 4), FrameDecodeResult::LengthMismatch);  // depth length
    EXPECT_EQ(patched(32, 0, 4), FrameDecodeResult::LengthMismatch);               // IR length
    EXPECT_EQ(patched(40, 0xFFFFFFF0u, 4), FrameDecodeResult::LengthMismatch);     // RGB past the end
    EXPECT_EQ(patched(24, 2, 1), FrameDecodeResult::LengthMismatch);               // raw RGB needs w*h*3 bytes
}

TEST(FrameCodec, RandomMutationsNeverYieldPointersOutsideThePayload) {
    Sample s(16, 8, 64);
    std::mt19937 rng(99);
    for (int i = 0; i < 20000; ++i) {
        auto b = s.bytes;
        const int flips = 1 + int(rng() % 4);
        for (int k = 0; k < flips; ++k) b[rng() % kFrameHeaderSize] = uint8_t(rng());
        if (rng() % 3 == 0) b.resize(rng() % b.size());
        FrameView v;
        if (decodeFrame(b.data(), b.size(), v) != FrameDecodeResult::Ok) continue;
        const uint8_t* end = b.data() + b.size();
        EXPECT_LE(v.amplitude + v.header.amplitudeBytes, end);
        if (v.rgb) {
            EXPECT_EQ(v.rgb + v.header.rgbBytes, end);
        }
    }
}
