// What arrives is the scene the camera looks at: right units, byte order and
// orientation, points consistent with depth, registration consistent with the
// scene's geometry, and settings that change the frames.
#include <chrono>
#include <cmath>
#include <thread>

#include "d3_sdk/Extensions.h"
#include "model/Scene.h"
#include "networkfixture.h"
#include "waituntil.h"

using sdktest::patchMedian;
using sdktest::startCameras;
namespace scene = d3sim::scene;

namespace {

class FrameContent : public testing::Test {
protected:
    static void SetUpTestSuite() { cams_ = startCameras("127.0.78.2", 48762, {'3'}).release(); }
    static void TearDownTestSuite() {
        DeviceManager::GetInstance().DisconnectFromDevice();
        delete cams_;
    }
    void SetUp() override {
        dm.SetTimeout(3000);
        ASSERT_EQ(dm.InitDevice((*cams_)[0].deviceString(), true), SUCCESS);
        ASSERT_EQ(dm.GetTofCameraIntrinsicParam(k), SUCCESS);
        ASSERT_EQ(dm.SetTofCameraExposureTime(1000), SUCCESS);
        ASSERT_EQ(dm.StartStream(), SUCCESS);
    }
    void TearDown() override { dm.DisconnectFromDevice(); }

    // Pixel of a scene point (ToF frame, mm) in an image with intrinsics p.
    static float column(float x, float z, const CameraIntrinsicParam& p) { return p.fx * x / z + p.cx; }
    static float row(float y, float z, const CameraIntrinsicParam& p) { return p.fy * y / z + p.cy; }

    static d3sim::SimulatedCameras* cams_;
    DeviceManager& dm = DeviceManager::GetInstance();
    CameraIntrinsicParam k{};
};
d3sim::SimulatedCameras* FrameContent::cams_ = nullptr;

}  // namespace

TEST_F(FrameContent, DepthShowsWallFloorAndBoxWhereTheSceneHasThem) {
    DataContainer<uint16_t> depth;
    ASSERT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    // Back wall above everything else in the middle of the top rows.
    EXPECT_NEAR(patchMedian(depth, 316, 40, 9, 9), scene::kWallZ, 40);
    // The floor near the bottom-left: z = floorY * fy / (v - cy). Varies with
    // the row, not the column, which a transposed image would not do.
    const unsigned v = 470;
    const float floorZ = scene::kFloorY * k.fy / (float(v) - k.cy);
    EXPECT_NEAR(patchMedian(depth, 40, v - 2, 5, 5), floorZ, floorZ * 0.03f);
    EXPECT_NEAR(patchMedian(depth, 120, v - 2, 5, 5), floorZ, floorZ * 0.03f);
    // The box's front face and, right of its (obliquely seen) side face, the wall.
    const float yMid = 0.5f * (scene::kBox.min.y + scene::kBox.max.y);
    const float zFront = scene::kBox.min.z;
    const unsigned boxRow = unsigned(row(yMid, zFront, k));
    const float edge = column(scene::kBox.max.x, zFront, k);
    EXPECT_NEAR(patchMedian(depth, unsigned(edge) - 12, boxRow - 2, 5, 5), zFront, 40);
    EXPECT_NEAR(patchMedian(depth, unsigned(edge) + 14, boxRow - 2, 5, 5), scene::kWallZ, 60);
}

TEST_F(FrameContent, PointsAgreeWithDepthAndIntrinsics) {
    DataContainer<uint16_t> depth;
    DataContainer<PointXYZ> points;
    ASSERT_EQ(dm.GetTofData(&depth, &points, nullptr, nullptr), SUCCESS);
    ASSERT_EQ(points.cols(), depth.cols());
    unsigned valid = 0;
    for (unsigned v = 0; v < depth.rows(); v += 7)
        for (unsigned u = 0; u < depth.cols(); u += 5) {
            const size_t i = size_t(v) * depth.cols() + u;
            const float z = depth.data()[i];
            const PointXYZ& p = points.data()[i];
            ASSERT_FLOAT_EQ(p.z, z);
            ASSERT_NEAR(p.x, (float(u) - k.cx) * z / k.fx, 0.01f + 1e-5f * z);
            ASSERT_NEAR(p.y, (float(v) - k.cy) * z / k.fy, 0.01f + 1e-5f * z);
        }
    for (size_t i = 0; i < size_t(depth.rows()) * depth.cols(); ++i) valid += depth.data()[i] != 0;
    EXPECT_EQ(points.getNumberSize(), valid);
}

