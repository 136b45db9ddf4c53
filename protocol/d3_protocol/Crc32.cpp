#include "d3_protocol/Crc32.h"

#include <array>

namespace d3proto {
namespace {

std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        t[i] = c;
    }
    return t;
}

}  // namespace

uint32_t crc32Update(uint32_t crc, const uint8_t* data, size_t size) {
    static const std::array<uint32_t, 256> table = makeTable();
    uint32_t c = ~crc;
    for (size_t i = 0; i < size; ++i) c = table[(c ^ data[i]) & 0xFF] ^ (c >> 8);
    return ~c;
}

uint32_t crc32(const uint8_t* data, size_t size) { return crc32Update(0, data, size); }

}  // namespace d3proto
