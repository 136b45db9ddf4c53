// The simulated link's timing rules, on made-up times: delay without loss of
// rate, order under jitter, and what a bandwidth limit does to frames.
#include <gtest/gtest.h>

#include <vector>

#include "LinkTimeline.h"

using d3sim::LinkTimeline;
using namespace std::chrono_literals;
using TimePoint = LinkTimeline::Clock::time_point;

namespace {

const TimePoint t0 = TimePoint() + 100s;

LinkTimeline::Shape shape(std::chrono::milliseconds latency, std::chrono::microseconds jitter = 0us, double mbit = 0) {
    LinkTimeline::Shape s;
    s.latency = latency;
    s.jitter = jitter;
    s.bitsPerSecond = mbit * 1e6;
    return s;
}

}  // namespace

TEST(LinkTimeline, LatencyDelaysEveryFrameWithoutLoweringTheRate) {
    LinkTimeline link;
    std::vector<TimePoint> arrivals;
    for (int i = 0; i < 50; ++i) {
        const TimePoint sent = t0 + i * 40ms;  // 25 fps, 1.6 MB frames
        const auto at = link.offer(sent, 1600000, shape(1000ms));
        ASSERT_TRUE(at) << "frame " << i << " dropped";
        EXPECT_EQ(*at - sent, 1000ms);
        arrivals.push_back(*at);
    }
    EXPECT_EQ(arrivals.back() - arrivals.front(), 49 * 40ms);
}

TEST(LinkTimeline, JitterVariesTheDelayButNeverReorders) {
    LinkTimeline link;
    TimePoint last;
    // A large draw followed by small ones: the small ones wait for the large one.
    const std::chrono::microseconds draws[] = {30000us, 0us, 5000us, 0us, 29000us, 1000us};
    for (int i = 0; i < 6; ++i) {
        const TimePoint sent = t0 + i * 10ms;
        const TimePoint at = link.queue(sent, 100, shape(50ms, draws[i]));
        EXPECT_GE(at - sent, 50ms);
        EXPECT_LE(at - sent, 50ms + 30ms);
        if (i > 0) {
            EXPECT_GT(at, last);
        }
        last = at;
    }
}

TEST(LinkTimeline, BandwidthSpacesMessagesAndDropsFramesThatDoNotFit) {
    EXPECT_EQ(LinkTimeline::transmitTime(1250000, 100e6), 100ms);  // 10 Mbit at 100 Mbit/s
    EXPECT_EQ(LinkTimeline::transmitTime(1250000, 0), 0us);

    // Replies queue behind each other.
    LinkTimeline replies;
    EXPECT_EQ(replies.queue(t0, 125000, shape(5ms, 0us, 100)) - t0, 15ms);
    EXPECT_EQ(replies.queue(t0, 125000, shape(5ms, 0us, 100)) - t0, 25ms);

    // A 1.8 MB colour frame takes 144 ms at 100 Mbit/s: at 25 fps only every
    // fourth frame finds the link free, and the link carries close to its rate.
    LinkTimeline frames;
    int sent = 0;
    TimePoint first, last;
    for (int i = 0; i < 100; ++i) {
        const auto at = frames.offer(t0 + i * 40ms, 1800000, shape(0ms, 0us, 100));
        if (!at) continue;
        if (sent++ == 0) first = *at;
        last = *at;
    }
    EXPECT_EQ(sent, 25);
    const double seconds = std::chrono::duration<double>(last - first).count();
    const double mbit = (sent - 1) * 1800000 * 8 / seconds / 1e6;
    EXPECT_GT(mbit, 85);
    EXPECT_LE(mbit, 100);
}
