// The camera's side of the control protocol: whatever a client sends on a
// control connection. The input is a byte stream of framed messages; each one
// that frames correctly is judged and executed as the server does (payload
// parsed as a JSON object, then the command run on a camera without sockets).
#include "Camera.h"
#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"
#include "fuzzinput.h"

namespace {

d3sim::Camera& camera() {
    d3sim::NetworkSettings net;
    net.ip = "127.0.0.2";
    static d3sim::Camera cam(d3sim::Camera::makeIdentity('3', net.ip, ""), net, "", 1);
    return cam;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using d3proto::Command;
    d3sim::Camera& cam = camera();
    // Every input starts from the same camera.
    static const d3sim::CameraSettings defaults = cam.settings();
    cam.setSettings(defaults);
    cam.clearCommandLog();

    d3fuzz::Cursor in{data, size};
    while (in.left() >= d3proto::kHeaderSize) {
        d3proto::Header h;
        const d3proto::DecodeResult r =
            d3proto::decodeHeader(in.take(d3proto::kHeaderSize), d3proto::kHeaderSize, d3proto::kMaxControlPayload, h);
        if (r != d3proto::DecodeResult::Ok) break;  // the server drops the connection
        d3fuzz::check(h.payloadLength <= d3proto::kMaxControlPayload);
        const uint8_t* payload = in.take(h.payloadLength);
        if (!payload) break;  // the connection ends mid-message
        d3proto::Json args;
        if (!d3proto::parseJsonObject(payload, h.payloadLength, args)) continue;
        d3fuzz::check(args.is_object());
        const d3proto::CommandInfo* info = d3proto::findCommand(h.command);
        if (!info) continue;
        switch (info->id) {
            // Session plumbing the server answers itself.
            case Command::OpenSession: {
                d3proto::SessionRequest req;
                d3proto::fromJson(args, req);
                continue;
            }
            case Command::AttachStream: {
                int64_t token = 0;
                d3proto::getInt(args, "token", token);
                continue;
            }
            case Command::CloseSession:
            case Command::Heartbeat:
            case Command::GetDeviceInfo:
            case Command::FrameEvent:
            case Command::CalibrationEvent:
            case Command::Discover:
                continue;
            default:
                break;
        }
        d3proto::Json reply = d3proto::Json::object();
        d3sim::AfterReply after = d3sim::AfterReply::Nothing;
        cam.execute(info->id, args, reply, after);
        // Every reply must be sendable.
        const std::string text = d3proto::dump(reply);
        d3proto::Json back;
        d3fuzz::check(d3proto::parseJsonObject(text, back));
        if (after == d3sim::AfterReply::Reboot) cam.reboot();
    }
    return 0;
}
