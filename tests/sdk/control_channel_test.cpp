// A request waiting for its reply must learn of a broken channel however the
// break falls: the white-box case holds the channel's state lock the way a
// request does between finding the channel whole and going to sleep.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "blockingcall.h"
#include "ControlChannel.h"

namespace d3sdk {

struct ControlChannelProbe {
    static std::mutex& stateMutex(ControlChannel& c) { return c.stateMutex_; }
    static std::condition_variable& replied(ControlChannel& c) { return c.replied_; }
};

}  // namespace d3sdk

using d3sdk::ControlChannel;
using d3sdk::ControlChannelProbe;

TEST(ControlChannel, BreakBetweenAWaitersCheckAndItsSleepStillWakesIt) {
    ControlChannel channel;
    // The waiter: has taken the lock and found the channel whole...
    std::unique_lock<std::mutex> waiter(ControlChannelProbe::stateMutex(channel));
    ASSERT_FALSE(channel.broken());
    // ...when the channel breaks on another thread, before the waiter sleeps.
    sdktest::BlockingCall closing([&] { channel.close(); });
    EXPECT_TRUE(closing.blocks()) << "the break was signalled while a waiter was about to sleep";
    EXPECT_FALSE(channel.broken());
    // The waiter goes to sleep now and must be woken by that break.
    const bool woken = ControlChannelProbe::replied(channel).wait_for(waiter, std::chrono::seconds(10),
                                                                      [&] { return channel.broken(); });
    waiter.unlock();
    closing.join();
    EXPECT_TRUE(woken);
}
