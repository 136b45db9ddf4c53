// Discovery datagrams: the requests a camera answers and the answers a search
// collects (the SDK keeps an answer only when it reads as a device).
#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"
#include "fuzzinput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > d3proto::kMaxDatagram) return 0;  // larger datagrams are cut by the receive buffer
    d3proto::Message msg;
    if (d3proto::decodeDatagram(data, size, msg) != d3proto::DecodeResult::Ok) return 0;
    d3fuzz::check(msg.payload.size() == msg.header.payloadLength);
    d3fuzz::check(d3proto::kHeaderSize + msg.payload.size() == size);
    d3proto::Json json;
    d3proto::DeviceInfo info;
    if (d3proto::parseJsonObject(msg.payload.data(), msg.payload.size(), json) && d3proto::fromJson(json, info)) {
        // The device string the SDK builds from an answer, and the address it shows.
        const std::string device = info.serial + ":" + info.ip;
        d3fuzz::check(device.substr(device.rfind(':') + 1) == info.ip || info.ip.find(':') != std::string::npos);
        uint32_t ip = 0;
        if (d3proto::parseIpv4(info.ip, ip)) d3fuzz::check(d3proto::formatIpv4(ip).size() <= 15);
    }
    return 0;
}
