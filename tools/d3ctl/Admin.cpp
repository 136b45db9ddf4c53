// store, reset-config, factory-reset, ip: the commands that change what the
// camera keeps across power cycles. All but store make the camera reboot;
// --wait follows it until it answers a search again.
#include <chrono>
#include <functional>
#include <iostream>
#include <optional>
#include <thread>

#include "Output.h"
#include "d3_sdk/Extensions.h"

using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace d3ctl {

namespace {

// A rebooting camera is away for a few seconds; give it a generous margin.
constexpr auto kRebootWait = std::chrono::seconds(30);

// Searches until `serial` answers (at `ip` when given); the seconds it took,
// or -1. `found` gets the "serial:ip" it answered as.
double waitForCamera(const std::string& serial, const std::string& ip, Clock::time_point since, std::string& found) {
    DeviceManager& dm = DeviceManager::GetInstance();
    const auto end = since + kRebootWait;
    // Let the camera go away first: right after the reply it may still answer.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    while (Clock::now() < end) {
        for (const std::string& d : dm.FindDevices()) {
            const auto colon = d.rfind(':');
            if (d.substr(0, colon) != serial || (!ip.empty() && d.substr(colon + 1) != ip)) continue;
            found = d;
            return std::chrono::duration<double>(Clock::now() - since).count();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return -1;
}

// Opens DEVICE, runs `call`, closes, and reports; `moveTo` is where the camera
// will answer after its reboot: none for where it is now, empty for anywhere.
int runAdmin(const Options& o, const std::string& device, const char* what, bool reboots, bool wait,
             const std::function<ReturnCode(DeviceManager&)>& call, json out,
             const std::optional<std::string>& moveTo = std::nullopt) {
    ReturnCode rc = openDevice(o, device);
    if (rc != SUCCESS) return fail(o, "open " + device, rc);
    DeviceManager& dm = DeviceManager::GetInstance();
    d3sdk::DeviceDetails before;
    d3sdk::GetDeviceDetails(before);
    rc = call(dm);
    const auto sent = Clock::now();
    // After a rebooting command the session is about to die anyway: no goodbye.
    dm.DisconnectFromDevice();
    if (rc != SUCCESS) return fail(o, what, rc);
    out["serial"] = before.serial;
    if (reboots) {
        out["rebooting"] = true;
        if (wait) {
            const std::string at = moveTo.value_or(before.ip);
            std::string found;
            const double back = waitForCamera(before.serial, at, sent, found);
            if (back < 0) {
                std::cerr << "d3ctl: " << before.serial << " did not come back" << (at.empty() ? "" : " at " + at)
                          << " within " << kRebootWait.count() << " s\n";
                return 1;
            }
            out["backAfterSeconds"] = back;
            out["device"] = found;
        }
    }
    print(o, out);
    return 0;
}

}  // namespace

int cmdStore(const Options& o, const std::string& device) {
    return runAdmin(o, device, "store the configuration", false, false,
                    [](DeviceManager& dm) { return dm.SaveConfigureInfo(); }, {{"stored", true}});
}

int cmdResetConfig(const Options& o, const std::string& device, bool wait) {
    return runAdmin(o, device, "delete the stored configuration", true, wait,
                    [](DeviceManager& dm) { return dm.DeleteConfigureInfo(); }, {{"storedConfiguration", "deleted"}});
}

int cmdFactoryReset(const Options& o, const std::string& device, bool wait) {
    return runAdmin(o, device, "factory reset", true, wait,
                    [](DeviceManager& dm) { return dm.RecoveryDefaultConfigure(); }, {{"factoryReset", true}});
}

int cmdIp(const Options& o, const std::string& device, const std::string& address, const std::string& netmask,
          const std::string& gateway, bool wait) {
    const bool dhcp = address == "dhcp";
    NetworkMode mode;
    mode.isStatic = !dhcp;
    mode.ip = dhcp ? std::string() : address;
    mode.gateway = gateway;
    mode.netmask = netmask;
    if (mode.netmask.empty()) {
        // Keep the camera's own mask unless told otherwise.
        ReturnCode rc = openDevice(o, device);
        if (rc != SUCCESS) return fail(o, "open " + device, rc);
        d3sdk::DeviceDetails d;
        rc = d3sdk::GetDeviceDetails(d);
        DeviceManager::GetInstance().DisconnectFromDevice();
        if (rc != SUCCESS) return fail(o, "read device details", rc);
        mode.netmask = d.netmask;
        if (dhcp) mode.ip = d.ip;
    }
    json out = {{"ip", dhcp ? "dhcp" : address}, {"netmask", mode.netmask}};
    if (!gateway.empty()) out["gateway"] = gateway;
    // With DHCP the new address is the network's choice: wait for the serial anywhere.
    return runAdmin(
        o, device, "set the network mode", true, wait, [&mode](DeviceManager& dm) { return dm.SetNetworkMode(mode); },
        out, dhcp ? std::string() : address);
}

}  // namespace d3ctl
