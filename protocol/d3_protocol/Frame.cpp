#include "d3_protocol/Frame.h"

#include <cstring>

#include "d3_protocol/Message.h"

namespace d3proto {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "image sections are copied as host-order uint16");

void encodeFrameHeader(const FrameHeader& h, uint8_t* out) {
    putU32(out + 0, h.frameId);
    putU32(out + 4, h.flags);
    putU64(out + 8, h.timestampUs);
    putU16(out + 16, h.tofWidth);
    putU16(out + 18, h.tofHeight);
    putU16(out + 20, h.rgbWidth);
    putU16(out + 22, h.rgbHeight);
    out[24] = uint8_t(h.rgbEncoding);
    out[25] = out[26] = out[27] = 0;
    putU32(out + 28, h.depthBytes);
    putU32(out + 32, h.irBytes);
    putU32(out + 36, h.amplitudeBytes);
    putU32(out + 40, h.rgbBytes);
    putU32(out + 44, h.exposureUs);
}

size_t encodeFrame(FrameHeader h, const uint16_t* depth, const uint8_t* ir, const uint16_t* amplitude,
                   const uint8_t* rgb, std::vector<uint8_t>& out, size_t offset) {
    const size_t pixels = size_t(h.tofWidth) * h.tofHeight;
    h.depthBytes = uint32_t(pixels * 2);
    h.irBytes = uint32_t(pixels);
    h.amplitudeBytes = uint32_t(pixels * 2);
    if (!rgb) h.rgbBytes = 0;
    const size_t size = kFrameHeaderSize + h.depthBytes + h.irBytes + h.amplitudeBytes + h.rgbBytes;
    out.resize(offset + size);
    encodeFrameHeader(h, out.data() + offset);
    uint8_t* p = out.data() + offset + kFrameHeaderSize;
    std::memcpy(p, depth, h.depthBytes);
    p += h.depthBytes;
    std::memcpy(p, ir, h.irBytes);
    p += h.irBytes;
    std::memcpy(p, amplitude, h.amplitudeBytes);
    p += h.amplitudeBytes;
    if (h.rgbBytes) std::memcpy(p, rgb, h.rgbBytes);
    return size;
}

const char* toString(FrameDecodeResult r) {
    switch (r) {
        case FrameDecodeResult::Ok:
            return "ok";
        case FrameDecodeResult::Truncated:
            return "truncated frame header";
        case FrameDecodeResult::BadSize:
            return "image size out of range";
        case FrameDecodeResult::BadEncoding:
            return "unknown colour encoding";
        case FrameDecodeResult::LengthMismatch:
            return "section lengths disagree with the image size or payload";
    }
    return "?";
}

FrameDecodeResult decodeFrame(const uint8_t* p, size_t size, FrameView& out) {
    if (size < kFrameHeaderSize) return FrameDecodeResult::Truncated;
    FrameHeader& h = out.header;
    h.frameId = getU32(p + 0);
    h.flags = getU32(p + 4);
    h.timestampUs = getU64(p + 8);
    h.tofWidth = getU16(p + 16);
    h.tofHeight = getU16(p + 18);
    h.rgbWidth = getU16(p + 20);
    h.rgbHeight = getU16(p + 22);
    const uint8_t enc = p[24];
    h.depthBytes = getU32(p + 28);
    h.irBytes = getU32(p + 32);
    h.amplitudeBytes = getU32(p + 36);
    h.rgbBytes = getU32(p + 40);
    h.exposureUs = getU32(p + 44);

    if (h.tofWidth == 0 || h.tofHeight == 0 || h.tofWidth > kMaxImageSide || h.tofHeight > kMaxImageSide ||
        h.rgbWidth > kMaxImageSide || h.rgbHeight > kMaxImageSide)
        return FrameDecodeResult::BadSize;
    if (enc > uint8_t(RgbEncoding::Raw)) return FrameDecodeResult::BadEncoding;
    h.rgbEncoding = RgbEncoding(enc);

    // 64-bit sums: four 32-bit lengths cannot overflow them.
    const uint64_t pixels = uint64_t(h.tofWidth) * h.tofHeight;
    if (h.depthBytes != pixels * 2 || h.irBytes != pixels || h.amplitudeBytes != pixels * 2)
        return FrameDecodeResult::LengthMismatch;
    const bool hasRgb = h.rgbEncoding != RgbEncoding::None;
    if (hasRgb != (h.rgbWidth > 0 && h.rgbHeight > 0)) return FrameDecodeResult::BadSize;
    if (!hasRgb && h.rgbBytes != 0) return FrameDecodeResult::LengthMismatch;
    if (h.rgbEncoding == RgbEncoding::Raw && h.rgbBytes != uint64_t(h.rgbWidth) * h.rgbHeight * 3)
        return FrameDecodeResult::LengthMismatch;
    if (h.rgbEncoding == RgbEncoding::Jpeg && h.rgbBytes == 0) return FrameDecodeResult::LengthMismatch;
    const uint64_t total =
        uint64_t(kFrameHeaderSize) + h.depthBytes + h.irBytes + h.amplitudeBytes + uint64_t(h.rgbBytes);
    if (total != size) return FrameDecodeResult::LengthMismatch;

    out.depth = p + kFrameHeaderSize;
    out.ir = out.depth + h.depthBytes;
    out.amplitude = out.ir + h.irBytes;
    out.rgb = hasRgb ? out.amplitude + h.amplitudeBytes : nullptr;
    return FrameDecodeResult::Ok;
}

}  // namespace d3proto
