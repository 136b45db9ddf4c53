#include "DeviceLocator.h"

#include <algorithm>

#include "Discovery.h"

namespace d3sdk {

using Clock = std::chrono::steady_clock;

bool looksLikeIpv4(const std::string& s) {
    uint32_t ip;
    return d3proto::parseIpv4(s, ip);
}

std::chrono::milliseconds leftUntil(Clock::time_point deadline, std::chrono::milliseconds cap) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return std::clamp(left, std::chrono::milliseconds(1), cap);
}

DeviceName parseDeviceName(const std::string& device) {
    DeviceName name;
    const auto colon = device.rfind(':');
    if (colon != std::string::npos) {
        name.serial = device.substr(0, colon);
        name.ip = device.substr(colon + 1);
    } else if (looksLikeIpv4(device)) {
        name.ip = device;
    } else {
        name.serial = device;
    }
    return name;
}

ReturnCode locate(const std::string& device, d3proto::DeviceInfo& out, Clock::time_point deadline) {
    const DeviceName name = parseDeviceName(device);
    const std::string& serial = name.serial;
    const std::string& ip = name.ip;
    if (!ip.empty() && !looksLikeIpv4(ip)) return INVALID_PARAMETER;
    const uint16_t port = discoveryPort();
    const auto wait = std::chrono::milliseconds(300);
    std::vector<d3proto::DeviceInfo> found;
    // Leave half of a short budget for the search by serial below.
    const auto first = serial.empty() ? wait : std::min(wait, leftUntil(deadline, wait) / 2);
    if (!ip.empty()) found = discover({ip}, port, std::max(first, std::chrono::milliseconds(1)), 1);
    // The camera may have moved (new address, DHCP): look for its serial.
    if (found.empty() && !serial.empty()) found = discover(broadcastAddresses(), port, leftUntil(deadline, wait));
    for (const auto& d : found) {
        if (!serial.empty() && d.serial != serial) continue;
        out = d;
        if (!ip.empty() && d.ip != ip && found.size() == 1 && serial.empty()) out.ip = ip;
        return SUCCESS;
    }
    return ip.empty() ? DEVICE_NOT_FOUND : INIT_NETWORK_FAILED;
}

}  // namespace d3sdk
