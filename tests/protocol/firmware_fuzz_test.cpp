// Damaged images and chunks by the thousand: the parsers must never read out
// of bounds (this program also runs under AddressSanitizer), and whatever
// they accept must really be what they promise. D3_FUZZ_SEED repeats a run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "d3_protocol/Crc32.h"
#include "d3_protocol/Firmware.h"
#include "d3_protocol/Message.h"

using namespace d3proto;

namespace {

uint32_t fuzzSeed() {
    const char* env = std::getenv("D3_FUZZ_SEED");
    return env ? uint32_t(std::strtoul(env, nullptr, 10)) : 20261124u;
}

// Damage of the kinds files really suffer, plus edits that keep the header's
// checksum right so the deeper checks are reached too.
std::vector<uint8_t> damage(std::vector<uint8_t> img, std::mt19937& rng) {
    auto below = [&rng](size_t n) { return size_t(rng() % n); };
    for (int edits = 1 + int(below(3)); edits > 0; --edits) {
        switch (below(7)) {
            case 0:  // a flipped bit anywhere
                if (!img.empty()) img[below(img.size())] ^= uint8_t(1u << below(8));
                break;
            case 1:  // cut short
                img.resize(below(img.size() + 1));
                break;
            case 2:  // grown
                img.resize(img.size() + 1 + below(100), uint8_t(rng()));
                break;
            case 3:  // a header field set to anything, header re-signed
                if (img.size() >= 64) {
                    const size_t at = below(60);
                    img[at] = uint8_t(rng());
                    putU32(img.data() + 60, crc32(img.data(), 60));
                }
                break;
            case 4:  // the announced length set to anything, header re-signed
                if (img.size() >= 64) {
                    putU32(img.data() + 44, below(3) == 0 ? uint32_t(rng()) : uint32_t(below(img.size() + 10)));
                    putU32(img.data() + 60, crc32(img.data(), 60));
                }
                break;
            case 5:  // random bytes only
                for (auto& b : img) b = uint8_t(rng());
                break;
            default:  // untouched (a control group the parser must accept)
                break;
        }
    }
    return img;
}

}  // namespace

TEST(FirmwareFuzz, DamagedImagesAreRefusedOrReallyValid) {
    const uint32_t seed = fuzzSeed();
    SCOPED_TRACE("D3_FUZZ_SEED=" + std::to_string(seed));
    std::mt19937 rng(seed);
    std::vector<uint8_t> base;
    std::string error;
    int accepted = 0, refused = 0;
    for (int i = 0; i < 20000; ++i) {
        if (i % 500 == 0) {
            const char model = char('0' + rng() % 5);
            ASSERT_TRUE(makeFirmwareImage("v" + std::to_string(rng() % 1000), model, 1 + rng() % 3000, base, error));
        }
        const std::vector<uint8_t> img = damage(base, rng);
        const FirmwareCheck c = checkFirmwareImage(img);
        if (!c.ok()) {
            ++refused;
            ASSERT_FALSE(c.reason.empty()) << toString(c.error);
            continue;
        }
        ++accepted;
        // Accepted: every promise of the header holds.
        ASSERT_TRUE(c.reason.empty());
        ASSERT_EQ(img.size(), kFirmwareHeaderSize + c.header.payloadLength);
        ASSERT_EQ(crc32(img.data() + 64, c.header.payloadLength), c.header.payloadCrc);
        ASSERT_EQ(crc32(img.data(), 60), c.header.headerCrc);
        ASSERT_TRUE(c.header.model >= '0' && c.header.model <= '4');
        std::string why;
        ASSERT_TRUE(validFirmwareVersion(c.header.version, why)) << why;
    }
    EXPECT_GT(accepted, 100);
    EXPECT_GT(refused, 10000);
}

TEST(FirmwareFuzz, ChunksOfAnyShapeDecodeOnlyWhenWhole) {
    const uint32_t seed = fuzzSeed();
    SCOPED_TRACE("D3_FUZZ_SEED=" + std::to_string(seed));
    std::mt19937 rng(seed + 1);
    int good = 0;
    for (int i = 0; i < 3000; ++i) {
        std::vector<uint8_t> bytes(rng() % 300), wire;
        for (auto& b : bytes) b = uint8_t(rng());
        if (rng() % 2) {
            encodeFirmwareChunk(rng(), bytes.data(), bytes.size(), wire);
            if (rng() % 3 == 0 && !wire.empty()) wire[rng() % wire.size()] ^= uint8_t(1 + rng() % 255);
            if (rng() % 4 == 0) wire.resize(rng() % (wire.size() + 1));
        } else {
            wire = bytes;
        }
        // Exactly sized copy, so reading one byte too far is caught by the sanitizer.
        std::unique_ptr<uint8_t[]> exact(new uint8_t[wire.size() ? wire.size() : 1]);
        std::copy(wire.begin(), wire.end(), exact.get());
        FirmwareChunkView v;
        if (decodeFirmwareChunk(exact.get(), wire.size(), v) != ChunkError::None) continue;
        ++good;
        ASSERT_EQ(v.size + kFirmwareChunkHeader, wire.size());
        ASSERT_GE(v.size, 1u);
        ASSERT_EQ(crc32(v.data, v.size), v.crc);
    }
    // A chunk header over random bytes almost never matches by chance.
    EXPECT_GT(good, 500);

    // Chunks at the size limits.
    std::vector<uint8_t> big(kMaxFirmwareChunk + 1, 0x5a), wire;
    encodeFirmwareChunk(0, big.data(), big.size(), wire);
    FirmwareChunkView v;
    EXPECT_EQ(decodeFirmwareChunk(wire.data(), wire.size(), v), ChunkError::TooLarge);
    encodeFirmwareChunk(0, big.data(), kMaxFirmwareChunk, wire);
    EXPECT_EQ(decodeFirmwareChunk(wire.data(), wire.size(), v), ChunkError::None);
}
