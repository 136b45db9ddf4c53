// The health strip's figures and the loss alarm against hand-worked counters.
#include "streamhealth.h"

#include <gtest/gtest.h>

namespace {

StreamStatistics counters(uint64_t complete, uint64_t dropped, uint64_t bytes, uint64_t received, uint64_t lost,
                          uint64_t recovered) {
    StreamStatistics s;
    s.framesComplete = complete;
    s.framesDropped = dropped;
    s.bytesReceived = bytes;
    s.udp = true;
    s.packetsReceived = received;
    s.packetsLost = lost;
    s.packetsResendRequested = lost + 3;
    s.packetsRecovered = recovered;
    s.meanLatencyMs = 4.5;
    s.maxLatencyMs = 20;
    return s;
}

}  // namespace

TEST(HealthFigures, RatesOverTheIntervalAndTotalsSinceTheStart) {
    const StreamStatistics before = counters(100, 2, 50'000'000, 10'000, 400, 390);
    // Two seconds later: 50 frames came, 50 were dropped... of 100 that
    // might have come; 2000 datagrams sent the first time, 200 of them lost
    // (190 recovered, which are also counted received).
    const StreamStatistics now = counters(150, 52, 74'000'000, 11'990, 600, 580);
    const HealthFigures f = healthFigures(before, now, {10, 20, 30}, {60, 50, 30}, 2.0);
    EXPECT_TRUE(f.udp);
    EXPECT_DOUBLE_EQ(f.receivedFps, 25.0);
    EXPECT_DOUBLE_EQ(f.paintedFps[0], 25.0);
    EXPECT_DOUBLE_EQ(f.paintedFps[1], 15.0);
    EXPECT_DOUBLE_EQ(f.paintedFps[2], 0.0);
    EXPECT_DOUBLE_EQ(f.megabytesPerSecond, 12.0);
    EXPECT_DOUBLE_EQ(f.dropShare, 0.5);
    EXPECT_DOUBLE_EQ(f.lossShare, 200.0 / 2000.0);
    EXPECT_EQ(f.framesDropped, 52u);
    EXPECT_EQ(f.packetsLost, 600u);
    EXPECT_EQ(f.packetsResendRequested, 603u);
    EXPECT_EQ(f.packetsRecovered, 580u);
    EXPECT_DOUBLE_EQ(f.meanLatencyMs, 4.5);
}

TEST(HealthFigures, ANewStreamCountsFromZero) {
    const StreamStatistics before = counters(5000, 10, 900'000'000, 0, 0, 0);
    const StreamStatistics now = counters(20, 0, 4'000'000, 0, 0, 0);
    const HealthFigures f = healthFigures(before, now, {}, {}, 1.0);
    EXPECT_DOUBLE_EQ(f.receivedFps, 20.0);
    EXPECT_DOUBLE_EQ(f.megabytesPerSecond, 4.0);
    EXPECT_DOUBLE_EQ(f.dropShare, 0.0);
    EXPECT_DOUBLE_EQ(f.lossShare, 0.0);  // nothing sent over datagrams
}

TEST(HealthAlarm, RaisesOnceAndClearsOnlyWellUnderTheThreshold) {
    HealthAlarm alarm;
    HealthFigures f;
    f.lossShare = 0.04;
    EXPECT_EQ(alarm.update(f), HealthAlarm::Change::None);
    f.lossShare = 0.10;
    EXPECT_EQ(alarm.update(f), HealthAlarm::Change::Raised);
    EXPECT_EQ(alarm.update(f), HealthAlarm::Change::None);
    // Between the two thresholds: still raised, no new line either way.
    f.lossShare = 0.03;
    EXPECT_EQ(alarm.update(f), HealthAlarm::Change::None);
    f.lossShare = 0.0;
    f.dropShare = 0.2;  // drops alone raise it too
    EXPECT_EQ(alarm.update(f), HealthAlarm::Change::None);
    f.dropShare = 0.01;
    EXPECT_EQ(alarm.update(f), HealthAlarm::Change::Cleared);
    EXPECT_FALSE(alarm.raised());
}
