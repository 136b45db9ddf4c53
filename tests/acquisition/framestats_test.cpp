// The depth histogram, its percentiles and region statistics against values
// worked out by hand.
#include "framestats.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

std::vector<uint32_t> counted(const std::vector<uint16_t>& depths) {
    std::vector<uint32_t> counts;
    countDepths(depths.data(), depths.size(), counts);
    return counts;
}

}  // namespace

TEST(DepthPercentiles, NearestRankOverMeasuredDepthsOnly) {
    // 100 measured depths 1001..1100 and 50 pixels without a measurement.
    std::vector<uint16_t> d(50, 0);
    for (uint16_t v = 1001; v <= 1100; ++v) d.push_back(v);
    const std::vector<uint32_t> c = counted(d);
    EXPECT_EQ(c[0], 50u);
    EXPECT_EQ(depthPercentile(c, 0.01), 1001);  // rank 1
    EXPECT_EQ(depthPercentile(c, 0.99), 1099);  // rank 99
    EXPECT_EQ(depthPercentile(c, 0.5), 1050);
    EXPECT_EQ(depthPercentile(c, 1.0), 1100);

    // Ranks fall on repeated values: 3 x 500, 1 x 900; 99 % of 4 is rank 4.
    const std::vector<uint32_t> r = counted({500, 900, 500, 500});
    EXPECT_EQ(depthPercentile(r, 0.01), 500);
    EXPECT_EQ(depthPercentile(r, 0.75), 500);
    EXPECT_EQ(depthPercentile(r, 0.99), 900);

    EXPECT_EQ(depthPercentile(counted({0, 0, 0}), 0.5), -1);
    // A single measurement is every percentile.
    EXPECT_EQ(depthPercentile(counted({0, 65535}), 0.01), 65535);
}

TEST(DepthHistogram, BinsBy10mmAndKeepsFarDepthsInTheLastBin) {
    DepthHistogram h;
    // A counts table reused for a second frame must not keep the first one's counts.
    std::vector<uint32_t> c;
    const std::vector<uint16_t> first{7000, 7000, 7000};
    countDepths(first.data(), first.size(), c);
    const std::vector<uint16_t> d{0, 0, 9, 10, 19, 1234, 15990, 15999, 16000, 40000};
    countDepths(d.data(), d.size(), c);
    fillHistogram(c, h);
    EXPECT_EQ(h.invalid, 2u);
    EXPECT_EQ(h.valid, 8u);
    EXPECT_EQ(h.bins[0], 1u);  // 9
    EXPECT_EQ(h.bins[1], 2u);  // 10, 19
    EXPECT_EQ(h.bins[123], 1u);
    EXPECT_EQ(h.bins[700], 0u);
    EXPECT_EQ(h.bins[1599], 4u);  // 15990, 15999 and the two beyond 16 m
    EXPECT_EQ(h.low, 9);
    EXPECT_EQ(h.high, 40000);

    fillHistogram(counted({0, 0}), h);
    EXPECT_EQ(h.valid, 0u);
    EXPECT_EQ(h.low, -1);
    EXPECT_EQ(h.high, -1);
}

TEST(Regions, AreCutToThePictureWhicheverWayTheyWereDragged) {
    const PixelRect r = regionInImage(8, 6, 2, 1, 640, 480);
    EXPECT_EQ(r.left, 2);
    EXPECT_EQ(r.top, 1);
    EXPECT_EQ(r.width(), 7);
    EXPECT_EQ(r.height(), 6);
    const PixelRect cut = regionInImage(-5, 470, 700, 500, 640, 480);
    EXPECT_EQ(cut.left, 0);
    EXPECT_EQ(cut.right, 639);
    EXPECT_EQ(cut.height(), 10);
    EXPECT_TRUE(regionInImage(700, 10, 800, 20, 640, 480).empty());
    EXPECT_EQ(regionInImage(3, 3, 3, 3, 640, 480).width(), 1);
}

