#include "d3_protocol/Firmware.h"

#include <cstdio>
#include <cstring>

#include "d3_protocol/Crc32.h"
#include "d3_protocol/Message.h"

namespace d3proto {

namespace {

// Header layout (all little-endian); see docs/protocol.md.
constexpr size_t kOffMagic = 0;
constexpr size_t kOffFormat = 4;
constexpr size_t kOffHeaderSize = 6;
constexpr size_t kOffModel = 8;
constexpr size_t kOffVersion = 12;
constexpr size_t kOffPayloadLength = 44;
constexpr size_t kOffPayloadCrc = 48;
constexpr size_t kOffHeaderCrc = 60;

bool validModel(char m) { return m >= '0' && m <= '4'; }

FirmwareCheck failed(FirmwareCheck c, FirmwareImageError e, std::string reason) {
    c.error = e;
    c.reason = std::move(reason);
    return c;
}

// The version field: text up to the first NUL, which must come within the
// field, followed by nothing but NULs.
bool checkVersionField(const uint8_t* field, std::string& version, std::string& reason) {
    const void* nul = std::memchr(field, 0, kFirmwareVersionField);
    if (!nul) {
        version.assign(reinterpret_cast<const char*>(field), kFirmwareVersionField);
        reason = "the version string is longer than " + std::to_string(kMaxFirmwareVersionLength) + " characters";
        return false;
    }
    const size_t length = size_t(static_cast<const uint8_t*>(nul) - field);
    version.assign(reinterpret_cast<const char*>(field), length);
    if (!validFirmwareVersion(version, reason)) return false;
    for (size_t i = length; i < kFirmwareVersionField; ++i) {
        if (field[i] != 0) {
            reason = "the version field holds bytes after the end of its text";
            return false;
        }
    }
    return true;
}

}  // namespace

std::string printable(const std::string& raw) {
    std::string out;
    for (unsigned char c : raw) {
        if (c >= 0x20 && c < 0x7F) {
            out += char(c);
        } else {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02x", c);
            out += buf;
        }
    }
    return out;
}


const char* toString(FirmwareImageError e) {
    switch (e) {
        case FirmwareImageError::None:
            return "valid";
        case FirmwareImageError::Truncated:
            return "truncated";
        case FirmwareImageError::Oversized:
            return "oversized";
        case FirmwareImageError::BadMagic:
            return "bad magic";
        case FirmwareImageError::UnknownFormatVersion:
            return "unknown format version";
        case FirmwareImageError::BadHeaderSize:
            return "bad header size";
        case FirmwareImageError::BadHeaderChecksum:
            return "bad header checksum";
        case FirmwareImageError::BadModel:
            return "bad model";
        case FirmwareImageError::BadVersionString:
            return "bad version string";
        case FirmwareImageError::LengthMismatch:
            return "length mismatch";
        case FirmwareImageError::PayloadChecksum:
            return "payload checksum mismatch";
    }
    return "?";
}

bool validFirmwareVersion(const std::string& version, std::string& reason) {
    if (version.empty()) {
        reason = "the version string is empty";
        return false;
    }
    if (version.size() > kMaxFirmwareVersionLength) {
        reason = "the version string is longer than " + std::to_string(kMaxFirmwareVersionLength) + " characters";
        return false;
    }
    for (unsigned char c : version) {
        // Printable and without blanks: it ends up in logs, file names and JSON.
        if (c <= 0x20 || c >= 0x7F) {
            reason = "the version string \"" + printable(version) +
                     "\" has a blank or a character that is not printable ASCII";
            return false;
        }
    }
    return true;
}

FirmwareCheck checkFirmwareImage(const uint8_t* data, size_t size) {
    FirmwareCheck c;
    // Size first: nothing past the end is read, and nothing absurd is trusted.
    if (size > kMaxFirmwareImage)
        return failed(c, FirmwareImageError::Oversized,
                      "the image is " + std::to_string(size) + " bytes; an image is at most " +
                          std::to_string(kMaxFirmwareImage) + " bytes");
    if (size < kFirmwareHeaderSize)
        return failed(c, FirmwareImageError::Truncated,
                      "the image is truncated: " + std::to_string(size) + " bytes, shorter than the " +
                          std::to_string(kFirmwareHeaderSize) + "-byte header");

    FirmwareHeader& h = c.header;
    c.headerRead = true;
    h.magic = getU32(data + kOffMagic);
    h.formatVersion = getU16(data + kOffFormat);
    h.headerSize = getU16(data + kOffHeaderSize);
    h.model = char(data[kOffModel]);
    h.payloadLength = getU32(data + kOffPayloadLength);
    h.payloadCrc = getU32(data + kOffPayloadCrc);
    h.headerCrc = getU32(data + kOffHeaderCrc);
    const void* nul = std::memchr(data + kOffVersion, 0, kFirmwareVersionField);
    h.version.assign(reinterpret_cast<const char*>(data + kOffVersion),
                     nul ? size_t(static_cast<const uint8_t*>(nul) - (data + kOffVersion)) : kFirmwareVersionField);

    if (h.magic != kFirmwareMagic)
        return failed(c, FirmwareImageError::BadMagic, "not a firmware image: it does not start with \"D3FW\"");
    if (h.formatVersion != kFirmwareFormatVersion)
        return failed(c, FirmwareImageError::UnknownFormatVersion,
                      "unknown image format version " + std::to_string(h.formatVersion) + " (this reader knows " +
                          std::to_string(kFirmwareFormatVersion) + ")");
    if (h.headerSize != kFirmwareHeaderSize)
        return failed(c, FirmwareImageError::BadHeaderSize,
                      "the header claims " + std::to_string(h.headerSize) + " bytes; format version 1 has " +
                          std::to_string(kFirmwareHeaderSize));
    if (crc32(data, kOffHeaderCrc) != h.headerCrc)
        return failed(c, FirmwareImageError::BadHeaderChecksum, "the header is damaged (its checksum does not match)");
    if (!validModel(h.model))
        return failed(c, FirmwareImageError::BadModel,
                      "the image names model \"" + printable(std::string(1, h.model)) + "\"; models are 0 to 4");
    std::string reason;
    if (!checkVersionField(data + kOffVersion, h.version, reason))
        return failed(c, FirmwareImageError::BadVersionString, reason);
    if (h.payloadLength > kMaxFirmwarePayload)
        return failed(c, FirmwareImageError::Oversized,
                      "the header announces a payload of " + std::to_string(h.payloadLength) +
                          " bytes; the update slot holds at most " + std::to_string(kMaxFirmwarePayload));
    if (h.payloadLength == 0)
        return failed(c, FirmwareImageError::LengthMismatch, "the header announces an empty payload");
    const size_t present = size - kFirmwareHeaderSize;
    if (present < h.payloadLength)
        return failed(c, FirmwareImageError::Truncated,
                      "the image is truncated: " + std::to_string(present) + " of the " +
                          std::to_string(h.payloadLength) + " payload bytes its header announces");
    if (present > h.payloadLength)
        return failed(c, FirmwareImageError::LengthMismatch,
                      "the image has " + std::to_string(present - h.payloadLength) +
                          " bytes more than the payload its header announces (" + std::to_string(h.payloadLength) +
                          ")");
    if (crc32(data + kFirmwareHeaderSize, h.payloadLength) != h.payloadCrc)
        return failed(c, FirmwareImageError::PayloadChecksum,
                      "the payload is damaged (its checksum does not match the header's)");
    return c;
}

bool makeFirmwareImage(const std::string& version, char model, uint32_t payloadSize, std::vector<uint8_t>& out,
                       std::string& error) {
    if (!validFirmwareVersion(version, error)) return false;
    if (!validModel(model)) {
        error = "the model must be a digit from 0 to 4";
        return false;
    }
    if (payloadSize == 0 || payloadSize > kMaxFirmwarePayload) {
        error = "the payload size must be 1 to " + std::to_string(kMaxFirmwarePayload) + " bytes";
        return false;
    }
    out.assign(kFirmwareHeaderSize + payloadSize, 0);
    // The payload: xorshift bytes seeded from the version and model, so two
    // images of one version are identical and different versions differ.
    uint32_t seed = 2166136261u;  // FNV-1a
    for (unsigned char ch : version + char(model)) seed = (seed ^ ch) * 16777619u;
    uint32_t x = seed ? seed : 1;
    for (uint32_t i = 0; i < payloadSize; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        out[kFirmwareHeaderSize + i] = uint8_t(x >> 24);
    }
    uint8_t* h = out.data();
    putU32(h + kOffMagic, kFirmwareMagic);
    putU16(h + kOffFormat, kFirmwareFormatVersion);
    putU16(h + kOffHeaderSize, uint16_t(kFirmwareHeaderSize));
    h[kOffModel] = uint8_t(model);
    std::memcpy(h + kOffVersion, version.data(), version.size());
    putU32(h + kOffPayloadLength, payloadSize);
    putU32(h + kOffPayloadCrc, crc32(h + kFirmwareHeaderSize, payloadSize));
    putU32(h + kOffHeaderCrc, crc32(h, kOffHeaderCrc));
    return true;
}

const char* toString(ChunkError e) {
    switch (e) {
        case ChunkError::None:
            return "ok";
        case ChunkError::TooShort:
            return "shorter than the 8-byte chunk header";
        case ChunkError::Empty:
            return "a chunk without bytes";
        case ChunkError::TooLarge:
            return "a chunk larger than 65536 bytes";
        case ChunkError::BadChecksum:
            return "the chunk's bytes do not match its checksum";
    }
    return "?";
}

ChunkError decodeFirmwareChunk(const uint8_t* payload, size_t size, FirmwareChunkView& out) {
    if (size < kFirmwareChunkHeader) return ChunkError::TooShort;
    const size_t bytes = size - kFirmwareChunkHeader;
    if (bytes == 0) return ChunkError::Empty;
    if (bytes > kMaxFirmwareChunk) return ChunkError::TooLarge;
    out.offset = getU32(payload);
    out.crc = getU32(payload + 4);
    out.data = payload + kFirmwareChunkHeader;
    out.size = bytes;
    if (crc32(out.data, out.size) != out.crc) return ChunkError::BadChecksum;
    return ChunkError::None;
}

void encodeFirmwareChunk(uint32_t offset, const uint8_t* data, size_t size, std::vector<uint8_t>& out) {
    out.resize(kFirmwareChunkHeader + size);
    putU32(out.data(), offset);
    putU32(out.data() + 4, crc32(data, size));
    if (size) std::memcpy(out.data() + kFirmwareChunkHeader, data, size);
}

// --- JSON

Json toJson(const FirmwareBeginMsg& m) { return {{"accessWord", m.accessWord}, {"size", m.size}, {"erase", m.erase}}; }

bool fromJson(const Json& j, FirmwareBeginMsg& out) {
    // A missing erase means no erase: the slot is only erased when asked.
    out.erase = false;
    return getString(j, "accessWord", out.accessWord) && getInt(j, "size", out.size) &&
           (!j.contains("erase") || getBool(j, "erase", out.erase));
}

Json toJson(const FirmwareProgressMsg& m) {
    return {{"received", m.received}, {"size", m.size}, {"maxChunk", m.maxChunk}};
}

bool fromJson(const Json& j, FirmwareProgressMsg& out) {
    int64_t received, size, maxChunk;
    if (!getInt(j, "received", received) || !getInt(j, "size", size) || !getInt(j, "maxChunk", maxChunk)) return false;
    if (received < 0 || size < 0 || received > size || size > int64_t(kMaxFirmwareImage) || maxChunk < 1 ||
        maxChunk > int64_t(kMaxFirmwareChunk))
        return false;
    out = {uint32_t(received), uint32_t(size), uint32_t(maxChunk)};
    return true;
}

Json toJson(const FirmwareCommitMsg& m) { return {{"write", m.write}, {"reboot", m.reboot}}; }

bool fromJson(const Json& j, FirmwareCommitMsg& out) {
    return getBool(j, "write", out.write) && getBool(j, "reboot", out.reboot);
}

Json toJson(const FirmwareCommitReply& m) {
    return {{"version", m.version}, {"written", m.written}, {"rebooting", m.rebooting}};
}

bool fromJson(const Json& j, FirmwareCommitReply& out) {
    return getString(j, "version", out.version) && getBool(j, "written", out.written) &&
           getBool(j, "rebooting", out.rebooting);
}

}  // namespace d3proto
