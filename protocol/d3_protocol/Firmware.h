// Firmware images and the firmware endpoint's payloads. Images come from
// users, so the parser reads nothing it has not bounds-checked and names every
// way an image can be wrong. docs/protocol.md section 9 is the normative
// description of the layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "d3_protocol/Payloads.h"

namespace d3proto {

// --- the image: a 64-byte header, then the payload

constexpr uint32_t kFirmwareMagic = 0x57463344;  // bytes "D3FW"
constexpr uint16_t kFirmwareFormatVersion = 1;
constexpr size_t kFirmwareHeaderSize = 64;
constexpr size_t kFirmwareVersionField = 32;  // NUL-terminated, so at most 31 characters
constexpr size_t kMaxFirmwareVersionLength = kFirmwareVersionField - 1;
constexpr uint32_t kMaxFirmwarePayload = 16u << 20;  // the camera's update slot
constexpr size_t kMaxFirmwareImage = kFirmwareHeaderSize + kMaxFirmwarePayload;
// What `d3ctl firmware-image` makes when no size is given.
constexpr uint32_t kDefaultFirmwarePayload = 256u * 1024;

enum class FirmwareImageError {
    None,
    Truncated,             // shorter than its header, or than the payload the header announces
    Oversized,             // larger than any update slot
    BadMagic,              // not a firmware image at all
    UnknownFormatVersion,  // a format this reader does not know
    BadHeaderSize,
    BadHeaderChecksum,
    BadModel,          // the model byte is not '0'..'4'
    BadVersionString,  // empty, too long, not printable, or junk after its end
    LengthMismatch,    // bytes after the payload, or an empty payload
    PayloadChecksum,
};
const char* toString(FirmwareImageError e);

// Header fields as read (also from an invalid image, when at least a header's
// worth of bytes is there, so a tool can show what a broken file claims).
struct FirmwareHeader {
    uint32_t magic = 0;
    uint16_t formatVersion = 0;
    uint16_t headerSize = 0;
    char model = 0;
    std::string version;  // raw bytes up to the first NUL
    uint32_t payloadLength = 0;
    uint32_t payloadCrc = 0;
    uint32_t headerCrc = 0;
};

struct FirmwareCheck {
    FirmwareImageError error = FirmwareImageError::None;
    std::string reason;       // one sentence for people; empty when valid
    bool headerRead = false;  // `header` holds the file's first 64 bytes decoded
    FirmwareHeader header;
    bool ok() const { return error == FirmwareImageError::None; }
};

// Checks a whole image: header, then payload length and checksum.
FirmwareCheck checkFirmwareImage(const uint8_t* data, size_t size);
inline FirmwareCheck checkFirmwareImage(const std::vector<uint8_t>& image) {
    return checkFirmwareImage(image.data(), image.size());
}

// `raw` with every byte outside printable ASCII written as \xNN: header
// fields of a broken file may hold anything, and reasons and reports stay readable.
std::string printable(const std::string& raw);

// Whether `version` can go into an image: 1..31 printable ASCII characters
// without blanks. False with a reason otherwise.
bool validFirmwareVersion(const std::string& version, std::string& reason);

// Builds an image for `model` ('0'..'4') carrying `version`, with a payload of
// `payloadSize` bytes (1..kMaxFirmwarePayload) that depends only on the
// version, the model and the size. False with a reason for bad inputs.
bool makeFirmwareImage(const std::string& version, char model, uint32_t payloadSize, std::vector<uint8_t>& out,
                       std::string& error);

// --- FirmwareChunk: the one request whose payload is binary

constexpr size_t kFirmwareChunkHeader = 8;  // u32 offset, u32 CRC-32 of the bytes
constexpr size_t kMaxFirmwareChunk = 64 * 1024;

enum class ChunkError {
    None,
    TooShort,     // not even the 8-byte chunk header
    Empty,        // a header and no bytes
    TooLarge,     // more than kMaxFirmwareChunk bytes
    BadChecksum,  // the bytes do not match their CRC-32
};
const char* toString(ChunkError e);

struct FirmwareChunkView {
    uint32_t offset = 0;
    uint32_t crc = 0;
    const uint8_t* data = nullptr;  // points into the decoded buffer
    size_t size = 0;
};

ChunkError decodeFirmwareChunk(const uint8_t* payload, size_t size, FirmwareChunkView& out);
void encodeFirmwareChunk(uint32_t offset, const uint8_t* data, size_t size, std::vector<uint8_t>& out);

// --- JSON payloads of FirmwareBegin and FirmwareCommit

struct FirmwareBeginMsg {
    std::string accessWord;
    int64_t size = 0;    // whole image, header included; range-checked by the camera
    bool erase = false;  // erase the update slot before receiving
};
Json toJson(const FirmwareBeginMsg& m);
bool fromJson(const Json& j, FirmwareBeginMsg& out);

// Reply to FirmwareBegin and to every accepted chunk.
struct FirmwareProgressMsg {
    uint32_t received = 0;  // bytes the camera holds, from offset 0
    uint32_t size = 0;      // what FirmwareBegin announced
    uint32_t maxChunk = uint32_t(kMaxFirmwareChunk);
};
Json toJson(const FirmwareProgressMsg& m);
bool fromJson(const Json& j, FirmwareProgressMsg& out);

struct FirmwareCommitMsg {
    bool write = false;   // write the verified image into flash
    bool reboot = false;  // restart into whatever firmware is installed afterwards
};
Json toJson(const FirmwareCommitMsg& m);
bool fromJson(const Json& j, FirmwareCommitMsg& out);

struct FirmwareCommitReply {
    std::string version;     // the image's version
    bool written = false;    // now the installed firmware (runs from the next start)
    bool rebooting = false;  // the camera restarts once this reply is sent
};
Json toJson(const FirmwareCommitReply& m);
bool fromJson(const Json& j, FirmwareCommitReply& out);

}  // namespace d3proto
