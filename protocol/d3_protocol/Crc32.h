// CRC-32 as zlib and Ethernet compute it (reflected polynomial 0xEDB88320,
// initial and final value 0xFFFFFFFF), so an image's checksums can be checked
// with any common tool.
#pragma once

#include <cstddef>
#include <cstdint>

namespace d3proto {

uint32_t crc32(const uint8_t* data, size_t size);
// Continues a running checksum: crc32Update(crc32(a), b) == crc32(a + b);
// start with 0.
uint32_t crc32Update(uint32_t crc, const uint8_t* data, size_t size);

}  // namespace d3proto
