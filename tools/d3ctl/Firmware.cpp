// firmware-image and firmware-info: making and checking firmware images
// without a camera (the update itself is firmwareUpdateTool's).
#include "d3_protocol/Firmware.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "Output.h"

using nlohmann::json;

namespace d3ctl {

namespace {

std::string hex32(uint32_t v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", v);
    return buf;
}

int failWith(const std::string& reason) {
    std::cerr << "d3ctl: " << reason << "\n";
    return 1;
}

}  // namespace

int cmdFirmwareImage(const Options& o, const std::string& version, const std::string& model, uint64_t size,
                     const std::string& path) {
    if (model.size() != 1) return failWith("the model is one digit from 0 to 4, not \"" + model + "\"");
    if (size == 0 || size > d3proto::kMaxFirmwarePayload)
        return failWith("the payload size must be 1 to " + std::to_string(d3proto::kMaxFirmwarePayload) + " bytes");
    std::vector<uint8_t> image;
    std::string error;
    if (!d3proto::makeFirmwareImage(version, model[0], uint32_t(size), image, error)) return failWith(error);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out || !out.write(reinterpret_cast<const char*>(image.data()), std::streamsize(image.size())) || !out.flush())
        return failWith("cannot write " + path + ": " + std::strerror(errno));
    const d3proto::FirmwareCheck c = d3proto::checkFirmwareImage(image);
    print(o, {{"file", path},
              {"version", version},
              {"model", model},
              {"payloadLength", c.header.payloadLength},
              {"size", image.size()},
              {"payloadCrc", hex32(c.header.payloadCrc)}});
    return 0;
}

int cmdFirmwareInfo(const Options& o, const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return failWith("cannot read " + path + ": " + std::strerror(errno));
    // One byte more than the largest image is enough to call a file oversized.
    std::vector<uint8_t> image(d3proto::kMaxFirmwareImage + 1);
    in.read(reinterpret_cast<char*>(image.data()), std::streamsize(image.size()));
    if (in.bad()) return failWith("cannot read " + path);
    image.resize(size_t(in.gcount()));

    const d3proto::FirmwareCheck c = d3proto::checkFirmwareImage(image);
    json out = {{"file", path}, {"valid", c.ok()}};
    if (!c.ok()) out["reason"] = c.reason;
    if (c.headerRead) {
        const d3proto::FirmwareHeader& h = c.header;
        char magic[5] = {char(h.magic), char(h.magic >> 8), char(h.magic >> 16), char(h.magic >> 24), 0};
        out["magic"] = d3proto::printable(std::string(magic, 4));
        out["formatVersion"] = h.formatVersion;
        out["headerSize"] = h.headerSize;
        out["model"] = d3proto::printable(std::string(1, h.model));
        out["version"] = d3proto::printable(h.version);
        out["payloadLength"] = h.payloadLength;
        out["payloadCrc"] = hex32(h.payloadCrc);
        out["headerCrc"] = hex32(h.headerCrc);
    }
    if (image.size() <= d3proto::kMaxFirmwareImage) out["size"] = image.size();
    print(o, out);
    if (!c.ok()) return failWith(path + " is not a valid firmware image: " + c.reason);
    return 0;
}

}  // namespace d3ctl
