// list, info, get, set.
#include <iostream>

#include "Output.h"
#include "Parameters.h"
#include "d3_sdk/Extensions.h"

using nlohmann::json;

namespace d3ctl {

int fail(const Options& o, const std::string& what, ReturnCode rc) {
    const std::string text = DeviceManager::GetInstance().GetReturnCodeDescriptor(rc);
    if (o.json)
        std::cout << json{{"error", text}, {"code", int(rc)}, {"during", what}}.dump() << "\n";
    else
        std::cerr << "d3ctl: " << what << ": " << text << " (" << int(rc) << ")\n";
    return 1;
}

void print(const Options& o, const json& j) {
    if (o.json) {
        std::cout << j.dump(2) << "\n";
        return;
    }
    if (!j.is_object()) {
        std::cout << (j.is_string() ? j.get<std::string>() : j.dump()) << "\n";
        return;
    }
    for (const auto& [key, value] : j.items())
        std::cout << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump()) << "\n";
}

ReturnCode openDevice(const Options& o, const std::string& device, bool tcp) {
    DeviceManager& dm = DeviceManager::GetInstance();
    dm.SetTimeout(o.timeoutMs);
    return dm.InitDevice(device, tcp);
}

int cmdList(const Options& o) {
    const auto devices = DeviceManager::GetInstance().FindDevices();
    if (o.json) {
        json arr = json::array();
        for (const std::string& d : devices) {
            const auto colon = d.rfind(':');
            arr.push_back({{"serial", d.substr(0, colon)}, {"ip", d.substr(colon + 1)}, {"device", d}});
        }
        std::cout << arr.dump(2) << "\n";
    } else {
        for (const std::string& d : devices) std::cout << d << "\n";
        if (devices.empty()) std::cerr << "d3ctl: no camera found\n";
    }
    return 0;
}

int cmdInfo(const Options& o, const std::string& device) {
    ReturnCode rc = openDevice(o, device);
    if (rc != SUCCESS) return fail(o, "open " + device, rc);
    DeviceManager& dm = DeviceManager::GetInstance();
    d3sdk::DeviceDetails d;
    if ((rc = d3sdk::GetDeviceDetails(d)) != SUCCESS) return fail(o, "read device details", rc);
    int w = 0, h = 0;
    bool rgb = false;
    CameraIntrinsicParam k{};
    dm.GetImageInfo(w, h);
    dm.IsRgbDevice(rgb);
    if ((rc = dm.GetTofCameraIntrinsicParam(k)) != SUCCESS) return fail(o, "read intrinsics", rc);
    print(o, {{"serial", d.serial},
              {"model", d.model},
              {"firmware", d.firmwareVersion},
              {"device", d.deviceVersion},
              {"mac", d.mac},
              {"ip", d.ip},
              {"netmask", d.netmask},
              {"gateway", d.gateway},
              {"dhcp", d.dhcp},
              {"rgb", rgb},
              {"rgbWidth", w},
              {"rgbHeight", h},
              {"tofIntrinsics", {{"fx", k.fx}, {"fy", k.fy}, {"cx", k.cx}, {"cy", k.cy}}}});
    dm.DisconnectFromDevice();
    return 0;
}

int cmdGet(const Options& o, const std::string& device, const std::string& name) {
    const Parameter* only = nullptr;
    if (!name.empty() && !(only = findParameter(name))) {
        std::cerr << "d3ctl: unknown parameter '" << name << "'\n" << parameterHelp();
        return 2;
    }
    ReturnCode rc = openDevice(o, device);
    if (rc != SUCCESS) return fail(o, "open " + device, rc);
    DeviceManager& dm = DeviceManager::GetInstance();
    bool rgb = false;
    dm.IsRgbDevice(rgb);
    json out = json::object();
    for (const Parameter& p : parameters()) {
        if ((only && &p != only) || !p.get) continue;
        if (!only && p.rgbOnly && !rgb) continue;
        json value;
        if ((rc = p.get(dm, value)) != SUCCESS) {
            dm.DisconnectFromDevice();
            return fail(o, std::string("get ") + p.name, rc);
        }
        out[p.name] = value;
    }
    if (only && !only->get) {
        std::cerr << "d3ctl: '" << name << "' cannot be read back from the camera\n";
        return 2;
    }
    print(o, only ? out[name] : out);
    dm.DisconnectFromDevice();
    return 0;
}

int cmdSet(const Options& o, const std::string& device, const std::string& name, const std::string& value) {
    const Parameter* p = findParameter(name);
    if (!p || !p->set) {
        std::cerr << "d3ctl: unknown parameter '" << name << "'\n" << parameterHelp();
        return 2;
    }
    ReturnCode rc = openDevice(o, device);
    if (rc != SUCCESS) return fail(o, "open " + device, rc);
    DeviceManager& dm = DeviceManager::GetInstance();
    rc = p->set(dm, value);
    if (rc != SUCCESS) {
        dm.DisconnectFromDevice();
        return fail(o, "set " + name + " " + value, rc);
    }
    // Show what the camera made of it (it may clamp, e.g. exposure to the
    // frame-rate limit).
    json readBack;
    if (p->get && p->get(dm, readBack) == SUCCESS) print(o, json{{name, readBack}});
    dm.DisconnectFromDevice();
    return 0;
}

}  // namespace d3ctl
