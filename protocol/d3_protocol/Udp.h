// UDP stream transport: a frame payload (Frame.h) cut into datagrams, plus the
// client's hello (echoed by the camera as its acknowledgement) and resend
// requests. Both ends are written against this one definition.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace d3proto {

constexpr uint32_t kUdpMagic = 0x44553344;  // bytes "D3UD"
constexpr size_t kUdpHeaderSize = 20;
constexpr size_t kUdpChunk = 1400;  // payload bytes per datagram; the last one may be shorter
constexpr size_t kMaxResendRanges = 64;

enum class UdpKind : uint8_t {
    Data = 1,    // camera -> client: one chunk of a frame
    Resend = 2,  // client -> camera: ranges of packets to send again
    Hello = 3,   // client -> camera: "send this session's frames to my address"
};

struct UdpDataHeader {
    uint32_t frameId = 0;
    uint16_t packetId = 0;
    uint16_t packetCount = 0;
    uint32_t frameBytes = 0;  // total payload length of the frame
};

struct PacketRange {
    uint16_t first = 0;  // inclusive
    uint16_t last = 0;   // inclusive
};

struct UdpResend {
    uint32_t frameId = 0;
    std::vector<PacketRange> ranges;
};

// Number of datagrams needed for a frame payload of `bytes` bytes.
uint32_t udpPacketCount(uint32_t bytes);

// Writes the kUdpHeaderSize bytes that precede a data chunk (for senders that
// gather header and chunk without copying the chunk).
void writeUdpDataHeader(const UdpDataHeader& h, uint8_t* out);
void encodeUdpData(const UdpDataHeader& h, const uint8_t* chunk, size_t chunkSize, std::vector<uint8_t>& out);
void encodeUdpResend(const UdpResend& r, std::vector<uint8_t>& out);
void encodeUdpHello(uint32_t token, std::vector<uint8_t>& out);

// Kind of a datagram after checking magic, version and minimum size; false if it is not ours.
bool peekUdpKind(const uint8_t* data, size_t size, UdpKind& kind);
// Validates packet id < count, count matching frameBytes, and the chunk length
// the packet id implies. `chunk` points into `data`.
bool decodeUdpData(const uint8_t* data, size_t size, UdpDataHeader& h, const uint8_t*& chunk, size_t& chunkSize);
bool decodeUdpResend(const uint8_t* data, size_t size, UdpResend& out);
bool decodeUdpHello(const uint8_t* data, size_t size, uint32_t& token);

}  // namespace d3proto
