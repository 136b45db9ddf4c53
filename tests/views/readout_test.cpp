#include <gtest/gtest.h>

#include "readout.h"

namespace {

TEST(ReadoutPixel, EdgesAndTruncation) {
    const QSize size(640, 480);
    EXPECT_EQ(readoutPixel(size, QPointF(0, 0)), QPoint(0, 0));
    EXPECT_EQ(readoutPixel(size, QPointF(1, 1)), QPoint(639, 479));
    EXPECT_EQ(readoutPixel(size, QPointF(0.5, 0.5)), QPoint(319, 239));  // 319.5, 239.5 truncate
    // The same normalised click lands on the same relative spot of a larger image.
    EXPECT_EQ(readoutPixel(QSize(1920, 1080), QPointF(0.5, 0.5)), QPoint(959, 539));
}

TEST(FrameRate, DisplayRule) {
    EXPECT_EQ(displayedFps(0.0), 0);
    EXPECT_EQ(displayedFps(29.2), 29);
    EXPECT_EQ(displayedFps(29.31), 30);
    EXPECT_EQ(displayedFps(24.5), 25);
    EXPECT_EQ(displayedFps(10.25), 10);
    EXPECT_EQ(displayedFps(9.99), 10);
    EXPECT_EQ(fpsText(25), QStringLiteral("25fps"));
}

TEST(FrameRate, TwoSecondWindow) {
    FrameRateMeter meter;
    // 30 frames a second: the window closes at the first frame past 2 s,
    // having counted the 61 frames before it.
    const int64_t period = 33333;
    int closedAt = -1;
    for (int k = 0; k <= 61 && closedAt < 0; ++k) {
        if (meter.tick(k * period)) closedAt = k;
        if (closedAt < 0) {
            EXPECT_EQ(meter.rate(), 0.0);
        }
    }
    EXPECT_EQ(closedAt, 61);
    EXPECT_NEAR(meter.rate(), 61 / (61 * period / 1e6), 1e-9);
    EXPECT_EQ(meter.displayed(), 30);
    // The next window starts with the closing frame counted as its first.
    for (int k = 62; k <= 122; ++k) {
        const bool closed = meter.tick(k * period);
        EXPECT_EQ(closed, k == 122) << k;
    }
    EXPECT_NEAR(meter.rate(), 61 / (61 * period / 1e6), 1e-9);
}

TEST(FrameRate, ExactlyTwoSecondsIsNotAbove) {
    FrameRateMeter meter;
    EXPECT_FALSE(meter.tick(5'000'000));
    EXPECT_FALSE(meter.tick(7'000'000));
    EXPECT_TRUE(meter.tick(7'000'001));
    EXPECT_NEAR(meter.rate(), 2 / 2.000001, 1e-12);
    EXPECT_EQ(meter.displayed(), 1);  // 0.999999: fraction above 0.3 rounds up
}

}  // namespace
