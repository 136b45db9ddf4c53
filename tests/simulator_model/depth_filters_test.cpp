// Depth filters, first on hand-made images where the right answer is known,
// then through the generator where they must measurably clean real frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "DepthFilters.h"
#include "FrameGenerator.h"
#include "modeltesthelpers.h"

namespace d3sim {
namespace {

using testing::kWallPatch;

constexpr size_t kPixels = static_cast<size_t>(kTofWidth) * kTofHeight;
size_t idx(int u, int v) { return static_cast<size_t>(v) * kTofWidth + u; }

TEST(SpatialMedianFilter, RemovesSpikesKeepsHolesAndEdges) {
    std::vector<uint16_t> depth(kPixels, 2000), scratch;
    for (int v = 0; v < kTofHeight; ++v)
        for (int u = 320; u < kTofWidth; ++u) depth[idx(u, v)] = 3000;  // a straight step
    depth[idx(100, 100)] = 9000;                                        // spike
    depth[idx(200, 200)] = 0;                                           // hole
    depth[idx(201, 200)] = 0;
    for (int kernel : {3, 5, 7}) {
        std::vector<uint16_t> d = depth;
        spatialMedian(d.data(), kernel, scratch);
        EXPECT_EQ(d[idx(100, 100)], 2000) << kernel;
        EXPECT_EQ(d[idx(200, 200)], 0) << kernel;     // missing stays missing
        EXPECT_EQ(d[idx(202, 200)], 2000) << kernel;  // neighbours of a hole use the valid ones
        EXPECT_EQ(d[idx(319, 50)], 2000) << kernel;   // the step stays sharp
        EXPECT_EQ(d[idx(320, 50)], 3000) << kernel;
        EXPECT_EQ(d[idx(0, 0)], 2000) << kernel;  // corners use the clipped window
    }
    EXPECT_EQ(spatialKernelFor(3.0f), 3);
    EXPECT_EQ(spatialKernelFor(5.0f), 5);
    EXPECT_EQ(spatialKernelFor(7.0f), 7);
    EXPECT_EQ(spatialKernelFor(1.0f), 3);
}

// The fast paths (sorting network, running histogram) against the plain
// definition on a noisy image with holes and steps.
TEST(SpatialMedianFilter, MatchesTheDefinitionEverywhere) {
    std::mt19937 rng(7);
    std::vector<uint16_t> depth(kPixels), scratch;
    for (int v = 0; v < kTofHeight; ++v)
        for (int u = 0; u < kTofWidth; ++u) {
            const int base = u < 200 ? 1500 : (v < 240 ? 3500 : 2300);
            uint16_t d = static_cast<uint16_t>(base + static_cast<int>(rng() % 61) - 30);
            if (rng() % 25 == 0) d = 0;
            depth[idx(u, v)] = d;
        }
    for (int kernel : {3, 5, 7}) {
        std::vector<uint16_t> fast = depth;
        spatialMedian(fast.data(), kernel, scratch);
        const int r = kernel / 2;
        int mismatches = 0;
        // Every row, every third column: all window positions, borders included.
        for (int v = 0; v < kTofHeight; ++v)
            for (int u = v % 3; u < kTofWidth; u += 3) {
                uint16_t expected = 0;
                if (depth[idx(u, v)] != 0) {
                    std::vector<uint16_t> win;
                    for (int y = std::max(0, v - r); y <= std::min(kTofHeight - 1, v + r); ++y)
                        for (int x = std::max(0, u - r); x <= std::min(kTofWidth - 1, u + r); ++x)
                            if (depth[idx(x, y)] != 0) win.push_back(depth[idx(x, y)]);
                    std::nth_element(win.begin(), win.begin() + win.size() / 2, win.end());
                    expected = win[win.size() / 2];
                }
                mismatches += fast[idx(u, v)] != expected;
            }
        EXPECT_EQ(mismatches, 0) << "kernel " << kernel;
    }
}

TEST(FlyingPixelFilter, RemovesFloatingPixelsAndKeepsTheSilhouette) {
    std::vector<uint16_t> depth(kPixels, 2000), scratch;
    for (int v = 0; v < kTofHeight; ++v) {
        depth[idx(300, v)] = 2700;  // a blend of foreground and background
        for (int u = 301; u < kTofWidth; ++u) depth[idx(u, v)] = 3500;
    }
    depth[idx(50, 60)] = 4000;  // lone outlier
    flyingPixelFilter(depth.data(), 10.0f, scratch);
    EXPECT_EQ(depth[idx(300, 100)], 0);
    EXPECT_EQ(depth[idx(50, 60)], 0);
    EXPECT_EQ(depth[idx(299, 100)], 2000);  // the object's outermost pixel stays
    EXPECT_EQ(depth[idx(302, 100)], 3500);  // background away from the edge stays
    EXPECT_EQ(depth[idx(49, 60)], 2000);
    // A jump below the threshold is surface shape, not a flying pixel.
    std::vector<uint16_t> soft(kPixels, 2000);
    soft[idx(10, 10)] = 2150;
    flyingPixelFilter(soft.data(), 10.0f, scratch);
    EXPECT_EQ(soft[idx(10, 10)], 2150);
    flyingPixelFilter(soft.data(), 5.0f, scratch);
    EXPECT_EQ(soft[idx(10, 10)], 0);
}

TEST(TimeMedian, UsesOnlyTheNewestFrames) {
    TimeMedianFilter f;
    std::vector<uint16_t> frame(kPixels);
    const uint16_t seq[] = {1000, 5000, 1010, 0, 1020};
    std::vector<uint16_t> out;
    for (uint16_t value : seq) {
        std::fill(frame.begin(), frame.end(), value);
        out = frame;
        f.process(out.data(), 3, true);
    }
    // Last three frames: 1010, missing, 1020 -> median of the valid two.
    EXPECT_EQ(out[idx(7, 7)], 1020);
    f.reset();
    std::fill(frame.begin(), frame.end(), 4000);
    out = frame;
    f.process(out.data(), 3, true);
    EXPECT_EQ(out[0], 4000);  // history was cleared
    EXPECT_EQ(f.historySize(), 1);
    EXPECT_EQ(timeKernelFor(7.0f), 7);
    EXPECT_EQ(timeKernelFor(100.0f), TimeMedianFilter::kMaxKernel);
}

TEST(TimeMedian, MatchesTheDefinitionForEveryKernel) {
    std::mt19937 rng(3);
    std::vector<std::vector<uint16_t>> frames(TimeMedianFilter::kMaxKernel, std::vector<uint16_t>(kPixels));
    for (auto& f : frames)
        for (uint16_t& d : f) d = rng() % 8 == 0 ? 0 : static_cast<uint16_t>(2000 + rng() % 200);
    for (int kernel = 2; kernel <= TimeMedianFilter::kMaxKernel; ++kernel) {
        TimeMedianFilter filter;
        std::vector<uint16_t> out;
        for (const auto& f : frames) {
            out = f;
            filter.process(out.data(), kernel, true);
        }
        int mismatches = 0;
        for (size_t i = 0; i < kPixels; i += 7) {
            std::vector<uint16_t> valid;
            for (int j = 0; j < kernel; ++j) {
                const uint16_t d = frames[frames.size() - 1 - j][i];
                if (d != 0) valid.push_back(d);
            }
            uint16_t expected = 0;
            if (!valid.empty()) {
                std::nth_element(valid.begin(), valid.begin() + valid.size() / 2, valid.end());
                expected = valid[valid.size() / 2];
            }
            mismatches += out[i] != expected;
        }
        EXPECT_EQ(mismatches, 0) << "kernel " << kernel;
    }
}

TEST(ConfidenceFilter, DropsExactlyTheWeakPixels) {
    std::vector<uint16_t> depth(kPixels, 1500), amplitude(kPixels, 40);
    amplitude[5] = 14;
    amplitude[6] = 15;
    confidenceFilter(depth.data(), amplitude.data(), 15.0f);
    EXPECT_EQ(depth[5], 0);
    EXPECT_EQ(depth[6], 1500);
    EXPECT_EQ(depth[7], 1500);
}

// Through the generator: the filters change real frames the way they should.

TEST(FiltersOnFrames, TimeMedianLowersTemporalNoise) {
    CameraSettings plain, filtered;
    filtered.timeMedian = {true, 5.0f, 100.0f};
    FrameGenerator g1('0', 21), g2('0', 21);
    const double raw = testing::temporalStd(g1, plain, kWallPatch, 10);
    const double smooth = testing::temporalStd(g2, filtered, kWallPatch, 10);
    EXPECT_LT(smooth * 1.4, raw);
}

TEST(FiltersOnFrames, SpatialMedianLowersSpatialNoise) {
    CameraSettings s;
    FrameGenerator gen('0', 22);
    FrameSet f;
    gen.render(0, s, f);
    const double raw = testing::spatialStd(f.depth, kWallPatch);
    s.spatial = {true, 3.0f, 100.0f};
    gen.render(0, s, f);
    const double k3 = testing::spatialStd(f.depth, kWallPatch);
    s.spatial.value = 7.0f;
    gen.render(0, s, f);
    const double k7 = testing::spatialStd(f.depth, kWallPatch);
    EXPECT_LT(k3 * 1.5, raw);
    EXPECT_LT(k7, k3);
}

TEST(FiltersOnFrames, ConfidenceRemovesOnlyWeakPixels) {
    CameraSettings s;
    FrameSet before, after;
    FrameGenerator('0', 23).render(0, s, before);
    s.confidence = {true, 100.0f, 100.0f};
    FrameGenerator('0', 23).render(0, s, after);
    int removed = 0;
    for (size_t i = 0; i < kPixels; ++i) {
        if (before.amplitude[i] < 100) {
            EXPECT_EQ(after.depth[i], 0);
            removed += before.depth[i] != 0;
        } else {
            ASSERT_EQ(after.depth[i], before.depth[i]);
        }
    }
    EXPECT_GT(removed, 10000);  // the far floor and the side faces are weak
}

TEST(FiltersOnFrames, FlyingPixelFilterClearsObjectEdges) {
    CameraSettings s;
    FrameSet before, after;
    FrameGenerator('0', 24).render(0, s, before);
    s.flyPixel = {true, 5.0f, 100.0f};
    FrameGenerator('0', 24).render(0, s, after);
    std::vector<float> gt;
    FrameGenerator('0', 24).renderGroundTruth(0, gt);
    const int raw = testing::countEdgeOutliers(before.depth, gt),
              filtered = testing::countEdgeOutliers(after.depth, gt);
    EXPECT_GT(raw, 40);
    EXPECT_LT(filtered, raw / 10);
    // Flat surfaces are left alone.
    EXPECT_LT(testing::countZeros(after.depth, kWallPatch), testing::area(kWallPatch) / 100);
}

}  // namespace
}  // namespace d3sim
