// Firmware images: what makes one, and every way the parser refuses one.
#include "d3_protocol/Firmware.h"

#include <gtest/gtest.h>

#include <cstring>

#include "d3_protocol/Crc32.h"
#include "d3_protocol/Message.h"

using namespace d3proto;

namespace {

std::vector<uint8_t> image(const std::string& version = "1.5.0", char model = '3', uint32_t payload = 1000) {
    std::vector<uint8_t> out;
    std::string error;
    EXPECT_TRUE(makeFirmwareImage(version, model, payload, out, error)) << error;
    return out;
}

// After editing header bytes: a valid header checksum again, so the parser
// gets past it to the field under test.
void resign(std::vector<uint8_t>& img) { putU32(img.data() + 60, crc32(img.data(), 60)); }

FirmwareCheck check(const std::vector<uint8_t>& img) { return checkFirmwareImage(img); }

}  // namespace

TEST(Crc32, MatchesTheStandardCheckValueAndContinues) {
    const std::string text = "123456789";
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    EXPECT_EQ(crc32(p, text.size()), 0xCBF43926u);
    EXPECT_EQ(crc32Update(crc32(p, 4), p + 4, 5), 0xCBF43926u);
    EXPECT_EQ(crc32(p, 0), 0u);
}

TEST(FirmwareImage, RoundTripCarriesVersionModelAndPayload) {
    const auto img = image("2.0.1-rc3", '1', 70000);
    ASSERT_EQ(img.size(), kFirmwareHeaderSize + 70000);
    const FirmwareCheck c = check(img);
    ASSERT_TRUE(c.ok()) << c.reason;
    EXPECT_TRUE(c.reason.empty());
    EXPECT_EQ(c.header.version, "2.0.1-rc3");
    EXPECT_EQ(c.header.model, '1');
    EXPECT_EQ(c.header.payloadLength, 70000u);
    EXPECT_EQ(c.header.formatVersion, kFirmwareFormatVersion);
    EXPECT_EQ(c.header.payloadCrc, crc32(img.data() + kFirmwareHeaderSize, 70000));

    // The same inputs give the same bytes; another version or model another payload.
    EXPECT_EQ(image("2.0.1-rc3", '1', 70000), img);
    const auto other = image("2.0.2", '1', 70000);
    const auto otherModel = image("2.0.1-rc3", '2', 70000);
    EXPECT_NE(std::memcmp(other.data() + 64, img.data() + 64, 70000), 0);
    EXPECT_NE(std::memcmp(otherModel.data() + 64, img.data() + 64, 70000), 0);

    // The limits themselves are fine: one byte, the longest version, every model.
    EXPECT_TRUE(check(image(std::string(31, 'v'), '0', 1)).ok());
    EXPECT_TRUE(check(image("9", '4', 3)).ok());
}

TEST(FirmwareImage, MakerRefusesWhatCouldNotBeParsedBack) {
    std::vector<uint8_t> out;
    std::string error;
    for (const std::string& v : {std::string(), std::string(32, '1'), std::string("1.5 beta"), std::string("1.\x01"),
                                 std::string("1.5\xc3\xa9")}) {
        EXPECT_FALSE(makeFirmwareImage(v, '3', 10, out, error)) << v;
        EXPECT_NE(error.find("version"), std::string::npos) << error;
    }
    EXPECT_FALSE(makeFirmwareImage("1.5.0", '5', 10, out, error));
    EXPECT_FALSE(makeFirmwareImage("1.5.0", 3, 10, out, error));
    EXPECT_FALSE(makeFirmwareImage("1.5.0", '3', 0, out, error));
    EXPECT_FALSE(makeFirmwareImage("1.5.0", '3', kMaxFirmwarePayload + 1, out, error));
}

TEST(FirmwareImage, TruncatedAnywhere) {
    const auto img = image();
    for (size_t n : {size_t(0), size_t(1), size_t(63)}) {
        const FirmwareCheck c = checkFirmwareImage(img.data(), n);
        EXPECT_EQ(c.error, FirmwareImageError::Truncated) << n;
        EXPECT_FALSE(c.headerRead);
        EXPECT_NE(c.reason.find("truncated"), std::string::npos);
    }
    for (size_t n : {size_t(64), size_t(500), img.size() - 1}) {
        const FirmwareCheck c = checkFirmwareImage(img.data(), n);
        EXPECT_EQ(c.error, FirmwareImageError::Truncated) << n;
        EXPECT_TRUE(c.headerRead);
        EXPECT_NE(c.reason.find(std::to_string(n - 64) + " of the 1000"), std::string::npos) << c.reason;
    }
}

TEST(FirmwareImage, OversizedByItsLengthOrByWhatItAnnounces) {
    std::vector<uint8_t> huge(kMaxFirmwareImage + 1, 0);
    EXPECT_EQ(check(huge).error, FirmwareImageError::Oversized);

    auto img = image();
    putU32(img.data() + 44, kMaxFirmwarePayload + 1);
    resign(img);
    const FirmwareCheck c = check(img);
    EXPECT_EQ(c.error, FirmwareImageError::Oversized);
    EXPECT_EQ(c.header.payloadLength, kMaxFirmwarePayload + 1);
}

