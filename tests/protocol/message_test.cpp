// Header framing: round trips and every way a header can be wrong.
#include "d3_protocol/Message.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

#include "d3_protocol/Commands.h"

using namespace d3proto;

namespace {
std::vector<uint8_t> sample(uint32_t payloadLength = 5) {
    Header h;
    h.type = MessageType::Reply;
    h.command = 0x0109;
    h.requestId = 0xA1B2C3D4;
    h.status = -7;
    std::vector<uint8_t> out;
    std::string payload(payloadLength, 'x');
    appendMessage(h, reinterpret_cast<const uint8_t*>(payload.data()), payload.size(), out);
    return out;
}
}  // namespace

TEST(MessageHeader, RoundTripKeepsEveryField) {
    const auto bytes = sample();
    ASSERT_EQ(bytes.size(), kHeaderSize + 5);
    Header h;
    ASSERT_EQ(decodeHeader(bytes.data(), bytes.size(), kMaxControlPayload, h), DecodeResult::Ok);
    EXPECT_EQ(h.type, MessageType::Reply);
    EXPECT_EQ(h.command, 0x0109);
    EXPECT_EQ(h.requestId, 0xA1B2C3D4u);
    EXPECT_EQ(h.status, -7);
    EXPECT_EQ(h.payloadLength, 5u);
    // Little-endian on the wire regardless of host: "D3CP" then version 1.
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "D3CP");
    EXPECT_EQ(bytes[4], 1);
}

TEST(MessageHeader, RejectsBadInputBeforeReadingThePayload) {
    auto bytes = sample();
    Header h;
    for (size_t n = 0; n < kHeaderSize; ++n)
        EXPECT_EQ(decodeHeader(bytes.data(), n, kMaxControlPayload, h), DecodeResult::NeedMore) << n;

    auto badMagic = bytes;
    badMagic[0] ^= 0xFF;
    EXPECT_EQ(decodeHeader(badMagic.data(), badMagic.size(), kMaxControlPayload, h), DecodeResult::BadMagic);

    auto badVersion = bytes;
    badVersion[4] = 2;
    EXPECT_EQ(decodeHeader(badVersion.data(), badVersion.size(), kMaxControlPayload, h), DecodeResult::BadVersion);

    for (uint8_t type : {0, 4, 255}) {
        auto badType = bytes;
        badType[5] = type;
        EXPECT_EQ(decodeHeader(badType.data(), badType.size(), kMaxControlPayload, h), DecodeResult::BadType);
    }

    auto huge = bytes;
    putU32(huge.data() + 16, 0xFFFFFFFF);
    EXPECT_EQ(decodeHeader(huge.data(), huge.size(), kMaxStreamPayload, h), DecodeResult::TooLarge);
    putU32(huge.data() + 16, kMaxControlPayload + 1);
    EXPECT_EQ(decodeHeader(huge.data(), huge.size(), kMaxControlPayload, h), DecodeResult::TooLarge);
    EXPECT_EQ(decodeHeader(huge.data(), huge.size(), kMaxStreamPayload, h), DecodeResult::Ok);
}

TEST(MessageHeader, DatagramMustHoldExactlyOneMessage) {
    auto bytes = sample(3);
    Message m;
    EXPECT_EQ(decodeDatagram(bytes.data(), bytes.size(), m), DecodeResult::Ok);
    EXPECT_EQ(m.payloadText(), "xxx");
    EXPECT_EQ(decodeDatagram(bytes.data(), bytes.size() - 1, m), DecodeResult::NeedMore);
    bytes.push_back(0);
    EXPECT_EQ(decodeDatagram(bytes.data(), bytes.size(), m), DecodeResult::NeedMore);
    auto big = sample(2000);
    EXPECT_EQ(decodeDatagram(big.data(), big.size(), m), DecodeResult::TooLarge);
}

TEST(MessageHeader, RandomBytesNeverDecodeIntoAnInvalidHeader) {
    std::mt19937 rng(1234);
    Header h;
    int accepted = 0;
    for (int i = 0; i < 20000; ++i) {
        std::vector<uint8_t> bytes(kHeaderSize);
        for (auto& b : bytes) b = uint8_t(rng());
        // Half the cases start with a valid magic/version and a plausible type and
        // length, so the later checks are reached too.
        if (i % 2) {
            putU32(bytes.data(), kMagic);
            bytes[4] = kVersion;
            bytes[5] = uint8_t(rng() % 5);
            putU32(bytes.data() + 16, uint32_t(rng() % (2 * kMaxControlPayload)));
        }
        if (decodeHeader(bytes.data(), bytes.size(), kMaxControlPayload, h) == DecodeResult::Ok) {
            ++accepted;
            EXPECT_LE(h.payloadLength, kMaxControlPayload);
            EXPECT_GE(int(h.type), 1);
            EXPECT_LE(int(h.type), 3);
        }
    }
    EXPECT_GT(accepted, 0);
}

TEST(CommandTable, IdsAndNamesAreUniqueAndFindable) {
    int n = 0;
    const CommandInfo* table = commandTable(n);
    ASSERT_GT(n, 40);
    std::set<uint16_t> ids;
    std::set<std::string> names;
    for (int i = 0; i < n; ++i) {
        EXPECT_TRUE(ids.insert(uint16_t(table[i].id)).second) << table[i].name;
        EXPECT_TRUE(names.insert(table[i].name).second) << table[i].name;
        EXPECT_EQ(findCommand(uint16_t(table[i].id)), &table[i]);
    }
    EXPECT_EQ(findCommand(0x7777), nullptr);
    EXPECT_TRUE(findCommand(uint16_t(Command::SetRgbGain))->rgbOnly);
    EXPECT_FALSE(findCommand(uint16_t(Command::OpenSession))->needsSession);
    EXPECT_TRUE(findCommand(uint16_t(Command::StartStream))->needsSession);
}
