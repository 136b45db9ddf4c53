#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "cloudcamera.h"
#include "cloudframe.h"

namespace {

TEST(CloudPoints, ValidityRuleIsStrict) {
    const float nan = std::nanf("");
    const std::vector<float> xyz = {1, 2, 100, 3, 4, 100.01f, 5, 6, 14999.99f, 7, 8, 15000,
                                    9, 9, 0,   9, 9, -500,    9, 9, nan,       9, 9, 20000};
    const int n = int(xyz.size() / 3);
    std::vector<float> points(xyz.size(), -1.0f), depth(n, -1.0f);
    EXPECT_EQ(copyCloudPoints(xyz.data(), n, points.data(), depth.data()), 2);
    const std::vector<float> expectedPoints = {0, 0, 0, 3, 4, 100.01f, 5, 6, 14999.99f, 0, 0, 0,
                                               0, 0, 0, 0, 0, 0,       0, 0, 0,         0, 0, 0};
    const std::vector<float> expectedDepth = {0, 100.01f, 14999.99f, 0, 0, 0, 0, 0};
    EXPECT_EQ(points, expectedPoints);
    EXPECT_EQ(depth, expectedDepth);
}

TEST(CloudPoints, GridPerSourceWidth) {
    EXPECT_EQ(cloudGridFor(640).points(), 307200);
    EXPECT_EQ(cloudGridFor(1600).cols, 640);
    EXPECT_EQ(cloudGridFor(1600).rows, 480);
    EXPECT_EQ(cloudGridFor(1920).cols, 960);
    EXPECT_EQ(cloudGridFor(1920).points(), 518400);
}

// Each source point carries its own row and column, so the sample taken for
// a grid point shows which source point it came from.
RgbPointcloudData indexedFrame(unsigned cols, unsigned rows, float z = 1000) {
    RgbPointcloudData frame(rows, cols);
    for (unsigned r = 0; r < rows; ++r)
        for (unsigned c = 0; c < cols; ++c)
            frame.data()[r * cols + c] = {float(c), float(r), z, uint8_t(c), uint8_t(r), 7, 0};
    return frame;
}

struct Sampled {
    std::vector<float> points, depth;
    std::vector<uint8_t> colours;
    int valid;
};

Sampled sample(const RgbPointcloudData& frame, bool coloured) {
    const CloudGrid grid = cloudGridFor(frame.cols());
    Sampled s{std::vector<float>(grid.points() * 3, -1.f), std::vector<float>(grid.points(), -1.f),
              std::vector<uint8_t>(grid.points() * 3, 99), 0};
    s.valid = copyRgbCloudPoints(frame, grid, s.points.data(), s.depth.data(), coloured ? s.colours.data() : nullptr);
    return s;
}

TEST(CloudPoints, RgbSamplingSteps) {
    const Sampled full = sample(indexedFrame(1920, 1080), true);
    EXPECT_EQ(full.valid, 518400);
    const std::size_t last = 518399;  // grid (539, 959) <- source (1078, 1918)
    EXPECT_EQ(full.points[3 * last], 1918.f);
    EXPECT_EQ(full.points[3 * last + 1], 1078.f);
    EXPECT_EQ(full.colours[3 * 961], uint8_t(2));  // grid (1, 1) <- source column 2

    const Sampled uxga = sample(indexedFrame(1600, 1200), false);
    EXPECT_EQ(uxga.valid, 307200);
    const std::size_t k = 3 * 640 + 3;  // grid (3, 3) <- source (7, 7): step 2.5 truncated
    EXPECT_EQ(uxga.points[3 * k], 7.f);
    EXPECT_EQ(uxga.points[3 * k + 1], 7.f);
    EXPECT_EQ(uxga.points[3 * 307199], 1597.f);
    EXPECT_EQ(uxga.points[3 * 307199 + 1], 1197.f);
    EXPECT_EQ(uxga.colours[0], 99) << "colours untouched when coloured mode is off";

    // A 640-wide frame with more rows than the grid keeps only the first 307,200.
    const Sampled tall = sample(indexedFrame(640, 500), true);
    EXPECT_EQ(tall.valid, 307200);
    EXPECT_EQ(tall.points[3 * 307199 + 1], 479.f);
}

TEST(CloudPoints, RgbInvalidAndMissingPointsAreCleared) {
    RgbPointcloudData frame = indexedFrame(640, 480, 15000);  // all invalid
    frame.data()[5].z = 2000;
    Sampled s = sample(frame, true);
    EXPECT_EQ(s.valid, 1);
    EXPECT_EQ(s.points[0], 0.f);
    EXPECT_EQ(s.depth[0], 0.f);
    EXPECT_EQ(s.colours[0], 0);
    EXPECT_EQ(s.depth[5], 2000.f);
    EXPECT_EQ(s.colours[3 * 5 + 2], 7);

    RgbPointcloudData shortFrame = indexedFrame(640, 10);  // fewer rows than the grid
    s = sample(shortFrame, false);
    EXPECT_EQ(s.valid, 6400);
    EXPECT_EQ(s.depth[6400], 0.f);
    EXPECT_EQ(s.points[3 * 307199 + 2], 0.f);
}

TEST(CameraPresets, TableAndTallWindowCorrection) {
    // 270 / 347 is the best proportion itself: not above it, so no correction.
    CameraPreset p = cameraPreset(CAMERA_MAIN_VIEW, 347, 270);
    EXPECT_EQ(p.sproportion, kBestProportion);
    EXPECT_EQ(p.cameraAddDis, 0.0);
    EXPECT_EQ(p.position, (std::array<double, 3>{0, 0, -1200}));
    EXPECT_EQ(p.focalPoint, (std::array<double, 3>{0, 0, 800}));
    EXPECT_EQ(p.viewUp, (std::array<double, 3>{0, -1, 0}));

    p = cameraPreset(CAMERA_TOP_VIEW, 1920, 1080);
    EXPECT_EQ(p.cameraAddDis, 0.0);
    EXPECT_EQ(p.position, (std::array<double, 3>{0, -8000, 1000}));
    EXPECT_EQ(p.viewUp, (std::array<double, 3>{0, 0, 1}));

    const double add = (1.0 - kBestProportion) * 3000;  // a square window
    p = cameraPreset(CAMERA_NEAR_MAIN_VIEW, 600, 600);
    EXPECT_DOUBLE_EQ(p.cameraAddDis, add);
    EXPECT_DOUBLE_EQ(p.position[2], -1600 - add);
    p = cameraPreset(CAMERA_LEFT_VIEW, 600, 600);
    EXPECT_DOUBLE_EQ(p.position[0], -6000 - add);
    EXPECT_EQ(p.focalPoint, (std::array<double, 3>{0, 0, 1000}));
    EXPECT_EQ(p.viewUp, (std::array<double, 3>{0, -1, 0}));
    p = cameraPreset(CAMERA_TOP_VIEW, 600, 600);
    EXPECT_DOUBLE_EQ(p.position[1], -8000 - add);

    p = cameraPreset(7, 600, 600);  // unknown types act as the main view
    EXPECT_DOUBLE_EQ(p.position[2], -1200 - add);
    EXPECT_EQ(cameraPreset(CAMERA_MAIN_VIEW, 0, 500).cameraAddDis, 0.0);
}

}  // namespace
