// The colour image: size per model, brightness controls and registration
// with the ToF camera through the published intrinsics and extrinsics.
#include <gtest/gtest.h>

#include <cmath>

#include "FrameGenerator.h"
#include "Scene.h"

namespace d3sim {
namespace {

double meanLevel(const FrameSet& f) {
    double sum = 0;
    for (size_t i = 0; i < f.rgb.size(); i += 37) sum += f.rgb[i];
    return sum / static_cast<double>((f.rgb.size() + 36) / 37);
}

double levelSpread(const FrameSet& f) {
    const double m = meanLevel(f);
    double sq = 0;
    size_t n = 0;
    for (size_t i = 0; i < f.rgb.size(); i += 37, ++n) sq += (f.rgb[i] - m) * (f.rgb[i] - m);
    return std::sqrt(sq / n);
}

FrameSet renderRgb(char model, const CameraSettings& s) {
    FrameGenerator gen(model, 5);
    FrameSet f;
    gen.render(0, s, f);
    return f;
}

CameraSettings manual(int exposure, int gain = 0, int contrast = 100) {
    CameraSettings s;
    s.rgbAutoExposure = false;
    s.rgbExposureUs = exposure;
    s.rgbGain = gain;
    s.rgbContrast = contrast;
    return s;
}

TEST(RgbSensor, SizeFollowsTheModel) {
    const std::pair<char, std::pair<int, int>> models[] = {
        {'3', {1920, 1080}}, {'4', {1600, 1200}}, {'0', {0, 0}}, {'2', {0, 0}}};
    for (const auto& [model, size] : models) {
        FrameGenerator gen(model, 1);
        EXPECT_EQ(gen.rgbWidth(), size.first) << model;
        EXPECT_EQ(gen.rgbHeight(), size.second) << model;
        FrameSet f;
        gen.render(0, CameraSettings{}, f);
        EXPECT_EQ(f.rgbWidth, size.first);
        EXPECT_EQ(f.rgbHeight, size.second);
        EXPECT_EQ(f.rgb.size(), static_cast<size_t>(size.first) * size.second * 3);
        EXPECT_EQ(gen.rgbIntrinsics().fx > 0, size.first > 0);
    }
}

TEST(RgbSensor, ExposureGainAndContrastChangeTheImage) {
    const double base = meanLevel(renderRgb('3', manual(300)));
    EXPECT_GT(base, 30.0);
    EXPECT_LT(base, 200.0);
    EXPECT_GT(meanLevel(renderRgb('3', manual(600))), base + 15.0);
    EXPECT_GT(meanLevel(renderRgb('3', manual(300, 256))), base + 15.0);  // 256 steps double the light
    EXPECT_LT(meanLevel(renderRgb('3', manual(100))), base - 15.0);
    EXPECT_GT(levelSpread(renderRgb('3', manual(300, 0, 300))), 1.5 * levelSpread(renderRgb('3', manual(300))));
    // The frame-rate row caps manual exposure: 20 fps allows 625 us.
    CameraSettings capped = manual(5000);
    FrameGenerator gen('3', 5);
    FrameSet f;
    gen.render(0, capped, f);
    EXPECT_EQ(gen.effectiveRgbExposureUs(), 625);
}

TEST(RgbSensor, AutoExposureSettlesOnMidGreyFromEitherSide) {
    auto settle = [](int start) {
        FrameGenerator gen('4', 6);
        CameraSettings s;
        s.frameRate = 1;
        s.rgbAutoExposure = true;
        s.rgbExposureUs = start;
        FrameSet f;
        for (uint64_t n = 0; n < 12; ++n) gen.render(n, s, f);
        return std::pair{gen.effectiveRgbExposureUs(), meanLevel(f)};
    };
    const auto [expA, levelA] = settle(20);
    const auto [expB, levelB] = settle(9000);
    EXPECT_NEAR(expA, expB, 0.12 * expB);  // each may stop anywhere in the dead band
    EXPECT_NEAR(levelA, levelB, 8.0);
    EXPECT_GT(levelA, 60.0);
    EXPECT_LT(levelA, 170.0);
}

double luminance(const FrameSet& f, int u, int v) {
    const uint8_t* p = &f.rgb[(static_cast<size_t>(v) * f.rgbWidth + u) * 3];
    return 0.3 * p[0] + 0.59 * p[1] + 0.11 * p[2];
}

// The box's right front edge (x = -200 mm, z = 2300 mm) is lit on the front
// and shaded on the side: a sharp step that must sit where the published
// calibration projects it, in both colour models.
TEST(RgbSensor, BoxEdgeLandsWhereTheCalibrationSays) {
    for (char model : {'3', '4'}) {
        FrameGenerator gen(model, 2);
        FrameSet f;
        gen.render(0, manual(400), f);
        const Intrinsics k = gen.rgbIntrinsics();
        const Extrinsics e = gen.rgbExtrinsics();
        const float p[3] = {scene::kBox.max.x, 350.0f, scene::kBox.min.z};  // on the edge, below the tape
        float q[3];
        for (int r = 0; r < 3; ++r) q[r] = e.r[3 * r] * p[0] + e.r[3 * r + 1] * p[1] + e.r[3 * r + 2] * p[2] + e.t[r];
        const double edgeU = k.cx + k.fx * q[0] / q[2];
        const int row = static_cast<int>(std::lround(k.cy + k.fy * q[1] / q[2]));
        int bestU = -1;
        double bestDrop = 0;
        for (int u = static_cast<int>(edgeU) - 15; u < static_cast<int>(edgeU) + 15; ++u) {
            double drop = 0;
            for (int dv = -2; dv <= 2; ++dv) drop += luminance(f, u, row + dv) - luminance(f, u + 1, row + dv);
            if (drop > bestDrop) bestDrop = drop, bestU = u;
        }
        EXPECT_GT(bestDrop, 5 * 20.0) << model;  // a real edge, not noise
        // The last lit column is the one whose centre still lies left of the edge.
        EXPECT_EQ(bestU, static_cast<int>(std::floor(edgeU))) << model << " edge at " << edgeU;
    }
}

TEST(RgbSensor, ExtrinsicsDescribeABaselineNotARotation) {
    FrameGenerator gen('3', 1);
    const Extrinsics e = gen.rgbExtrinsics();
    for (int i = 0; i < 9; ++i) EXPECT_FLOAT_EQ(e.r[i], i % 4 == 0 ? 1.0f : 0.0f);
    EXPECT_FLOAT_EQ(e.t[0], -25.0f);
    EXPECT_FLOAT_EQ(e.t[1], 0.0f);
    EXPECT_FLOAT_EQ(e.t[2], 0.0f);
}

}  // namespace
}  // namespace d3sim
