// The frame payload: one camera frame as carried by a FrameEvent on the TCP
// stream connection and, split into datagrams, by the UDP transport. The same
// bytes travel either way, so the SDK has one decoder for both transports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace d3proto {

constexpr size_t kFrameHeaderSize = 48;
constexpr uint16_t kMaxImageSide = 4096;

enum class RgbEncoding : uint8_t {
    None = 0,  // model without colour
    Jpeg = 1,  // baseline JPEG, 3 components
    Raw = 2,   // rgbWidth*rgbHeight*3 bytes, R,G,B
};

struct FrameHeader {
    uint32_t frameId = 0;
    uint32_t flags = 0;  // reserved, 0
    uint64_t timestampUs = 0;
    uint16_t tofWidth = 0;
    uint16_t tofHeight = 0;
    uint16_t rgbWidth = 0;
    uint16_t rgbHeight = 0;
    RgbEncoding rgbEncoding = RgbEncoding::None;
    uint32_t depthBytes = 0;      // tofWidth*tofHeight*2
    uint32_t irBytes = 0;         // tofWidth*tofHeight
    uint32_t amplitudeBytes = 0;  // tofWidth*tofHeight*2
    uint32_t rgbBytes = 0;
    uint32_t exposureUs = 0;  // ToF exposure the frame was taken with
};

// A decoded frame: pointers into the caller's payload buffer (no copies).
// Depth and amplitude are little-endian uint16; on a little-endian host they
// can be copied straight into uint16 buffers.
struct FrameView {
    FrameHeader header;
    const uint8_t* depth = nullptr;
    const uint8_t* ir = nullptr;
    const uint8_t* amplitude = nullptr;
    const uint8_t* rgb = nullptr;
};

void encodeFrameHeader(const FrameHeader& h, uint8_t* out);

// Writes header and sections into `out` from `offset` on (resized, capacity
// kept; a sender can leave room for a message header in front). Depth and
// amplitude hold tofWidth*tofHeight samples; rgb holds rgbBytes bytes or is
// null. Returns the payload size.
size_t encodeFrame(FrameHeader h, const uint16_t* depth, const uint8_t* ir, const uint16_t* amplitude,
                   const uint8_t* rgb, std::vector<uint8_t>& out, size_t offset = 0);

enum class FrameDecodeResult { Ok, Truncated, BadSize, BadEncoding, LengthMismatch };
const char* toString(FrameDecodeResult r);

// Validates every size against the image dimensions and the payload length
// before handing out pointers.
FrameDecodeResult decodeFrame(const uint8_t* payload, size_t size, FrameView& out);

}  // namespace d3proto
