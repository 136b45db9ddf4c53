#include "FrameUnpacker.h"

#include <cstdint>
#include <cstring>

#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"

namespace d3sdk {

namespace {

bool hostIsLittleEndian() {
    const uint16_t probe = 1;
    uint8_t first;
    std::memcpy(&first, &probe, 1);
    return first == 1;
}

// The section as uint16 values in host order: in place when it can be read
// that way, otherwise through `copy`.
void viewU16(const uint8_t* src, unsigned rows, unsigned cols, std::vector<uint16_t>& copy, ImageView<uint16_t>& out) {
    const size_t n = size_t(rows) * cols;
    if (hostIsLittleEndian() && reinterpret_cast<uintptr_t>(src) % alignof(uint16_t) == 0) {
        out.reset(reinterpret_cast<const uint16_t*>(src), rows, cols);
        return;
    }
    copy.resize(n);
    for (size_t i = 0; i < n; ++i) copy[i] = d3proto::getU16(src + 2 * i);
    out.reset(copy.data(), rows, cols);
}

}  // namespace

bool FrameUnpacker::unpack(const uint8_t* payload, size_t size, Frame& out) {
    out.payload.reserve(size);
    if (size) std::memcpy(out.payload.data(), payload, size);
    return unpackInPlace(size, out);
}

bool FrameUnpacker::unpackInPlace(size_t size, Frame& out) {
    d3proto::FrameView view;
    if (size > out.payload.capacity() ||
        d3proto::decodeFrame(out.payload.data(), size, view) != d3proto::FrameDecodeResult::Ok)
        return false;
    const d3proto::FrameHeader& h = view.header;
    out.frameId = h.frameId;
    out.timestampUs = h.timestampUs;
    out.exposureUs = h.exposureUs;
    viewU16(view.depth, h.tofHeight, h.tofWidth, out.depthCopy, out.depth);
    viewU16(view.amplitude, h.tofHeight, h.tofWidth, out.amplitudeCopy, out.amplitude);
    out.ir.reset(view.ir, h.tofHeight, h.tofWidth);
    switch (h.rgbEncoding) {
        case d3proto::RgbEncoding::None:
            out.rgb.resize(0, 0);
            return true;
        case d3proto::RgbEncoding::Raw:
            out.rgb.resize(h.rgbHeight, h.rgbWidth);
            std::memcpy(out.rgb.data(), view.rgb, h.rgbBytes);
            return true;
        case d3proto::RgbEncoding::Jpeg:
            // The JPEG must agree with the size the header announced, or the
            // registration would index past the colour image.
            return jpeg_.decode(view.rgb, h.rgbBytes, out.rgb) && out.rgb.cols() == h.rgbWidth &&
                   out.rgb.rows() == h.rgbHeight;
    }
    return false;
}

}  // namespace d3sdk
