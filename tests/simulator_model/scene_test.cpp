// The noise-free scene, through the generator's ground-truth render: the
// facts other tests (and other teams' network tests) rely on.
#include "Scene.h"

#include <gtest/gtest.h>

#include <cmath>

#include "FrameGenerator.h"

namespace d3sim {
namespace {

float at(const std::vector<float>& img, int u, int v) { return img[static_cast<size_t>(v) * kTofWidth + u]; }

class GroundTruthTest : public ::testing::Test {
protected:
    void SetUp() override { gen.renderGroundTruth(0, gt); }
    FrameGenerator gen{'0', 1};
    std::vector<float> gt;
};

TEST_F(GroundTruthTest, PlanesSitWhereTheSceneSays) {
    ASSERT_EQ(gt.size(), static_cast<size_t>(kTofWidth) * kTofHeight);
    const Intrinsics k = gen.tofIntrinsics();
    for (int u : {0, 100, 320, 460}) EXPECT_FLOAT_EQ(at(gt, u, 50), scene::kWallZ) << u;
    // The floor below the camera: Z = height * fy / (v - cy) on every row it fills.
    for (int v : {420, 450, 479}) {
        const float expected = scene::kFloorY * k.fy / (v - k.cy);
        EXPECT_NEAR(at(gt, 20, v), expected, 0.01f * expected) << v;
        EXPECT_NEAR(at(gt, 620, v), expected, 0.01f * expected) << v;
    }
    EXPECT_FLOAT_EQ(at(gt, 220, 310), scene::kBox.min.z);
    EXPECT_FLOAT_EQ(at(gt, 200, 400), scene::kPallet.min.z);
}

TEST_F(GroundTruthTest, BoxFrontEdgeProjectsThroughIntrinsics) {
    const Intrinsics k = gen.tofIntrinsics();
    const float edgeU = k.cx + k.fx * scene::kBox.min.x / scene::kBox.min.z;  // left edge, wall behind
    const int row = 310;
    const int inside = static_cast<int>(std::ceil(edgeU));
    EXPECT_FLOAT_EQ(at(gt, inside, row), scene::kBox.min.z);
    EXPECT_FLOAT_EQ(at(gt, inside - 1, row), scene::kWallZ);
}

TEST_F(GroundTruthTest, OnlyTheSphereMoves) {
    std::vector<float> later;
    gen.renderGroundTruth(150, later);  // a quarter period: the sphere has rolled right
    int changed = 0;
    for (int v = 0; v < kTofHeight; ++v)
        for (int u = 0; u < kTofWidth; ++u)
            if (at(gt, u, v) != at(later, u, v)) {
                ++changed;
                EXPECT_TRUE(at(gt, u, v) < scene::kSphereZ + scene::kSphereRadius ||
                            at(later, u, v) < scene::kSphereZ + scene::kSphereRadius)
                    << u << "," << v;
            }
    EXPECT_GT(changed, 1000);
    const Vec3 c = Scene::sphereCenterAt(150);
    EXPECT_NEAR(c.x, scene::kSphereMidX + scene::kSphereSwingX, 0.01f);
    // The pixel looking at the centre sees the nearest point of the sphere.
    const Intrinsics k = gen.tofIntrinsics();
    const int u = static_cast<int>(std::lround(k.cx + k.fx * c.x / c.z));
    const int v = static_cast<int>(std::lround(k.cy + k.fy * c.y / c.z));
    EXPECT_NEAR(at(later, u, v), c.z - scene::kSphereRadius * c.z / std::sqrt(c.x * c.x + c.y * c.y + c.z * c.z),
                15.0f);
}

TEST_F(GroundTruthTest, SceneIsPeriodicAndFrameAddressed) {
    std::vector<float> again;
    gen.renderGroundTruth(static_cast<uint64_t>(scene::kSpherePeriodFrames), again);
    EXPECT_EQ(gt, again);
}

}  // namespace
}  // namespace d3sim