// The box's left front edge (x = -700 mm, z = 2300 mm) is a clean silhouette
// against the back wall for both cameras. The colour camera sits 25 mm to the
// right, so the edge must land at u = cx + fx * (-725) / 2300 in the colour
// image: a wrong baseline (15 px), sign (30 px) or scale moves it.
TEST_F(FrameContent, DepthToRgbPutsTheBoxEdgeAtItsColourPixel) {
    ASSERT_EQ(dm.ConvertDepthToRgbEnable(true), SUCCESS);
    DataContainer<uint16_t> registered;
    ASSERT_EQ(dm.GetDepthToRgbData(registered, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), SUCCESS);
    ASSERT_EQ(registered.cols(), 1920u);
    ASSERT_EQ(registered.rows(), 1080u);
    const float fx = 1400, cx = 960, cy = 540;  // colour camera of model 3
    const float zFront = scene::kBox.min.z;
    const float yMid = 0.5f * (scene::kBox.min.y + scene::kBox.max.y);
    const float edge = cx + fx * (scene::kBox.min.x - 25.0f) / zFront;  // ~518.7
    const unsigned r = unsigned(cy + fx * yMid / zFront);
    EXPECT_NEAR(patchMedian(registered, unsigned(edge) - 14, r - 3, 7, 7), scene::kWallZ, 60);
    EXPECT_NEAR(patchMedian(registered, unsigned(edge) + 10, r - 3, 7, 7), zFront, 40);
    // Per row: the first column from which the box's face continues.
    for (unsigned y = r - 40; y <= r + 40; y += 10) {
        const uint16_t* row = registered.data() + size_t(y) * registered.cols();
        auto onBox = [&](unsigned u) { return std::abs(int(row[u]) - int(zFront)) < 60; };
        unsigned first = 0;
        for (unsigned u = unsigned(edge) + 20; u > unsigned(edge) - 20 && onBox(u); --u) first = u;
        EXPECT_NEAR(float(first), edge, 3.0f) << "row " << y;
    }
}

TEST_F(FrameContent, LongerExposureGivesMoreAmplitude) {
    DataContainer<uint16_t> amplitude;
    d3sim::CameraServer& cam = (*cams_)[0];
    auto wallAmplitude = [&] {
        // Frames already rendered or on their way predate the change. The
        // camera counts a frame once it is written or dropped; one rendering,
        // one waiting and two in the socket are not counted yet, so every
        // frame from five past the count is rendered with the new exposure.
        // Once one of those reached the reader, the next it reads is too.
        const d3sim::CameraServer::Stats made = cam.stats();
        const uint32_t firstNew = uint32_t(made.framesSent + made.framesDropped) + 5;
        EXPECT_TRUE(d3test::waitUntil([&] {
            d3sdk::StreamStats seen;
            return dm.GetTofData(nullptr, nullptr, nullptr, &amplitude) == SUCCESS &&
                   d3sdk::GetStreamStats(seen) == SUCCESS && seen.lastFrameId >= firstNew;
        }));
        EXPECT_EQ(dm.GetTofData(nullptr, nullptr, nullptr, &amplitude), SUCCESS);
        return float(patchMedian(amplitude, 316, 40, 9, 9));
    };
    ASSERT_EQ(dm.SetTofCameraExposureTime(200), SUCCESS);
    const float low = wallAmplitude();
    ASSERT_EQ(dm.SetTofCameraExposureTime(800), SUCCESS);
    const float high = wallAmplitude();
    EXPECT_GT(low, 0.0f);
    EXPECT_GT(high, 2.5f * low);  // amplitude grows with exposure
}

// The timing extension names the frame the calling thread was handed last,
// ready before the call returned; a thread that read nothing has none.
TEST_F(FrameContent, LastFrameTimingIsTheCallingThreadsLastFrame) {
    d3sdk::FrameTiming t;
    DataContainer<uint16_t> depth;
    ASSERT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    const auto returned = std::chrono::steady_clock::now();
    ASSERT_TRUE(d3sdk::GetLastFrameTiming(t));
    EXPECT_LE(t.ready, returned);
    const d3sdk::FrameTiming first = t;
    std::thread([] {
        d3sdk::FrameTiming other;
        EXPECT_FALSE(d3sdk::GetLastFrameTiming(other));
    }).join();
    ASSERT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    ASSERT_TRUE(d3sdk::GetLastFrameTiming(t));
    EXPECT_GT(t.frameId, first.frameId);
    EXPECT_GT(t.ready, first.ready);
}
