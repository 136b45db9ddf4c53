// The ToF image as a user of the camera sees it: depth and amplitude react to
// the settings the way a real sensor does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "FrameGenerator.h"
#include "modeltesthelpers.h"
#include "Scene.h"

namespace d3sim {
namespace {

using testing::kBoxFrontPatch;
using testing::kWallPatch;
using testing::Region;

FrameSet renderOne(char model, uint64_t seed, uint64_t frameNo, const CameraSettings& s) {
    FrameGenerator gen(model, seed);
    FrameSet f;
    gen.render(frameNo, s, f);
    return f;
}

CameraSettings withFilters() {
    CameraSettings s;
    s.timeMedian = {true, 5.0f, 100.0f};
    s.spatial = {true, 3.0f, 100.0f};
    s.flyPixel = {true, 10.0f, 100.0f};
    s.confidence = {true, 15.0f, 100.0f};
    return s;
}

TEST(TofDeterminism, SameSeedAndSequenceGiveIdenticalFrames) {
    FrameGenerator a('3', 7), b('3', 7), other('3', 8);
    const CameraSettings s = withFilters();
    FrameSet fa, fb, fo;
    for (uint64_t n = 10; n < 13; ++n) {
        a.render(n, s, fa);
        b.render(n, s, fb);
        other.render(n, s, fo);
        EXPECT_EQ(fa.depth, fb.depth);
        EXPECT_EQ(fa.amplitude, fb.amplitude);
        EXPECT_EQ(fa.ir, fb.ir);
        EXPECT_EQ(fa.rgb, fb.rgb);
        EXPECT_EQ(fa.frameId, n);
        EXPECT_NE(fa.depth, fo.depth);
    }
    // Without history-keeping filters a frame depends only on its number.
    const CameraSettings plain;
    FrameSet inSequence;
    for (uint64_t n = 0; n < 4; ++n) a.render(n, plain, inSequence);
    EXPECT_EQ(inSequence.depth, renderOne('3', 7, 3, plain).depth);
}

// The server stores whatever a client sends; the model must turn any of it
// into a well-formed frame rather than crash or index out of range.
TEST(TofSettings, OutOfRangeValuesStillGiveWellFormedFrames) {
    std::vector<CameraSettings> cases(4);
    cases[0].tofExposureUs = -50;
    cases[0].frameRate = 0;
    cases[0].irGamma = -3;
    cases[0].rgbExposureUs = -1;
    cases[0].rgbGain = -10;
    cases[0].rgbContrast = 0;
    cases[0].rgbAutoExposure = false;
    cases[1].tofExposureUs = 1000000;
    cases[1].frameRate = 500;
    cases[1].irGamma = 9999;
    cases[1].rgbGain = 100000;
    cases[1].rgbContrast = 100000;
    cases[1].frequencyMode = 7;
    cases[1].hdr = true;
    for (CameraSettings* s : {&cases[2], &cases[3]}) {
        const float v = s == &cases[2] ? -1.0f : 1000.0f;
        s->timeMedian = {true, v, 100.0f};
        s->spatial = {true, v, 100.0f};
        s->flyPixel = {true, v, 100.0f};
        s->confidence = {true, v, 100.0f};
        s->tofAutoExposure = true;
        s->singleIntegral = true;
    }
    for (size_t c = 0; c < cases.size(); ++c) {
        FrameGenerator gen('3', 1);
        FrameSet f;
        for (uint64_t n = 0; n < 2; ++n) gen.render(n, cases[c], f);
        ASSERT_EQ(f.depth.size(), static_cast<size_t>(kTofWidth) * kTofHeight) << c;
        ASSERT_EQ(f.ir.size(), f.depth.size()) << c;
        ASSERT_EQ(f.amplitude.size(), f.depth.size()) << c;
        ASSERT_EQ(f.rgb.size(), static_cast<size_t>(1920) * 1080 * 3) << c;
        EXPECT_LE(*std::max_element(f.depth.begin(), f.depth.end()), 15000) << c;  // the dual-frequency range
        EXPECT_GE(gen.effectiveExposureUs(), 6) << c;
        EXPECT_LE(gen.effectiveExposureUs(), 4000) << c;
        EXPECT_GE(gen.effectiveRgbExposureUs(), 0) << c;
        EXPECT_LE(gen.effectiveRgbExposureUs(), 10000) << c;
    }
}

TEST(TofDepth, BackWallMatchesGroundTruth) {
    FrameGenerator gen('0', 3);
    std::vector<float> gt;
    gen.renderGroundTruth(0, gt);
    FrameSet f;
    gen.render(0, CameraSettings{}, f);
    const double measured = testing::meanOf(f.depth, kWallPatch, kTofWidth, true);
    const double truth = testing::meanOf(gt, kWallPatch);
    EXPECT_DOUBLE_EQ(truth, scene::kWallZ);
    EXPECT_NEAR(measured, truth, 5.0);  // mean of ~10k pixels: noise averages out, bias must not
    EXPECT_EQ(testing::countZeros(f.depth, kWallPatch), 0);
    EXPECT_NEAR(testing::meanOf(f.depth, kBoxFrontPatch, kTofWidth, true), scene::kBox.min.z, 5.0);
    // Per-pixel noise is a realistic fraction of a percent, not zero.
    const double noise = testing::spatialStd(f.depth, kWallPatch);
    EXPECT_GT(noise, 3.0);
    EXPECT_LT(noise, 60.0);
}

TEST(TofDepth, LongerExposureRaisesAmplitudeAndLowersNoise) {
    CameraSettings shortExp, longExp;
    shortExp.tofExposureUs = 250;
    longExp.tofExposureUs = 1000;
    FrameGenerator g1('0', 5), g2('0', 5);
    const FrameSet fs = renderOne('0', 5, 0, shortExp), fl = renderOne('0', 5, 0, longExp);
    const double ampShort = testing::meanOf(fs.amplitude, kWallPatch),
                 ampLong = testing::meanOf(fl.amplitude, kWallPatch);
    EXPECT_NEAR(ampLong / ampShort, 4.0, 0.4);  // amplitude is proportional to exposure
    const double noiseShort = testing::temporalStd(g1, shortExp, kWallPatch, 6);
    const double noiseLong = testing::temporalStd(g2, longExp, kWallPatch, 6);
    EXPECT_LT(noiseLong * 1.6, noiseShort);
}

TEST(TofDepth, FrameRateCapsExposure) {
    FrameGenerator gen('0', 1);
    CameraSettings s;
    s.tofExposureUs = 4000;
    FrameSet f;
    for (auto [fps, expected] : {std::pair{20, 1000}, {10, 2000}, {12, 1300}, {3, 4000}}) {
        s.frameRate = fps;
        gen.render(0, s, f);
        EXPECT_EQ(gen.effectiveExposureUs(), expected) << fps;
    }
    s.singleIntegral = true;  // fast mode runs at the fastest row whatever the frame rate
    s.frameRate = 1;
    gen.render(0, s, f);
    EXPECT_EQ(gen.effectiveExposureUs(), 1000);
}

TEST(TofDepth, SingleFrequencyWrapsBeyondItsRange) {
    CameraSettings single;
    single.frequencyMode = 1;
    const FrameSet f = renderOne('0', 2, 0, single);
    // The wall at 3.5 m lies beyond c/2f (~2.5 m) of range along each ray and
    // folds back by that much; the box at 2.3 m is inside and stays put.
    const double range = 299792.458 / (2.0 * 60.0);
    const Intrinsics k = FrameGenerator('0', 2).tofIntrinsics();
    double expected = 0;
    for (int v = kWallPatch.v0; v < kWallPatch.v1; ++v)
        for (int u = kWallPatch.u0; u < kWallPatch.u1; ++u) {
            const double x = (u - k.cx) / k.fx, y = (v - k.cy) / k.fy;
            expected += scene::kWallZ - range / std::sqrt(x * x + y * y + 1.0);
        }
    expected /= testing::area(kWallPatch);
    EXPECT_NEAR(testing::meanOf(f.depth, kWallPatch, kTofWidth, true), expected, 5.0);
    EXPECT_NEAR(testing::meanOf(f.depth, kBoxFrontPatch, kTofWidth, true), scene::kBox.min.z, 5.0);
    const FrameSet dual = renderOne('0', 2, 0, CameraSettings{});
    EXPECT_NEAR(testing::meanOf(dual.depth, kWallPatch, kTofWidth, true), scene::kWallZ, 10.0);
}

// The sphere's nearest point faces the camera at frame 0, about 1.66 m away.
constexpr Region kSphereCore{442, 362, 458, 378};

TEST(TofDepth, SaturationInvalidatesAndHdrRecovers) {
    CameraSettings s;
    s.frameRate = 5;
    s.tofExposureUs = 2000;
    EXPECT_EQ(testing::countZeros(renderOne('0', 4, 0, s).depth, kSphereCore), 0);
    s.tofExposureUs = 4000;
    const FrameSet saturated = renderOne('0', 4, 0, s);
    EXPECT_GT(testing::countZeros(saturated.depth, kSphereCore), testing::area(kSphereCore) * 9 / 10);
    EXPECT_EQ(saturated.ir[370 * kTofWidth + 450], 255);
    s.hdr = true;
    const FrameSet merged = renderOne('0', 4, 0, s);
    EXPECT_EQ(testing::countZeros(merged.depth, kSphereCore), 0);
    std::vector<float> gt;
    FrameGenerator('0', 4).renderGroundTruth(0, gt);
    EXPECT_NEAR(testing::meanOf(merged.depth, kSphereCore), testing::meanOf(gt, kSphereCore), 15.0);
    // Unsaturated pixels keep the long exposure: the wall is untouched.
    EXPECT_EQ(testing::meanOf(merged.depth, kWallPatch), testing::meanOf(saturated.depth, kWallPatch));
}

TEST(TofImages, GammaBrightensIrButNotAmplitude) {
    CameraSettings linear, lifted;
    lifted.irGamma = 200;
    const FrameSet a = renderOne('0', 9, 0, linear), b = renderOne('0', 9, 0, lifted);
    EXPECT_EQ(a.amplitude, b.amplitude);
    EXPECT_GT(testing::meanOf(b.ir, kWallPatch), 2.0 * testing::meanOf(a.ir, kWallPatch));
    // IR follows amplitude monotonically: brighter surfaces look brighter.
    const double irBox = testing::meanOf(a.ir, kBoxFrontPatch), irWall = testing::meanOf(a.ir, kWallPatch);
    EXPECT_GT(testing::meanOf(a.amplitude, kBoxFrontPatch), testing::meanOf(a.amplitude, kWallPatch));
    EXPECT_GT(irBox, irWall);
}

TEST(TofExposure, AutoExposureConvergesFromEitherSide) {
    auto settle = [](int start) {
        FrameGenerator gen('0', 11);
        CameraSettings s;
        s.frameRate = 5;
        s.tofAutoExposure = true;
        s.tofExposureUs = start;
        FrameSet f;
        std::vector<int> seen;
        for (uint64_t n = 0; n < 25; ++n) {
            gen.render(n, s, f);
            seen.push_back(gen.effectiveExposureUs());
        }
        return seen;
    };
    const std::vector<int> fromDark = settle(20), fromBright = settle(4000);
    EXPECT_EQ(fromDark.front(), 20);
    EXPECT_EQ(fromBright.front(), 4000);
    const int a = fromDark.back(), b = fromBright.back();
    EXPECT_NEAR(a, b, 0.15 * b);
    EXPECT_GT(a, 20);
    EXPECT_LT(b, 4000);
    // Settled: the last frames barely move.
    EXPECT_NEAR(fromDark[fromDark.size() - 2], a, 0.05 * a);
}

TEST(TofExposure, FastModeIsNoisier) {
    CameraSettings normal, fast;
    fast.singleIntegral = true;
    FrameGenerator g1('0', 12), g2('0', 12);
    const double n1 = testing::temporalStd(g1, normal, kWallPatch, 6);
    const double n2 = testing::temporalStd(g2, fast, kWallPatch, 6);
    EXPECT_GT(n2, 1.2 * n1);
}

// Light that bounced off the floor reaches the wall pixels just above the
// corner by a longer path, so the corner reads too far and looks rounded.
TEST(TofDepth, MultipathPushesTheCornerBack) {
    FrameGenerator gen('0', 14);
    std::vector<float> gt;
    gen.renderGroundTruth(0, gt);
    FrameSet f;
    gen.render(0, CameraSettings{}, f);
    auto meanError = [&](const Region& r) {
        double sum = 0;
        int n = 0;
        for (int v = r.v0; v < r.v1; ++v)
            for (int u = r.u0; u < r.u1; ++u) {
                const size_t i = static_cast<size_t>(v) * kTofWidth + u;
                if (f.depth[i] == 0 || gt[i] != scene::kWallZ) continue;
                sum += f.depth[i] - gt[i];
                ++n;
            }
        return sum / n;
    };
    // The corner line is at row cy + fy * floorY / wallZ = 344.
    EXPECT_GT(meanError(Region{330, 330, 470, 342}), 5.0);
    EXPECT_LT(std::abs(meanError(kWallPatch)), 3.0);
}

TEST(TofDepth, DepthEdgesProduceFlyingPixels) {
    // Left edge of the box front (about column 161.7): wall at 3.5 m behind
    // the box at 2.3 m. Pixels straddling it measure a blend of both, which
    // lands at neither surface.
    FrameGenerator gen('0', 13);
    FrameSet f;
    gen.render(0, CameraSettings{}, f);
    std::vector<float> gt;
    gen.renderGroundTruth(0, gt);
    EXPECT_GT(testing::countEdgeOutliers(f.depth, gt), 40);
    // Away from edges the same test finds nothing: it is the edge, not noise.
    int flatOutliers = 0;
    for (int v = kWallPatch.v0; v < kWallPatch.v1; ++v)
        for (int u = kWallPatch.u0; u < kWallPatch.u1; ++u) {
            const size_t i = static_cast<size_t>(v) * kTofWidth + u;
            flatOutliers += std::abs(f.depth[i] - gt[i]) > 100.0f;
        }
    EXPECT_EQ(flatOutliers, 0);
}

}  // namespace
}  // namespace d3sim
