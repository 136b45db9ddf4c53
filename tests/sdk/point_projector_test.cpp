#include <gtest/gtest.h>

#include <vector>

#include "PointProjector.h"
#include "intrinsics.h"

using d3sdk::PointProjector;

// Different fx/fy and an off-centre pixel so swapped axes or swapped u/v show.
TEST(PointProjector, BackProjectsPixelsInMillimetres) {
    PointProjector p;
    p.configure(intrinsics(500, 400, 320, 240), 640, 480);
    std::vector<uint16_t> depth(640 * 480, 0);
    depth[140 * 640 + 420] = 1000;  // u=420, v=140
    depth[479 * 640 + 0] = 2000;    // bottom-left corner
    std::vector<PointXYZ> pts(depth.size());
    EXPECT_EQ(p.compute(depth.data(), pts.data()), 2u);

    const PointXYZ& a = pts[140 * 640 + 420];
    EXPECT_FLOAT_EQ(a.x, 200.0f);   // (420-320)*1000/500
    EXPECT_FLOAT_EQ(a.y, -250.0f);  // (140-240)*1000/400
    EXPECT_FLOAT_EQ(a.z, 1000.0f);
    const PointXYZ& b = pts[479 * 640];
    EXPECT_FLOAT_EQ(b.x, -1280.0f);  // (0-320)*2000/500
    EXPECT_FLOAT_EQ(b.y, 1195.0f);   // (479-240)*2000/400
    EXPECT_FLOAT_EQ(b.z, 2000.0f);
}

TEST(PointProjector, InvalidDepthGivesZeroPoint) {
    PointProjector p;
    p.configure(intrinsics(520, 520, 320, 240), 640, 480);
    std::vector<uint16_t> depth(640 * 480, 1500);
    depth[0] = 0;
    depth[1000] = 0;
    std::vector<PointXYZ> pts(depth.size(), PointXYZ{7, 7, 7});
    EXPECT_EQ(p.compute(depth.data(), pts.data()), 640u * 480u - 2u);
    for (size_t i : {size_t(0), size_t(1000)}) {
        EXPECT_EQ(pts[i].x, 0.0f);
        EXPECT_EQ(pts[i].y, 0.0f);
        EXPECT_EQ(pts[i].z, 0.0f);
    }
}

// The tables are cached; new intrinsics or a new size must rebuild them.
TEST(PointProjector, ReconfigureRebuildsTables) {
    PointProjector p;
    p.configure(intrinsics(500, 500, 320, 240), 640, 480);
    p.configure(intrinsics(250, 500, 100, 240), 640, 480);
    EXPECT_FLOAT_EQ(p.rayX(350), 1.0f);
    p.configure(intrinsics(250, 500, 100, 240), 4, 2);
    EXPECT_EQ(p.width(), 4u);
    std::vector<uint16_t> depth = {1, 2, 3, 4, 5, 6, 7, 8};
    std::vector<PointXYZ> pts(8);
    EXPECT_EQ(p.compute(depth.data(), pts.data()), 8u);
    EXPECT_FLOAT_EQ(pts[7].z, 8.0f);
    EXPECT_FLOAT_EQ(pts[7].x, (3.0f - 100.0f) * 8.0f / 250.0f);
}
