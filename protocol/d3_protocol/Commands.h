// Command identifiers and the shape of each command's JSON payload.
#pragma once

#include <cstdint>

namespace d3proto {

enum class Command : uint16_t {
    // Session (control connection)
    OpenSession = 0x0001,
    CloseSession = 0x0002,
    Heartbeat = 0x0003,

    // Identity and calibration
    GetDeviceInfo = 0x0010,
    GetImageInfo = 0x0011,
    GetTofIntrinsics = 0x0012,
    GetRgbIntrinsics = 0x0013,
    GetExtrinsics = 0x0014,

    // Streaming
    StartStream = 0x0020,
    StopStream = 0x0021,
    SoftTrigger = 0x0022,

    // ToF parameters
    GetTofExposureTime = 0x0100,
    SetTofExposureTime = 0x0101,
    SetTofAutoExposure = 0x0102,
    GetTofExposureMode = 0x0103,
    SetSingleIntegralMode = 0x0104,
    GetSingleIntegralMode = 0x0105,
    GetHdr = 0x0106,
    SetHdr = 0x0107,
    GetFrameRate = 0x0108,
    SetFrameRate = 0x0109,
    GetIrGamma = 0x010A,
    SetIrGamma = 0x010B,
    GetTriggerMode = 0x010C,
    SetTriggerMode = 0x010D,
    GetHardTriggerDelay = 0x0110,
    SetHardTriggerDelay = 0x0111,
    GetFrequencyMode = 0x0112,
    SetFrequencyMode = 0x0113,

    // Filters
    GetTimeMedianFilter = 0x0120,
    SetTimeMedianFilter = 0x0121,
    GetFlyPixelFilter = 0x0122,
    SetFlyPixelFilter = 0x0123,
    GetConfidenceFilter = 0x0124,
    SetConfidenceFilter = 0x0125,
    GetSpatialFilter = 0x0126,
    SetSpatialFilter = 0x0127,

    // RGB parameters (models with colour only)
    GetRgbExposureMode = 0x0130,
    SetRgbExposureMode = 0x0131,
    GetRgbExposureTime = 0x0132,
    SetRgbExposureTime = 0x0133,
    GetRgbGain = 0x0134,
    SetRgbGain = 0x0135,
    GetRgbContrast = 0x0136,
    SetRgbContrast = 0x0137,

    // Non-volatile store and administration
    SaveConfig = 0x0200,
    DeleteConfig = 0x0201,
    FactoryDefaults = 0x0202,
    SetNetworkMode = 0x0203,

    // Firmware update (any control connection, no session needed)
    FirmwareBegin = 0x0300,
    FirmwareChunk = 0x0301,
    FirmwareCommit = 0x0302,

    // Stream connection
    AttachStream = 0x0400,

    // Events (camera to client, stream connection)
    FrameEvent = 0x0800,
    CalibrationEvent = 0x0801,

    // Discovery datagrams
    Discover = 0x0900,
};

// JSON shape of a request payload (replies are described per command in the docs).
enum class Args : uint8_t {
    None,            // empty payload or {}
    Int,             // {"value": integer}
    Bool,            // {"value": true|false}
    Filter,          // {"enable": bool, "value": number, "value2": number}; value/value2 optional
    Delay,           // {"ms": integer, "us": integer}
    Network,         // {"ip": str, "netmask": str, "gateway": str, "dhcp": bool}
    Session,         // {"client": str, "transport": "tcp"|"udp"}
    Token,           // {"token": integer}
    FirmwareBegin,   // {"accessWord": str, "size": integer, "erase": bool}
    Binary,          // not JSON: the command defines its own layout (FirmwareChunk)
    FirmwareCommit,  // {"write": bool, "reboot": bool}
};

struct CommandInfo {
    Command id;
    const char* name;
    Args args;
    bool needsSession;  // false: answered on any control connection
    bool rgbOnly;       // answered kNotSupported by models without colour
};

// nullptr for an id this version does not know.
const CommandInfo* findCommand(uint16_t id);
// Every known command in id order (for docs, tests and logs).
const CommandInfo* commandTable(int& count);

}  // namespace d3proto
