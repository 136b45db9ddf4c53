// Turning a device string into a camera's discovery answer, shared by
// InitDevice and the firmware update.
#pragma once

#include <chrono>
#include <string>

#include "d3_protocol/Payloads.h"
#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// A device string: "serial:ip", a bare address or a bare serial. Either
// part may be empty.
struct DeviceName {
    std::string serial;
    std::string ip;
};
DeviceName parseDeviceName(const std::string& device);

bool looksLikeIpv4(const std::string& s);

// What is left until `deadline`, at least 1 ms and at most `cap`.
std::chrono::milliseconds leftUntil(std::chrono::steady_clock::time_point deadline, std::chrono::milliseconds cap);

// A device string -> the camera's discovery answer. Asking the address
// directly also tells us its control port and confirms the serial; a bare
// serial needs a broadcast search. Searches end by `deadline`. SUCCESS,
// INVALID_PARAMETER for an address that is not one, DEVICE_NOT_FOUND when
// only a serial was given, INIT_NETWORK_FAILED when the address did not answer.
ReturnCode locate(const std::string& device, d3proto::DeviceInfo& out, std::chrono::steady_clock::time_point deadline);

}  // namespace d3sdk
