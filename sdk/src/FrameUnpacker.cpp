#include "FrameUnpacker.h"

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

void copyU16(const uint8_t* src, DataContainer<uint16_t>& dst, unsigned rows, unsigned cols) {
    dst.resize(rows, cols);
    const size_t n = size_t(rows) * cols;
    if (hostIsLittleEndian()) {
        std::memcpy(dst.data(), src, n * 2);
    } else {
        for (size_t i = 0; i < n; ++i) dst.data()[i] = d3proto::getU16(src + 2 * i);
    }
}

}  // namespace

bool FrameUnpacker::unpack(const uint8_t* payload, size_t size, Frame& out) {
    d3proto::FrameView view;
    if (d3proto::decodeFrame(payload, size, view) != d3proto::FrameDecodeResult::Ok) return false;
    const d3proto::FrameHeader& h = view.header;
    out.frameId = h.frameId;
    out.timestampUs = h.timestampUs;
    out.exposureUs = h.exposureUs;
    copyU16(view.depth, out.depth, h.tofHeight, h.tofWidth);
    copyU16(view.amplitude, out.amplitude, h.tofHeight, h.tofWidth);
    out.ir.resize(h.tofHeight, h.tofWidth);
    std::memcpy(out.ir.data(), view.ir, h.irBytes);
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
