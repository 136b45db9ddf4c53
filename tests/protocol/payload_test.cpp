// JSON payloads: round trips and refusal of wrong types, so a hostile payload
// can only produce an error reply.
#include <gtest/gtest.h>

#include "d3_protocol/Payloads.h"

using namespace d3proto;

TEST(Payloads, ParsesOnlyJsonObjects) {
    Json j;
    EXPECT_TRUE(parseJsonObject("", j));
    EXPECT_TRUE(j.is_object() && j.empty());
    EXPECT_TRUE(parseJsonObject(R"({"value":3})", j));
    for (const char* bad : {"[1,2]", "3", "{\"value\":", "\xff\xfe", "null", "{} trailing"})
        EXPECT_FALSE(parseJsonObject(bad, j)) << bad;
}

TEST(Payloads, TypedReadersRefuseWrongTypesAndRanges) {
    Json j = {{"i", 5}, {"big", int64_t(1) << 40}, {"f", 1.5}, {"s", "x"}, {"b", true}};
    int i;
    EXPECT_TRUE(getInt(j, "i", i));
    EXPECT_EQ(i, 5);
    EXPECT_FALSE(getInt(j, "big", i));  // does not fit an int
    EXPECT_FALSE(getInt(j, "f", i));
    EXPECT_FALSE(getInt(j, "missing", i));
    bool b;
    EXPECT_FALSE(getBool(j, "i", b));
    float f;
    EXPECT_TRUE(getFloat(j, "i", f));
    EXPECT_FALSE(getFloat(j, "s", f));
    std::string s;
    EXPECT_FALSE(getString(j, "b", s));
}

TEST(Payloads, DeviceInfoAndCalibrationRoundTrip) {
    DeviceInfo d{"D3SIM-003000002", "3",  "1.4.2", "KX", "02:d3:7f:00:00:02", "127.0.0.2", "255.0.0.0",
                 "127.0.0.1",       true, 48601,   48602};
    DeviceInfo back;
    ASSERT_TRUE(fromJson(toJson(d), back));
    EXPECT_EQ(back.serial, d.serial);
    EXPECT_EQ(back.ip, d.ip);
    EXPECT_TRUE(back.dhcp);
    EXPECT_EQ(back.streamPort, 48602);
    Json broken = toJson(d);
    broken["controlPort"] = 70000;
    EXPECT_FALSE(fromJson(broken, back));

    CalibrationMsg c;
    c.tof.fx = 520.5f;
    c.extrinsics.t[0] = -25.0f;
    c.image.rgbWidth = 1920;
    CalibrationMsg c2;
    ASSERT_TRUE(fromJson(toJson(c), c2));
    EXPECT_FLOAT_EQ(c2.tof.fx, 520.5f);
    EXPECT_FLOAT_EQ(c2.extrinsics.t[0], -25.0f);
    EXPECT_EQ(c2.image.rgbWidth, 1920);
    Json shortR = toJson(c);
    shortR["extrinsics"]["r"].erase(0);
    EXPECT_FALSE(fromJson(shortR, c2));
}

TEST(Payloads, FilterCarriesValue2AndAllowsTheBoolOnlyForm) {
    FilterMsg f{true, 5.0f, 100.0f, true};
    FilterMsg back;
    ASSERT_TRUE(fromJson(toJson(f), back));
    EXPECT_TRUE(back.hasValue);
    EXPECT_FLOAT_EQ(back.value2, 100.0f);
    ASSERT_TRUE(fromJson(Json{{"enable", false}}, back));
    EXPECT_FALSE(back.hasValue);
    EXPECT_FALSE(fromJson(Json{{"enable", true}, {"value", 3}}, back));  // value2 missing
    EXPECT_FALSE(fromJson(Json{{"enable", 1}}, back));
}

TEST(Payloads, SessionRequestValidatesClientAndTransport) {
    SessionRequest r;
    EXPECT_TRUE(fromJson(Json{{"client", "abc"}}, r));
    EXPECT_EQ(r.transport, "tcp");
    EXPECT_TRUE(fromJson(Json{{"client", "abc"}, {"transport", "udp"}}, r));
    EXPECT_FALSE(fromJson(Json{{"client", ""}}, r));
    EXPECT_FALSE(fromJson(Json{{"client", std::string(65, 'a')}}, r));
    EXPECT_FALSE(fromJson(Json{{"client", "a"}, {"transport", "sctp"}}, r));
}

TEST(Payloads, Ipv4ParsingIsStrict) {
    uint32_t ip;
    ASSERT_TRUE(parseIpv4("127.0.0.2", ip));
    EXPECT_EQ(ip, 0x7F000002u);
    EXPECT_EQ(formatIpv4(ip), "127.0.0.2");
    for (const char* bad :
         {"", "127.0.0", "127.0.0.256", "127.0.0.1.5", "a.b.c.d", "127.0.0.1x", " 127.0.0.1", "1234.0.0.1"})
        EXPECT_FALSE(parseIpv4(bad, ip)) << bad;
}
