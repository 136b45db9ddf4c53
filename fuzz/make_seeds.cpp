// Writes the seed corpus of the fuzz targets from the protocol's own encoders,
// so the seeds are well-formed examples of each format. The configuration
// file seeds are kept by hand in corpus/config_file.
//   fuzz_make_seeds DIR   (DIR is fuzz/corpus)
#include <turbojpeg.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "d3_protocol/Commands.h"
#include "d3_protocol/Firmware.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"
#include "d3_protocol/Udp.h"

namespace fs = std::filesystem;
using d3proto::Command;
using d3proto::Json;
using d3proto::MessageType;
using Bytes = std::vector<uint8_t>;

namespace {

fs::path root;

void write(const std::string& target, const std::string& name, const Bytes& bytes) {
    const fs::path dir = root / target;
    fs::create_directories(dir);
    std::ofstream out(dir / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

Bytes message(MessageType type, Command cmd, uint32_t id, int32_t status, const Json& body) {
    return d3proto::makeMessage(type, uint16_t(cmd), id, status, body.is_null() ? "" : d3proto::dump(body));
}

Bytes request(Command cmd, const Json& args, uint32_t id = 1) {
    return message(MessageType::Request, cmd, id, 0, args);
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

d3proto::DeviceInfo device() {
    d3proto::DeviceInfo d;
    d.serial = "D3SIM-003000002";
    d.model = "3";
    d.firmwareVersion = "1.0.0";
    d.deviceVersion = "KX-120RGB sim";
    d.mac = "02:d3:00:00:00:02";
    d.ip = "127.0.0.2";
    d.netmask = "255.0.0.0";
    d.gateway = "127.0.0.1";
    d.controlPort = 48601;
    d.streamPort = 48602;
    return d;
}

Bytes jpeg(int w, int h) {
    std::vector<uint8_t> rgb(size_t(w) * h * 3);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = uint8_t(i * 7);
    tjhandle tj = tjInitCompress();
    unsigned char* buf = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, rgb.data(), w, w * 3, h, TJPF_RGB, &buf, &size, TJSAMP_420, 80, 0);
    Bytes out(buf, buf + size);
    tjFree(buf);
    tjDestroy(tj);
    return out;
}

Bytes frame(uint32_t id, d3proto::RgbEncoding enc) {
    d3proto::FrameHeader h;
    h.frameId = id;
    h.timestampUs = 40000ull * id;
    h.tofWidth = 8;
    h.tofHeight = 4;
    h.exposureUs = 500;
    std::vector<uint16_t> depth(32), amplitude(32);
    std::vector<uint8_t> ir(32);
    for (int i = 0; i < 32; ++i) {
        depth[i] = uint16_t(800 + 37 * i);
        amplitude[i] = uint16_t(100 * i);
        ir[i] = uint8_t(5 * i);
    }
    Bytes rgb;
    if (enc == d3proto::RgbEncoding::Jpeg) rgb = jpeg(16, 8);
    if (enc == d3proto::RgbEncoding::Raw) rgb.assign(16 * 8 * 3, 90);
    if (!rgb.empty()) {
        h.rgbWidth = 16;
        h.rgbHeight = 8;
        h.rgbEncoding = enc;
        h.rgbBytes = uint32_t(rgb.size());
    }
    Bytes out;
    d3proto::encodeFrame(h, depth.data(), ir.data(), amplitude.data(), rgb.empty() ? nullptr : rgb.data(), out);
    return out;
}

void cameraRequests() {
    const std::string t = "camera_request";
    write(t, "open_session", request(Command::OpenSession, {{"client", "seed"}, {"transport", "udp"}}));
    write(t, "set_frame_rate", request(Command::SetFrameRate, {{"value", 10}}));
    write(t, "set_exposure", request(Command::SetTofExposureTime, {{"value", 600}}));
    write(t, "set_trigger", request(Command::SetTriggerMode, {{"value", 3}}));
    write(t, "set_delay", request(Command::SetHardTriggerDelay, {{"ms", 7}, {"us", 250}}));
    write(t, "set_spatial", request(Command::SetSpatialFilter, {{"enable", true}, {"value", 5.0}, {"value2", 100.0}}));
    write(t, "set_fly", request(Command::SetFlyPixelFilter, {{"enable", false}}));
    write(t, "set_hdr", request(Command::SetHdr, {{"value", true}}));
    write(t, "set_rgb_gain", request(Command::SetRgbGain, {{"value", 40}}));
    write(t, "set_network",
          request(Command::SetNetworkMode,
                  {{"ip", "127.0.0.9"}, {"netmask", "255.0.0.0"}, {"gateway", ""}, {"dhcp", false}}));
    write(t, "attach", request(Command::AttachStream, {{"token", 12345}}));
    write(t, "sequence",
          concat({request(Command::OpenSession, {{"client", "seed"}}, 1),
                  request(Command::GetFrameRate, Json::object(), 2), request(Command::StartStream, Json::object(), 3),
                  request(Command::SoftTrigger, Json::object(), 4), request(Command::SaveConfig, Json::object(), 5),
                  request(Command::StopStream, Json::object(), 6),
                  request(Command::FactoryDefaults, Json::object(), 7)}));
}

void sdkReplies() {
    const std::string t = "sdk_reply";
    d3proto::SessionReply session;
    session.token = 77;
    session.streamPort = 48602;
    d3proto::CalibrationMsg cal;
    cal.image.rgbWidth = 1920;
    cal.image.rgbHeight = 1080;
    cal.image.rgb = true;
    cal.tof.fx = cal.tof.fy = 520;
    cal.tof.cx = 320;
    cal.tof.cy = 240;
    d3proto::FilterMsg filter;
    filter.enable = true;
    filter.value = 3;
    d3proto::DelayMsg delay{5, 100};
    write(t, "device_info", message(MessageType::Reply, Command::GetDeviceInfo, 1, 2, d3proto::toJson(device())));
    write(t, "session", message(MessageType::Reply, Command::OpenSession, 1, 2, d3proto::toJson(session)));
    write(t, "image_info", message(MessageType::Reply, Command::GetImageInfo, 2, 2, d3proto::toJson(cal.image)));
    write(t, "intrinsics", message(MessageType::Reply, Command::GetTofIntrinsics, 3, 2, d3proto::toJson(cal.tof)));
    write(t, "extrinsics", message(MessageType::Reply, Command::GetExtrinsics, 4, 2, d3proto::toJson(cal.extrinsics)));
    write(t, "calibration", message(MessageType::Event, Command::CalibrationEvent, 0, 0, d3proto::toJson(cal)));
    write(t, "filter", message(MessageType::Reply, Command::GetSpatialFilter, 5, 2, d3proto::toJson(filter)));
    write(t, "delay", message(MessageType::Reply, Command::GetHardTriggerDelay, 6, 2, d3proto::toJson(delay)));
    write(t, "value", message(MessageType::Reply, Command::GetFrameRate, 7, 2, {{"value", 25}}));
    write(t, "error", message(MessageType::Reply, Command::SetFrameRate, 8, 4, {{"error", "out of range"}}));
}

void framePayloads() {
    const std::string t = "frame_payload";
    write(t, "depth_only", frame(1, d3proto::RgbEncoding::None));
    write(t, "jpeg_colour", frame(2, d3proto::RgbEncoding::Jpeg));
    write(t, "raw_colour", frame(3, d3proto::RgbEncoding::Raw));
}

void udpDatagrams() {
    const std::string t = "udp_datagram";
    const Bytes payload = frame(4, d3proto::RgbEncoding::None);
    Bytes out;
    const uint32_t count = d3proto::udpPacketCount(uint32_t(payload.size()));
    d3proto::encodeUdpData({4, 0, uint16_t(count), uint32_t(payload.size())}, payload.data(),
                           std::min(payload.size(), d3proto::kUdpChunk), out);
    write(t, "data", out);
    out.clear();
    d3proto::encodeUdpResend({4, {{0, 3}, {7, 7}, {9, 12}}}, out);
    write(t, "resend", out);
    out.clear();
    d3proto::encodeUdpHello(0xC0FFEE, out);
    write(t, "hello", out);
}

void discovery() {
    const std::string t = "discovery";
    write(t, "request", request(Command::Discover, Json()));
    write(t, "answer", message(MessageType::Reply, Command::Discover, 1, 2, d3proto::toJson(device())));
}

void firmwareImages() {
    const std::string t = "firmware_image";
    Bytes image;
    std::string error;
    // Small payloads keep the fuzzer fast; the header is what has most rules.
    if (d3proto::makeFirmwareImage("1.5.0", '3', 96, image, error)) write(t, "model3_1.5.0", image);
    if (d3proto::makeFirmwareImage("2.0.0-rc1+build.7", '0', 1, image, error)) write(t, "model0_one_byte", image);
    Bytes chunk;
    const uint8_t bytes[] = {0x44, 0x33, 0x46, 0x57, 1, 0, 64, 0};
    d3proto::encodeFirmwareChunk(4096, bytes, sizeof bytes, chunk);
    write(t, "chunk", chunk);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
        return 2;
    }
    root = argv[1];
    cameraRequests();
    sdkReplies();
    framePayloads();
    udpDatagrams();
    discovery();
    firmwareImages();
    return 0;
}
