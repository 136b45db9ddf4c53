// The frame buffers: sizes, the current-image choice and the point copy.
#include "framebuffers.h"

#include <gtest/gtest.h>

namespace {

// Each construction touches about 100 MB, so the fresh-state checks share one.
TEST(FrameBuffers, StartsWithEveryBufferAtItsFixedSizeZeroedAndFullHdSelected) {
    FrameBuffers f;
    EXPECT_EQ(f.rgbIndex(), 3);
    EXPECT_EQ(f.depthIndex(), 0);
    EXPECT_EQ(f.currentRgbImage().size(), QSize(1920, 1080));
    EXPECT_EQ(f.currentDepthImage().size(), QSize(640, 480));
    for (auto* c : {&f.depth, &f.amplitude}) {
        EXPECT_EQ(c->rows(), 480u);
        EXPECT_EQ(c->cols(), 640u);
    }
    EXPECT_EQ(f.ir.rows() * f.ir.cols(), 307200u);
    EXPECT_EQ(f.rgbPoints.rows() * f.rgbPointsCopy.cols(), 307200u);
    EXPECT_EQ(f.cloudBuffer.size(), 921600u);
    EXPECT_EQ(f.cloudBuffer.size() * sizeof(float), 3686400u);

    EXPECT_EQ(f.irImage.size(), QSize(640, 480));
    EXPECT_EQ(f.irImage.format(), QImage::Format_RGB32);
    EXPECT_EQ(f.irValues.rows(), 480);
    EXPECT_EQ(f.irValues.cols(), 640);

    const QSize rgb[] = {{640, 480}, {800, 600}, {1600, 1200}, {1920, 1080}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(f.rgbImages[i].size(), rgb[i]) << i;
        EXPECT_EQ(f.rgbImages[i].format(), QImage::Format_RGB32) << i;
        EXPECT_EQ(f.rgbValues[i].rows(), rgb[i].height()) << i;
        EXPECT_EQ(f.rgbValues[i].cols(), rgb[i].width()) << i;
    }
    const QSize depth[] = {{640, 480}, {1600, 1200}, {1920, 1080}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(f.depthImages[i].size(), depth[i]) << i;
        EXPECT_EQ(f.depthValues[i].rows(), depth[i].height()) << i;
        EXPECT_EQ(f.depthValues[i].cols(), depth[i].width()) << i;
    }

    const auto& m = f.depthValues[2];
    for (int y : {0, 539, 1079})
        for (int x : {0, 960, 1919}) EXPECT_EQ(m[y][x], 0.0);
    EXPECT_EQ(f.rgbValues[3][1079][1919], 0u);
    f.irValues[1][2] = 7.0;
    EXPECT_EQ(f.irValues.data()[640 + 2], 7.0) << "rows are laid out one after another";
}

TEST(FrameBuffers, SelectionFollowsReadKindAndColourWidth) {
    struct Case {
        const char* name;
        void (*select)(FrameBuffers&);
        QSize rgb, depth;
    };
    const Case cases[] = {
        {"tof 1920", [](FrameBuffers& f) { f.selectForTof(1920); }, {1920, 1080}, {640, 480}},
        {"tof 1600", [](FrameBuffers& f) { f.selectForTof(1600); }, {1600, 1200}, {640, 480}},
        {"tof other", [](FrameBuffers& f) { f.selectForTof(0); }, {1600, 1200}, {640, 480}},
        {"rgb->depth", [](FrameBuffers& f) { f.selectForRgbToDepth(); }, {640, 480}, {640, 480}},
        {"depth->rgb 1920", [](FrameBuffers& f) { f.selectForDepthToRgb(1920); }, {1920, 1080}, {1920, 1080}},
        {"depth->rgb 1600", [](FrameBuffers& f) { f.selectForDepthToRgb(1600); }, {1600, 1200}, {1600, 1200}},
    };
    FrameBuffers f;
    for (const Case& c : cases) {
        f.selectForRgbToDepth();  // start from a different choice than most cases expect
        c.select(f);
        EXPECT_EQ(f.currentRgbImage().size(), c.rgb) << c.name;
        EXPECT_EQ(f.currentDepthImage().size(), c.depth) << c.name;
        EXPECT_EQ(f.currentRgbValues().cols(), c.rgb.width()) << c.name;
        EXPECT_EQ(f.currentDepthValues().rows(), c.depth.height()) << c.name;
    }
}

TEST(FrameBuffers, CloudCopyTakesAtMostOneToFFrameAndKeepsTheTail) {
    FrameBuffers f;
    std::fill(f.cloudBuffer.begin(), f.cloudBuffer.end(), -1.0f);

    f.points.resize(10, 10);
    for (unsigned i = 0; i < 100; ++i) f.points.data()[i] = PointXYZ{float(i), float(i) + 0.5f, 1000.0f};
    EXPECT_EQ(f.copyPointsToCloud(), 100);
    EXPECT_EQ(f.cloudBuffer[3 * 99 + 1], 99.5f);
    EXPECT_EQ(f.cloudBuffer[3 * 100], -1.0f) << "points past a short frame stay as they were";

    f.points.resize(1000, 1000);  // a frame bigger than one ToF frame
    f.points.data()[307199] = PointXYZ{1, 2, 3};
    f.points.data()[307200] = PointXYZ{9, 9, 9};
    EXPECT_EQ(f.copyPointsToCloud(), 307200);
    EXPECT_EQ(f.cloudBuffer[921599], 3.0f);
}

}  // namespace
