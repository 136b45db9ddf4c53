// A frame as the SDK receives it over either transport: the payload decoder,
// then the unpacking into the reader's buffers (JPEG decoding included).
#include "FrameExchange.h"
#include "FrameUnpacker.h"
#include "d3_protocol/Frame.h"
#include "fuzzinput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    d3proto::FrameView view;
    if (d3proto::decodeFrame(data, size, view) == d3proto::FrameDecodeResult::Ok) {
        // Every section the decoder hands out lies inside the payload.
        const d3proto::FrameHeader& h = view.header;
        const uint8_t* end = data + size;
        d3fuzz::check(view.depth + h.depthBytes <= end && view.ir + h.irBytes <= end);
        d3fuzz::check(view.amplitude + h.amplitudeBytes <= end);
        d3fuzz::check(!view.rgb || view.rgb + h.rgbBytes <= end);
    }
    static d3sdk::FrameUnpacker unpacker;
    static d3sdk::Frame frame;
    if (unpacker.unpack(data, size, frame)) {
        d3fuzz::check(frame.depth.cols() * frame.depth.rows() > 0);
        d3fuzz::check(frame.ir.cols() == frame.depth.cols() && frame.ir.rows() == frame.depth.rows());
    }
    return 0;
}
