#include "d3_protocol/Message.h"

#include <cstring>

namespace d3proto {

const char* toString(DecodeResult r) {
    switch (r) {
        case DecodeResult::Ok:
            return "ok";
        case DecodeResult::NeedMore:
            return "incomplete header";
        case DecodeResult::BadMagic:
            return "bad magic";
        case DecodeResult::BadVersion:
            return "unsupported protocol version";
        case DecodeResult::BadType:
            return "unknown message type";
        case DecodeResult::TooLarge:
            return "payload too large";
    }
    return "?";
}

DecodeResult decodeHeader(const uint8_t* data, size_t size, uint32_t maxPayload, Header& out) {
    if (size < kHeaderSize) return DecodeResult::NeedMore;
    if (getU32(data) != kMagic) return DecodeResult::BadMagic;
    if (data[4] != kVersion) return DecodeResult::BadVersion;
    const uint8_t type = data[5];
    if (type < uint8_t(MessageType::Request) || type > uint8_t(MessageType::Event)) return DecodeResult::BadType;
    const uint32_t length = getU32(data + 16);
    if (length > maxPayload) return DecodeResult::TooLarge;
    out.type = MessageType(type);
    out.command = getU16(data + 6);
    out.requestId = getU32(data + 8);
    out.status = int32_t(getU32(data + 12));
    out.payloadLength = length;
    out.flags = getU32(data + 20);
    return DecodeResult::Ok;
}

void encodeHeader(const Header& h, uint8_t* out) {
    putU32(out, kMagic);
    out[4] = kVersion;
    out[5] = uint8_t(h.type);
    putU16(out + 6, h.command);
    putU32(out + 8, h.requestId);
    putU32(out + 12, uint32_t(h.status));
    putU32(out + 16, h.payloadLength);
    putU32(out + 20, h.flags);
}

void appendMessage(const Header& h, const uint8_t* payload, size_t payloadSize, std::vector<uint8_t>& out) {
    Header copy = h;
    copy.payloadLength = uint32_t(payloadSize);
    const size_t start = out.size();
    out.resize(start + kHeaderSize + payloadSize);
    encodeHeader(copy, out.data() + start);
    if (payloadSize) std::memcpy(out.data() + start + kHeaderSize, payload, payloadSize);
}

std::vector<uint8_t> makeMessage(MessageType type, uint16_t command, uint32_t requestId, int32_t status,
                                 const std::string& payload) {
    Header h;
    h.type = type;
    h.command = command;
    h.requestId = requestId;
    h.status = status;
    std::vector<uint8_t> out;
    out.reserve(kHeaderSize + payload.size());
    appendMessage(h, reinterpret_cast<const uint8_t*>(payload.data()), payload.size(), out);
    return out;
}

DecodeResult decodeDatagram(const uint8_t* data, size_t size, Message& out) {
    const DecodeResult r = decodeHeader(data, size, uint32_t(kMaxDatagram), out.header);
    if (r != DecodeResult::Ok) return r;
    // A datagram carrying less than its header announces is truncated; more is junk.
    if (size - kHeaderSize != out.header.payloadLength) return DecodeResult::NeedMore;
    out.payload.assign(data + kHeaderSize, data + size);
    return DecodeResult::Ok;
}

}  // namespace d3proto
