#include <gtest/gtest.h>

#include <vector>

#include "Registration.h"
#include "intrinsics.h"

using d3sdk::Extrinsics;
using d3sdk::Registration;

namespace {

constexpr unsigned kW = 640, kH = 480, kRgbW = 1920, kRgbH = 1080;

// Left half of the depth image a near wall at 1000 mm, right half a far wall
// at 2000 mm. The colour camera has twice the focal length and sits `baseline`
// mm along +x, so a ToF point maps to ur = 2(u-320) + 960 - 1000*baseline/z.
struct StepScene {
    explicit StepScene(float baseline, bool nearLeft = true) : depth(kW * kH), registered(kRgbW * kRgbH) {
        for (unsigned v = 0; v < kH; ++v)
            for (unsigned u = 0; u < kW; ++u) depth[v * kW + u] = (u < 320) == nearLeft ? 1000 : 2000;
        Extrinsics e;
        e.t[0] = -baseline;
        reg.configure(intrinsics(500, 320, 240), kW, kH, intrinsics(1000, 960, 540), kRgbW, kRgbH, e);
        reg.depthToRgb(depth.data(), registered.data());
    }
    uint16_t at(unsigned u, unsigned v) const { return registered[v * kRgbW + u]; }

    std::vector<uint16_t> depth;
    std::vector<uint16_t> registered;
    Registration reg;
};

}  // namespace

// Near wall ends at ur ~ 909, far wall starts at ur ~ 935; between them the
// colour camera sees background the ToF camera cannot (no depth).
TEST(Registration, DepthToRgbPutsEdgeAndShadowWhereGeometrySays) {
    StepScene s(50.0f);
    const unsigned v = 540;
    EXPECT_EQ(s.at(900, v), 1000);
    EXPECT_EQ(s.at(906, v), 1000);
    for (unsigned u = 913; u <= 931; ++u) EXPECT_EQ(s.at(u, v), 0) << "u=" << u;
    EXPECT_EQ(s.at(938, v), 2000);
    EXPECT_EQ(s.at(1500, v), 2000);
    // The near wall (ToF columns 0..319 -> ur 270..908) covers its part of
    // the colour image without pinholes, and nothing lies left of it.
    for (unsigned vv = 300; vv < 800; ++vv)
        for (unsigned u = 272; u < 906; ++u) ASSERT_EQ(s.at(u, vv), 1000) << u << "," << vv;
    EXPECT_EQ(s.at(266, v), 0);
    // Vertical placement: the ToF image spans rows 60..1018 in the colour image.
    EXPECT_EQ(s.at(500, 50), 0);
    EXPECT_EQ(s.at(500, 70), 1000);
    EXPECT_EQ(s.at(500, 1010), 1000);
    EXPECT_EQ(s.at(500, 1030), 0);
}

// With the colour camera on the other side, the near wall hides the first far
// columns from it: those ToF pixels must not take the near wall's colour.
TEST(Registration, RgbToDepthBlanksPixelsOccludedInColourView) {
    StepScene s(-50.0f);
    std::vector<RGB888Pixel> rgb(kRgbW * kRgbH);
    for (unsigned v = 0; v < kRgbH; ++v)
        for (unsigned u = 0; u < kRgbW; ++u) rgb[v * kRgbW + u] = RGB888Pixel{uint8_t(u & 0xff), uint8_t(u >> 8), 7};
    std::vector<RGB888Pixel> aligned(kW * kH);
    s.reg.rgbToDepth(s.depth.data(), s.registered.data(), rgb.data(), aligned.data());

    auto colourColumn = [&](unsigned u) {
        const RGB888Pixel c = aligned[240 * kW + u];
        return c.b == 7 ? int(c.r) + 256 * int(c.g) : -1;
    };
    EXPECT_EQ(colourColumn(100), 2 * (100 - 320) + 1010);  // near wall visible
    EXPECT_EQ(colourColumn(319), 2 * (319 - 320) + 1010);
    EXPECT_EQ(colourColumn(322), -1);  // far wall behind the near one
    EXPECT_EQ(colourColumn(328), -1);
    EXPECT_EQ(colourColumn(340), 2 * (340 - 320) + 985);  // far wall visible again
}

// Both walls land on the same colour pixels; the near one must win whichever
// the loop meets first.
TEST(Registration, NearestSurfaceWinsWhateverTheOrder) {
    StepScene nearFirst(-50.0f, true);  // far u=320..331 overlaps near at ur 985..1008
    EXPECT_EQ(nearFirst.at(995, 540), 1000);
    StepScene farFirst(50.0f, false);  // far u=307..319 overlaps near at ur 910..933
    EXPECT_EQ(farFirst.at(920, 540), 1000);
    EXPECT_EQ(farFirst.at(900, 540), 2000);
}

TEST(Registration, ColouredPointsKeepIntensityOfTheirDepthPixel) {
    Registration reg;
    reg.configure(intrinsics(500, 1.5f, 1.5f), 4, 4, intrinsics(500, 1.5f, 1.5f), 4, 4, Extrinsics{});
    std::vector<uint16_t> depth(16, 0);
    depth[5] = 3000;
    depth[6] = 800;
    std::vector<uint16_t> out(16);
    reg.depthToRgb(depth.data(), out.data());
    EXPECT_EQ(out[5], 3000);
    EXPECT_EQ(out[6], 800);
    EXPECT_EQ(out[0], 0);

    std::vector<uint8_t> ir(16);
    for (unsigned i = 0; i < 16; ++i) ir[i] = uint8_t(10 * i);
    std::vector<RGB888Pixel> rgb(16, RGB888Pixel{1, 2, 3});
    std::vector<PointXYZRGBI> pts(16);
    EXPECT_EQ(reg.colouredRgbPoints(out.data(), rgb.data(), ir.data(), pts.data()), 2u);
    EXPECT_EQ(pts[6].i, 60);
    EXPECT_EQ(pts[5].i, 50);
    EXPECT_FLOAT_EQ(pts[6].z, 800.0f);
    EXPECT_EQ(pts[6].g, 2);
    EXPECT_FLOAT_EQ(pts[0].z, 0.0f);

    std::vector<PointXYZRGBI> tofPts(16);
    EXPECT_EQ(reg.colouredTofPoints(depth.data(), rgb.data(), ir.data(), tofPts.data()), 2u);
    EXPECT_EQ(tofPts[5].i, 50);
    EXPECT_FLOAT_EQ(tofPts[5].x, (1.0f - 1.5f) * 3000.0f / 500.0f);
}
