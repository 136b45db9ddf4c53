#include "d3_protocol/Udp.h"

#include <cstring>

#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"

namespace d3proto {
namespace {

void putPrefix(UdpKind kind, uint8_t* out) {
    putU32(out, kUdpMagic);
    out[4] = kVersion;
    out[5] = uint8_t(kind);
}

}  // namespace

uint32_t udpPacketCount(uint32_t bytes) { return uint32_t((uint64_t(bytes) + kUdpChunk - 1) / kUdpChunk); }

void writeUdpDataHeader(const UdpDataHeader& h, uint8_t* out) {
    putPrefix(UdpKind::Data, out);
    putU16(out + 6, h.packetId);
    putU32(out + 8, h.frameId);
    putU16(out + 12, h.packetCount);
    putU16(out + 14, 0);
    putU32(out + 16, h.frameBytes);
}

void encodeUdpData(const UdpDataHeader& h, const uint8_t* chunk, size_t chunkSize, std::vector<uint8_t>& out) {
    out.resize(kUdpHeaderSize + chunkSize);
    writeUdpDataHeader(h, out.data());
    if (chunkSize) std::memcpy(out.data() + kUdpHeaderSize, chunk, chunkSize);
}

void encodeUdpResend(const UdpResend& r, std::vector<uint8_t>& out) {
    const size_t n = r.ranges.size() < kMaxResendRanges ? r.ranges.size() : kMaxResendRanges;
    out.assign(12 + 4 * n, 0);
    putPrefix(UdpKind::Resend, out.data());
    putU16(out.data() + 6, uint16_t(n));
    putU32(out.data() + 8, r.frameId);
    for (size_t i = 0; i < n; ++i) {
        putU16(out.data() + 12 + 4 * i, r.ranges[i].first);
        putU16(out.data() + 14 + 4 * i, r.ranges[i].last);
    }
}

void encodeUdpHello(uint32_t token, std::vector<uint8_t>& out) {
    out.assign(12, 0);
    putPrefix(UdpKind::Hello, out.data());
    putU32(out.data() + 8, token);
}

bool peekUdpKind(const uint8_t* data, size_t size, UdpKind& kind) {
    if (size < 12 || getU32(data) != kUdpMagic || data[4] != kVersion) return false;
    if (data[5] < uint8_t(UdpKind::Data) || data[5] > uint8_t(UdpKind::Hello)) return false;
    kind = UdpKind(data[5]);
    return true;
}

bool decodeUdpData(const uint8_t* data, size_t size, UdpDataHeader& h, const uint8_t*& chunk, size_t& chunkSize) {
    UdpKind kind;
    if (!peekUdpKind(data, size, kind) || kind != UdpKind::Data || size < kUdpHeaderSize) return false;
    h.packetId = getU16(data + 6);
    h.frameId = getU32(data + 8);
    h.packetCount = getU16(data + 12);
    h.frameBytes = getU32(data + 16);
    if (h.frameBytes == 0 || h.frameBytes > kMaxStreamPayload) return false;
    if (h.packetCount != udpPacketCount(h.frameBytes) || h.packetId >= h.packetCount) return false;
    const size_t offset = size_t(h.packetId) * kUdpChunk;
    const size_t expected = h.frameBytes - offset < kUdpChunk ? h.frameBytes - offset : kUdpChunk;
    if (size - kUdpHeaderSize != expected) return false;
    chunk = data + kUdpHeaderSize;
    chunkSize = expected;
    return true;
}

bool decodeUdpResend(const uint8_t* data, size_t size, UdpResend& out) {
    UdpKind kind;
    if (!peekUdpKind(data, size, kind) || kind != UdpKind::Resend) return false;
    const size_t n = getU16(data + 6);
    if (n == 0 || n > kMaxResendRanges || size != 12 + 4 * n) return false;
    out.frameId = getU32(data + 8);
    out.ranges.resize(n);
    for (size_t i = 0; i < n; ++i) {
        out.ranges[i].first = getU16(data + 12 + 4 * i);
        out.ranges[i].last = getU16(data + 14 + 4 * i);
        if (out.ranges[i].first > out.ranges[i].last) return false;
    }
    return true;
}

bool decodeUdpHello(const uint8_t* data, size_t size, uint32_t& token) {
    UdpKind kind;
    if (!peekUdpKind(data, size, kind) || kind != UdpKind::Hello || size != 12) return false;
    token = getU32(data + 8);
    return true;
}

}  // namespace d3proto
