// Additions of this SDK beyond the DeviceManager interface, for our own tools
// (d3ctl, benchmarks). Applications that must also run on other builds of the
// interface should not depend on them.
#pragma once

#include <cstdint>
#include <string>

#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// Counters of the current stream since StartStream (or the last reset).
struct StreamStats {
    uint64_t framesComplete = 0;  // received whole and unpacked
    // Lost: skipped by the camera (gaps in frame ids), undecodable, or
    // replaced by a newer frame before the application read it.
    uint64_t framesDropped = 0;
    uint64_t framesDelivered = 0;  // handed to a frame call
    uint64_t bytesReceived = 0;    // stream payload bytes
    // From the first byte of a frame on the socket to the frame being ready
    // for a frame call (receive + unpack + JPEG decode), milliseconds.
    double meanUnpackMs = 0;
    double maxUnpackMs = 0;
    uint32_t lastFrameId = 0;
    double seconds = 0;  // time covered by the counters
};

D3_SDK_API ReturnCode GetStreamStats(StreamStats& out);
D3_SDK_API void ResetStreamStats();

// Identity of the open camera as it reported itself.
struct DeviceDetails {
    std::string serial, model, firmwareVersion, deviceVersion, mac, ip, netmask, gateway;
    bool dhcp = false;
};
D3_SDK_API ReturnCode GetDeviceDetails(DeviceDetails& out);

}  // namespace d3sdk
