// UDP datagram codec: a frame split into datagrams reassembles exactly, and
// malformed datagrams are refused.
#include "d3_protocol/Udp.h"

#include <gtest/gtest.h>

#include "d3_protocol/Message.h"

using namespace d3proto;

TEST(UdpCodec, SplitAndReassembleAFrame) {
    std::vector<uint8_t> frame(3 * kUdpChunk + 17);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = uint8_t(i * 31);
    const uint32_t count = udpPacketCount(uint32_t(frame.size()));
    ASSERT_EQ(count, 4u);
    std::vector<uint8_t> rebuilt(frame.size());
    for (uint32_t p = 0; p < count; ++p) {
        const size_t off = p * kUdpChunk;
        const size_t len = std::min(kUdpChunk, frame.size() - off);
        std::vector<uint8_t> dgram;
        encodeUdpData({7, uint16_t(p), uint16_t(count), uint32_t(frame.size())}, frame.data() + off, len, dgram);
        EXPECT_LE(dgram.size(), kUdpHeaderSize + kUdpChunk);
        UdpDataHeader h;
        const uint8_t* chunk;
        size_t n;
        ASSERT_TRUE(decodeUdpData(dgram.data(), dgram.size(), h, chunk, n));
        EXPECT_EQ(h.frameId, 7u);
        std::copy(chunk, chunk + n, rebuilt.begin() + long(h.packetId) * long(kUdpChunk));
    }
    EXPECT_EQ(rebuilt, frame);
}

TEST(UdpCodec, RefusesInconsistentDataDatagrams) {
    std::vector<uint8_t> chunk(kUdpChunk, 1), dgram;
    UdpDataHeader h;
    const uint8_t* c;
    size_t n;
    encodeUdpData({1, 0, 2, uint32_t(kUdpChunk + 10)}, chunk.data(), kUdpChunk, dgram);
    EXPECT_TRUE(decodeUdpData(dgram.data(), dgram.size(), h, c, n));
    EXPECT_FALSE(decodeUdpData(dgram.data(), dgram.size() - 1, h, c, n));  // short chunk
    encodeUdpData({1, 2, 2, uint32_t(kUdpChunk + 10)}, chunk.data(), 10, dgram);
    EXPECT_FALSE(decodeUdpData(dgram.data(), dgram.size(), h, c, n));  // packet id past the count
    encodeUdpData({1, 0, 3, uint32_t(kUdpChunk + 10)}, chunk.data(), kUdpChunk, dgram);
    EXPECT_FALSE(decodeUdpData(dgram.data(), dgram.size(), h, c, n));  // count disagrees with size
    encodeUdpData({1, 0, 1, uint32_t(kUdpChunk)}, chunk.data(), kUdpChunk, dgram);
    dgram[4] = 9;
    EXPECT_FALSE(decodeUdpData(dgram.data(), dgram.size(), h, c, n));  // version
}

TEST(UdpCodec, ResendAndHelloRoundTrip) {
    UdpResend r{12, {{0, 3}, {7, 7}}};
    std::vector<uint8_t> bytes;
    encodeUdpResend(r, bytes);
    UdpKind kind;
    ASSERT_TRUE(peekUdpKind(bytes.data(), bytes.size(), kind));
    EXPECT_EQ(kind, UdpKind::Resend);
    UdpResend back;
    ASSERT_TRUE(decodeUdpResend(bytes.data(), bytes.size(), back));
    EXPECT_EQ(back.frameId, 12u);
    ASSERT_EQ(back.ranges.size(), 2u);
    EXPECT_EQ(back.ranges[1].first, 7);
    EXPECT_FALSE(decodeUdpResend(bytes.data(), bytes.size() - 2, back));
    putU16(bytes.data() + 12, 5);  // first > last
    EXPECT_FALSE(decodeUdpResend(bytes.data(), bytes.size(), back));

    encodeUdpHello(0xDEADBEEF, bytes);
    uint32_t token = 0;
    ASSERT_TRUE(decodeUdpHello(bytes.data(), bytes.size(), token));
    EXPECT_EQ(token, 0xDEADBEEFu);
    EXPECT_FALSE(decodeUdpResend(bytes.data(), bytes.size(), back));
}