TEST(RegionStatistics, DepthLeavesOutPixelsWithoutMeasurement) {
    // 4 x 3 picture; the region is the middle 2 x 2 plus the right column.
    const std::vector<double> v{1, 2,    3,    4,  //
                                5, 1000, 0,    8,  //
                                9, 1002, 1006, 0};
    const RegionStats s = regionStats(v.data(), 4, regionInImage(1, 1, 3, 2, 4, 3), true);
    EXPECT_EQ(s.pixels, 6u);
    EXPECT_EQ(s.valid, 4u);  // 1000, 8, 1002, 1006
    EXPECT_DOUBLE_EQ(s.validShare(), 4.0 / 6.0);
    EXPECT_DOUBLE_EQ(s.mean, 754.0);
    // Deviations 246, -746, 248, 252: population variance 742 040 / 4 = 185 510.
    EXPECT_NEAR(s.stddev, std::sqrt(185510.0), 1e-9);
    EXPECT_EQ(s.min, 8);
    EXPECT_EQ(s.max, 1006);

    // IR: a zero is a dark pixel, not a missing one.
    const RegionStats ir = regionStats(v.data(), 4, regionInImage(1, 1, 3, 2, 4, 3), false);
    EXPECT_EQ(ir.valid, 6u);
    EXPECT_EQ(ir.min, 0);
    EXPECT_DOUBLE_EQ(ir.validShare(), 1.0);
}

TEST(RegionStatistics, EdgeCases) {
    const std::vector<double> v{0, 0, 0, 0, 4321, 0};
    // All invalid: nothing to average, and a share of 0.
    const RegionStats none = regionStats(v.data(), 3, regionInImage(0, 0, 2, 0, 3, 2), true);
    EXPECT_EQ(none.pixels, 3u);
    EXPECT_EQ(none.valid, 0u);
    EXPECT_EQ(none.validShare(), 0.0);
    EXPECT_EQ(none.mean, 0.0);
    // One pixel: itself, with no spread.
    const RegionStats one = regionStats(v.data(), 3, regionInImage(1, 1, 1, 1, 3, 2), true);
    EXPECT_EQ(one.valid, 1u);
    EXPECT_EQ(one.mean, 4321.0);
    EXPECT_EQ(one.stddev, 0.0);
    EXPECT_EQ(one.min, 4321.0);
    EXPECT_EQ(one.max, 4321.0);
    // Outside the picture: no pixel at all.
    const RegionStats outside = regionStats(v.data(), 3, regionInImage(5, 5, 9, 9, 3, 2), true);
    EXPECT_EQ(outside.pixels, 0u);
    EXPECT_EQ(outside.validShare(), 0.0);

    // A large mean with a small spread loses nothing to rounding:
    // 1 000 000 pixels of 60000 and 60002 alternating have deviation exactly 1.
    std::vector<double> big(1000000);
    for (size_t i = 0; i < big.size(); ++i) big[i] = i % 2 ? 60002 : 60000;
    const RegionStats b = regionStats(big.data(), 1000, regionInImage(0, 0, 999, 999, 1000, 1000), true);
    EXPECT_EQ(b.mean, 60001.0);
    EXPECT_EQ(b.stddev, 1.0);
}

TEST(RegionStatistics, ColourPerChannel) {
    // 2 x 1 pixels: (10, 200, 0) and (30, 100, 255).
    const std::vector<uint32_t> px{0xFF0AC800u, 0xFF1E64FFu};
    const auto s = regionStatsRgb(px.data(), 2, regionInImage(0, 0, 1, 0, 2, 1));
    EXPECT_EQ(s[0].mean, 20.0);
    EXPECT_EQ(s[0].stddev, 10.0);
    EXPECT_EQ(s[1].mean, 150.0);
    EXPECT_EQ(s[1].min, 100.0);
    EXPECT_EQ(s[2].max, 255.0);
    EXPECT_EQ(s[2].stddev, 127.5);
    EXPECT_EQ(s[2].validShare(), 1.0);
}
