// Shared helpers of d3ctl commands: opening the camera, reporting failures,
// printing text or JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "d3_sdk/DeviceManager.h"

namespace d3ctl {

struct Options {
    bool json = false;
    unsigned timeoutMs = 2000;
    bool reconnect = false;  // stats: keep going across a lost camera
};

// Prints the SDK's text for `rc` (as JSON with --json) and returns the exit code.
int fail(const Options& o, const std::string& what, ReturnCode rc);
// Prints `j` as JSON, or as "key: value" lines.
void print(const Options& o, const nlohmann::json& j);

// Opens DEVICE (serial, address or "serial:ip"); SUCCESS or the SDK's code.
ReturnCode openDevice(const Options& o, const std::string& device, bool tcp = true);

int cmdList(const Options& o);
int cmdInfo(const Options& o, const std::string& device);
int cmdGet(const Options& o, const std::string& device, const std::string& name);
int cmdSet(const Options& o, const std::string& device, const std::string& name, const std::string& value);
int cmdGrab(const Options& o, const std::string& device, int frames, const std::string& dir, bool udp = false);
int cmdStats(const Options& o, const std::string& device, double seconds, bool udp);
// Administration; with `wait` they follow the rebooting camera until it answers again.
int cmdStore(const Options& o, const std::string& device);
int cmdResetConfig(const Options& o, const std::string& device, bool wait);
int cmdFactoryReset(const Options& o, const std::string& device, bool wait);
// Firmware images, without a camera: make one, or show a file's header and whether it is valid.
int cmdFirmwareImage(const Options& o, const std::string& version, const std::string& model, uint64_t size,
                     const std::string& path);
int cmdFirmwareInfo(const Options& o, const std::string& path);
// ADDRESS is a dotted IPv4 address or "dhcp"; an empty netmask keeps the camera's.
int cmdIp(const Options& o, const std::string& device, const std::string& address, const std::string& netmask,
          const std::string& gateway, bool wait);

}  // namespace d3ctl
