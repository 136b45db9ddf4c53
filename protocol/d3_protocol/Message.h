// Framing shared by every TCP connection to a camera (control and stream) and
// by discovery datagrams: a fixed 24-byte little-endian header, then a payload.
// docs/protocol.md is the normative description; keep the two in step.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace d3proto {

constexpr uint32_t kMagic = 0x50433344;  // bytes "D3CP"
constexpr uint8_t kVersion = 1;
constexpr size_t kHeaderSize = 24;

// Largest payload a receiver accepts, per connection kind. Anything larger is
// treated as corruption so a bad length can never make us allocate gigabytes.
constexpr uint32_t kMaxControlPayload = 1u << 20;  // 1 MiB
constexpr uint32_t kMaxStreamPayload = 32u << 20;  // 32 MiB: 5 MB of ToF data + a JPEG
constexpr size_t kMaxDatagram = 1472;              // discovery: one Ethernet frame

constexpr uint16_t kDefaultDiscoveryPort = 48600;
constexpr uint16_t kDefaultControlPort = 48601;
constexpr uint16_t kDefaultStreamPort = 48602;
// Environment variable the SDK reads to override the discovery port.
constexpr const char* kDiscoveryPortEnv = "D3_DISCOVERY_PORT";

enum class MessageType : uint8_t {
    Request = 1,
    Reply = 2,
    Event = 3,  // unsolicited, camera to client (frames, calibration)
};

// Status values carried in replies. They are the SDK's ReturnCode numbers; the
// wire owns them so both ends agree without sharing the SDK header.
namespace status {
constexpr int32_t kSuccess = 2;
constexpr int32_t kFailed = 3;
constexpr int32_t kInvalidParameter = 4;
constexpr int32_t kTimeout = 5;
constexpr int32_t kBusy = 6;
constexpr int32_t kNotConnected = 7;
constexpr int32_t kNotSupported = 8;
constexpr int32_t kFileError = 9;
constexpr int32_t kFirmwareRejected = 10;
constexpr int32_t kAccessDenied = 11;
constexpr int32_t kProtocolError = 12;
constexpr int32_t kRefusedWhileStreaming = 15;
// Firmware: the flash failed its verification after a write; a write into
// an update slot that was not erased.
constexpr int32_t kFlashWriteFailed = 16;
constexpr int32_t kFlashNotErased = 17;
// A camera that replays a recording cannot change what was recorded.
constexpr int32_t kRefusedByRecording = 18;
constexpr int32_t kNotStreaming = 34;
constexpr int32_t kTriggerModeRefused = 39;
}  // namespace status

struct Header {
    MessageType type = MessageType::Request;
    uint16_t command = 0;
    uint32_t requestId = 0;
    int32_t status = 0;  // replies only; 0 in requests and events
    uint32_t payloadLength = 0;
    uint32_t flags = 0;  // reserved: senders write 0, receivers ignore
};

enum class DecodeResult {
    Ok,
    NeedMore,    // fewer than kHeaderSize bytes available
    BadMagic,    // not our protocol: drop the connection
    BadVersion,  // our protocol, other version: answer kProtocolError, then drop
    BadType,
    TooLarge,  // payloadLength above the caller's limit
};

const char* toString(DecodeResult r);

// Reads and validates a header from the first `size` bytes of `data`.
DecodeResult decodeHeader(const uint8_t* data, size_t size, uint32_t maxPayload, Header& out);

// Writes exactly kHeaderSize bytes.
void encodeHeader(const Header& h, uint8_t* out);

// Header + payload in one buffer, ready to send. Appends to `out`.
void appendMessage(const Header& h, const uint8_t* payload, size_t payloadSize, std::vector<uint8_t>& out);
std::vector<uint8_t> makeMessage(MessageType type, uint16_t command, uint32_t requestId, int32_t status,
                                 const std::string& payload);

// A complete message split off a byte stream.
struct Message {
    Header header;
    std::vector<uint8_t> payload;
    std::string payloadText() const { return std::string(payload.begin(), payload.end()); }
};

// Splits one complete datagram (discovery) into header and payload; the
// datagram must hold exactly one message.
DecodeResult decodeDatagram(const uint8_t* data, size_t size, Message& out);

// Little-endian helpers used by every binary codec in this library.
inline void putU16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void putU32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}
inline void putU64(uint8_t* p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = uint8_t(v >> (8 * i));
}
inline uint16_t getU16(const uint8_t* p) { return uint16_t(p[0] | (p[1] << 8)); }
inline uint32_t getU32(const uint8_t* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline uint64_t getU64(const uint8_t* p) { return uint64_t(getU32(p)) | (uint64_t(getU32(p + 4)) << 32); }

}  // namespace d3proto
