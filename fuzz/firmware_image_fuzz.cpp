// Firmware images come from users' files, and chunks of them from the network:
// the image parser and the chunk decoder must name what is wrong with any
// bytes, read nothing outside them, and accept only what they promise.
#include <cstring>
#include <string>

#include "d3_protocol/Firmware.h"
#include "fuzzinput.h"

namespace {

bool printableAscii(const std::string& s) {
    for (unsigned char c : s)
        if (c < 0x20 || c > 0x7e) return false;
    return true;
}

void checkImage(const uint8_t* data, size_t size) {
    const d3proto::FirmwareCheck check = d3proto::checkFirmwareImage(data, size);
    // A reason exactly when the image is refused, and always one a person can read.
    d3fuzz::check(check.ok() == check.reason.empty());
    d3fuzz::check(printableAscii(check.reason) || check.reason.find('\\') != std::string::npos);
    d3fuzz::check(printableAscii(d3proto::printable(check.header.version)));
    if (!check.ok()) return;
    const d3proto::FirmwareHeader& h = check.header;
    d3fuzz::check(check.headerRead);
    d3fuzz::check(size == d3proto::kFirmwareHeaderSize + h.payloadLength);
    d3fuzz::check(size <= d3proto::kMaxFirmwareImage);
    d3fuzz::check(h.payloadLength >= 1 && h.payloadLength <= d3proto::kMaxFirmwarePayload);
    d3fuzz::check(h.model >= '0' && h.model <= '4');
    std::string why;
    d3fuzz::check(d3proto::validFirmwareVersion(h.version, why));
    // An accepted image stays accepted cut short or with a byte added.
    d3fuzz::check(d3proto::checkFirmwareImage(data, size - 1).error == d3proto::FirmwareImageError::Truncated);
}

void checkChunk(const uint8_t* data, size_t size) {
    d3proto::FirmwareChunkView view;
    const d3proto::ChunkError e = d3proto::decodeFirmwareChunk(data, size, view);
    if (e != d3proto::ChunkError::None) {
        d3fuzz::check(std::strlen(d3proto::toString(e)) > 0);
        return;
    }
    d3fuzz::check(view.size >= 1 && view.size <= d3proto::kMaxFirmwareChunk);
    d3fuzz::check(view.data == data + d3proto::kFirmwareChunkHeader);
    d3fuzz::check(d3proto::kFirmwareChunkHeader + view.size == size);
    // What the decoder accepts, the encoder writes back byte for byte.
    std::vector<uint8_t> again;
    d3proto::encodeFirmwareChunk(view.offset, view.data, view.size, again);
    d3fuzz::check(again.size() == size && std::memcmp(again.data(), data, size) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    checkImage(data, size);
    checkChunk(data, size);
    return 0;
}
