#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "Discovery.h"

// Interface enumeration only (no datagram is sent): simulated cameras live
// on the loopback, which has no broadcast flag, so it must be added.
TEST(Discovery, TargetsIncludeLoopbackBroadcastAndFollowTheEnvironment) {
    const auto all = d3sdk::interfaceBroadcastAddresses();
    EXPECT_NE(std::find(all.begin(), all.end(), "127.255.255.255"), all.end());
    EXPECT_EQ(std::count(all.begin(), all.end(), "127.255.255.255"), 1);

    setenv("D3_DISCOVERY_ADDRESSES", "127.0.5.255,not-an-address,127.255.255.255", 1);
    EXPECT_EQ(d3sdk::broadcastAddresses(), (std::vector<std::string>{"127.0.5.255", "127.255.255.255"}));
    unsetenv("D3_DISCOVERY_ADDRESSES");

    setenv("D3_DISCOVERY_PORT", "48777", 1);
    EXPECT_EQ(d3sdk::discoveryPort(), 48777);
    setenv("D3_DISCOVERY_PORT", "99999", 1);
    EXPECT_EQ(d3sdk::discoveryPort(), 48600);  // invalid: the protocol's default
    unsetenv("D3_DISCOVERY_PORT");
}
