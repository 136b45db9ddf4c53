// The SDK's side of the control and stream connections: whatever a camera (or
// something pretending to be one) sends back. The input is a byte stream of
// framed messages; every reply and calibration payload goes through each
// reader the SDK applies to camera answers.
#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"
#include "fuzzinput.h"

namespace {

void readAnswer(const d3proto::Json& j) {
    d3proto::DeviceInfo info;
    d3proto::SessionReply session;
    d3proto::ImageInfo image;
    d3proto::IntrinsicsMsg intrinsics;
    d3proto::ExtrinsicsMsg extrinsics;
    d3proto::FilterMsg filter;
    d3proto::DelayMsg delay;
    d3proto::NetworkMsg network;
    d3proto::CalibrationMsg calibration;
    d3proto::fromJson(j, info);
    d3proto::fromJson(j, session);
    if (d3proto::fromJson(j, image)) d3fuzz::check(image.tofWidth >= 0 && image.tofHeight >= 0);
    d3proto::fromJson(j, intrinsics);
    d3proto::fromJson(j, extrinsics);
    d3proto::fromJson(j, filter);
    d3proto::fromJson(j, delay);
    d3proto::fromJson(j, network);
    d3proto::fromJson(j, calibration);
    int64_t i = 0;
    int n = 0;
    bool b = false;
    float f = 0;
    std::string s;
    d3proto::getInt(j, "value", i);
    d3proto::getInt(j, "value", n);
    d3proto::getBool(j, "value", b);
    d3proto::getFloat(j, "value", f);
    d3proto::getString(j, "error", s);
    // What the SDK logs or shows of an answer must serialise.
    (void)d3proto::dump(j);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    d3fuzz::Cursor in{data, size};
    while (in.left() >= d3proto::kHeaderSize) {
        d3proto::Header h;
        if (d3proto::decodeHeader(in.take(d3proto::kHeaderSize), d3proto::kHeaderSize, d3proto::kMaxControlPayload,
                                  h) != d3proto::DecodeResult::Ok)
            break;  // the SDK drops the connection
        const uint8_t* payload = in.take(h.payloadLength);
        if (!payload) break;
        if (h.command == uint16_t(d3proto::Command::FrameEvent)) continue;  // frame_payload covers these
        d3proto::Json j;
        if (!d3proto::parseJsonObject(payload, h.payloadLength, j)) continue;
        readAnswer(j);
    }
    return 0;
}