TEST(FirmwareImage, HeaderFieldsAreCheckedInTurn) {
    struct Case {
        const char* what;
        void (*edit)(std::vector<uint8_t>&);
        FirmwareImageError expected;
        const char* inReason;
    };
    const Case cases[] = {
        {"magic", [](std::vector<uint8_t>& i) { i[0] = 'X'; }, FirmwareImageError::BadMagic, "D3FW"},
        {"format version",
         [](std::vector<uint8_t>& i) {
             putU16(i.data() + 4, 2);
             resign(i);
         },
         FirmwareImageError::UnknownFormatVersion, "version 2"},
        {"header size",
         [](std::vector<uint8_t>& i) {
             putU16(i.data() + 6, 128);
             resign(i);
         },
         FirmwareImageError::BadHeaderSize, "128"},
        {"header checksum", [](std::vector<uint8_t>& i) { i[20] ^= 1; }, FirmwareImageError::BadHeaderChecksum,
         "header is damaged"},
        {"model",
         [](std::vector<uint8_t>& i) {
             i[8] = '7';
             resign(i);
         },
         FirmwareImageError::BadModel, "\"7\""},
        {"version not printable",
         [](std::vector<uint8_t>& i) {
             i[13] = 0x07;
             resign(i);
         },
         FirmwareImageError::BadVersionString, "\\x07"},
        {"version without its end",
         [](std::vector<uint8_t>& i) {
             std::memset(i.data() + 12, 'v', 32);
             resign(i);
         },
         FirmwareImageError::BadVersionString, "longer than 31"},
        {"empty version",
         [](std::vector<uint8_t>& i) {
             std::memset(i.data() + 12, 0, 32);
             resign(i);
         },
         FirmwareImageError::BadVersionString, "empty"},
        {"junk after the version",
         [](std::vector<uint8_t>& i) {
             i[40] = 'x';
             resign(i);
         },
         FirmwareImageError::BadVersionString, "after the end"},
        {"empty payload",
         [](std::vector<uint8_t>& i) {
             putU32(i.data() + 44, 0);
             resign(i);
         },
         FirmwareImageError::LengthMismatch, "empty payload"},
        {"payload checksum", [](std::vector<uint8_t>& i) { i[64 + 500] ^= 0x80; }, FirmwareImageError::PayloadChecksum,
         "payload is damaged"},
    };
    for (const Case& k : cases) {
        auto img = image();
        k.edit(img);
        const FirmwareCheck c = check(img);
        EXPECT_EQ(c.error, k.expected) << k.what << ": " << c.reason;
        EXPECT_NE(c.reason.find(k.inReason), std::string::npos) << k.what << ": " << c.reason;
        EXPECT_TRUE(c.headerRead);
    }
}

TEST(FirmwareImage, BytesAfterThePayloadAreAMismatch) {
    auto img = image();
    img.push_back(0);
    const FirmwareCheck c = check(img);
    EXPECT_EQ(c.error, FirmwareImageError::LengthMismatch);
    EXPECT_NE(c.reason.find("1 bytes more"), std::string::npos) << c.reason;
    // A header that under-announces its payload is the same fault.
    img.pop_back();
    putU32(img.data() + 44, 999);
    resign(img);
    EXPECT_EQ(check(img).error, FirmwareImageError::LengthMismatch);
}

TEST(FirmwareChunk, RoundTripAndEveryRefusal) {
    std::vector<uint8_t> bytes(kMaxFirmwareChunk);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i * 7);
    std::vector<uint8_t> wire;
    encodeFirmwareChunk(131072, bytes.data(), bytes.size(), wire);
    FirmwareChunkView v;
    ASSERT_EQ(decodeFirmwareChunk(wire.data(), wire.size(), v), ChunkError::None);
    EXPECT_EQ(v.offset, 131072u);
    EXPECT_EQ(v.size, bytes.size());
    EXPECT_EQ(std::memcmp(v.data, bytes.data(), bytes.size()), 0);

    EXPECT_EQ(decodeFirmwareChunk(wire.data(), 7, v), ChunkError::TooShort);
    EXPECT_EQ(decodeFirmwareChunk(wire.data(), 8, v), ChunkError::Empty);
    wire.push_back(0);
    EXPECT_EQ(decodeFirmwareChunk(wire.data(), wire.size(), v), ChunkError::TooLarge);
    wire.pop_back();
    wire[100] ^= 1;
    EXPECT_EQ(decodeFirmwareChunk(wire.data(), wire.size(), v), ChunkError::BadChecksum);
}

TEST(FirmwarePayloads, BeginAndCommitNeedTheirFieldsWithTheirTypes) {
    FirmwareBeginMsg b;
    ASSERT_TRUE(fromJson(toJson(FirmwareBeginMsg{"word", 1234, true}), b));
    EXPECT_EQ(b.accessWord, "word");
    EXPECT_EQ(b.size, 1234);
    EXPECT_TRUE(b.erase);
    ASSERT_TRUE(fromJson(Json{{"accessWord", "w"}, {"size", 5}}, b));
    EXPECT_FALSE(b.erase);  // erasing is only done when asked for
    EXPECT_FALSE(fromJson(Json{{"accessWord", 5}, {"size", 5}}, b));
    EXPECT_FALSE(fromJson(Json{{"accessWord", "w"}, {"size", "5"}}, b));
    EXPECT_FALSE(fromJson(Json{{"accessWord", "w"}, {"size", 5}, {"erase", 1}}, b));

    FirmwareCommitMsg c;
    EXPECT_TRUE(fromJson(Json{{"write", true}, {"reboot", false}}, c));
    EXPECT_FALSE(fromJson(Json{{"write", true}}, c));

    // Progress from a camera is believed only when it is consistent.
    FirmwareProgressMsg p;
    EXPECT_TRUE(fromJson(toJson(FirmwareProgressMsg{10, 20, 65536}), p));
    EXPECT_FALSE(fromJson(Json{{"received", 30}, {"size", 20}, {"maxChunk", 65536}}, p));
    EXPECT_FALSE(fromJson(Json{{"received", 1}, {"size", 20}, {"maxChunk", 0}}, p));
    EXPECT_FALSE(fromJson(Json{{"received", 1}, {"size", 20}, {"maxChunk", 65537}}, p));
}
