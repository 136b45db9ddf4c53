#include "CameraStore.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using nlohmann::json;

namespace d3sim {
namespace {

json filterToJson(const FilterSetting& f) { return {{"enable", f.enable}, {"value", f.value}, {"value2", f.value2}}; }

bool filterFromJson(const json& j, FilterSetting& f) {
    if (!j.is_object() || !j.value("enable", json()).is_boolean() || !j.value("value", json()).is_number() ||
        !j.value("value2", json()).is_number())
        return false;
    f.enable = j["enable"].get<bool>();
    f.value = j["value"].get<float>();
    f.value2 = j["value2"].get<float>();
    return true;
}

template <typename T>
bool read(const json& j, const char* key, T& out) {
    auto it = j.find(key);
    if (it == j.end()) return true;
    if constexpr (std::is_same_v<T, bool>) {
        if (!it->is_boolean()) return false;
    } else {
        if (!it->is_number_integer()) return false;
    }
    out = it->get<T>();
    return true;
}

}  // namespace

json settingsToJson(const CameraSettings& s) {
    return {{"tofExposureUs", s.tofExposureUs},
            {"tofAutoExposure", s.tofAutoExposure},
            {"singleIntegral", s.singleIntegral},
            {"hdr", s.hdr},
            {"frameRate", s.frameRate},
            {"irGamma", s.irGamma},
            {"triggerMode", s.triggerMode},
            {"hardTriggerDelayMs", s.hardTriggerDelayMs},
            {"hardTriggerDelayUs", s.hardTriggerDelayUs},
            {"frequencyMode", s.frequencyMode},
            {"timeMedian", filterToJson(s.timeMedian)},
            {"flyPixel", filterToJson(s.flyPixel)},
            {"confidence", filterToJson(s.confidence)},
            {"spatial", filterToJson(s.spatial)},
            {"rgbAutoExposure", s.rgbAutoExposure},
            {"rgbExposureUs", s.rgbExposureUs},
            {"rgbGain", s.rgbGain},
            {"rgbContrast", s.rgbContrast}};
}

bool settingsFromJson(const json& j, CameraSettings& s) {
    if (!j.is_object()) return false;
    bool ok = read(j, "tofExposureUs", s.tofExposureUs) && read(j, "tofAutoExposure", s.tofAutoExposure) &&
              read(j, "singleIntegral", s.singleIntegral) && read(j, "hdr", s.hdr) &&
              read(j, "frameRate", s.frameRate) && read(j, "irGamma", s.irGamma) &&
              read(j, "triggerMode", s.triggerMode) && read(j, "hardTriggerDelayMs", s.hardTriggerDelayMs) &&
              read(j, "hardTriggerDelayUs", s.hardTriggerDelayUs) && read(j, "frequencyMode", s.frequencyMode) &&
              read(j, "rgbAutoExposure", s.rgbAutoExposure) && read(j, "rgbExposureUs", s.rgbExposureUs) &&
              read(j, "rgbGain", s.rgbGain) && read(j, "rgbContrast", s.rgbContrast);
    const std::pair<const char*, FilterSetting*> filters[] = {{"timeMedian", &s.timeMedian},
                                                              {"flyPixel", &s.flyPixel},
                                                              {"confidence", &s.confidence},
                                                              {"spatial", &s.spatial}};
    for (const auto& [key, filter] : filters)
        if (j.contains(key)) ok = ok && filterFromJson(j[key], *filter);
    return ok;
}

CameraStore::CameraStore(std::string stateDir, std::string serial)
    : dir_(stateDir.empty() ? std::string() : (fs::path(stateDir) / serial).string()) {}

std::string CameraStore::folder() const { return dir_; }

bool CameraStore::writeJson(const std::string& name, const json& j) {
    std::error_code ec;
    fs::create_directories(dir_, ec);
    // Write then rename, so a crash never leaves a half-written file behind.
    const fs::path target = fs::path(dir_) / name;
    const fs::path tmp = fs::path(dir_) / (name + ".tmp");
    {
        std::ofstream out(tmp, std::ios::trunc);
        if (!out) return false;
        out << j.dump(2) << '\n';
        if (!out.flush()) return false;
    }
    fs::rename(tmp, target, ec);
    return !ec;
}

std::optional<json> CameraStore::readJson(const std::string& name) const {
    std::ifstream in(fs::path(dir_) / name);
    if (!in) return std::nullopt;
    json j = json::parse(in, nullptr, false);
    if (j.is_discarded() || !j.is_object()) {
        std::fprintf(stderr, "d3sim: ignoring unreadable %s in %s\n", name.c_str(), dir_.c_str());
        return std::nullopt;
    }
    return j;
}

void CameraStore::initIdentity(const CameraIdentity& identity) {
    if (dir_.empty()) return;
    if (!loadFirmwareVersion()) writeJson("firmware.json", {{"version", identity.firmwareVersion}});
    if (!readJson("identity.json"))
        writeJson("identity.json", {{"serial", identity.serial},
                                    {"model", std::string(1, identity.model)},
                                    {"mac", identity.mac},
                                    {"deviceVersion", identity.deviceVersion}});
}

std::optional<std::string> CameraStore::loadFirmwareVersion() const {
    if (dir_.empty()) return firmware_;
    auto j = readJson("firmware.json");
    if (!j || !j->value("version", json()).is_string()) return std::nullopt;
    return (*j)["version"].get<std::string>();
}

bool CameraStore::saveFirmwareVersion(const std::string& version) {
    if (dir_.empty()) {
        firmware_ = version;
        return true;
    }
    return writeJson("firmware.json", {{"version", version}});
}

std::optional<NetworkSettings> CameraStore::loadNetwork() const {
    if (dir_.empty()) return network_;
    auto j = readJson("network.json");
    if (!j) return std::nullopt;
    NetworkSettings n;
    if (!j->value("ip", json()).is_string() || !j->value("netmask", json()).is_string() ||
        !j->value("gateway", json()).is_string() || !j->value("dhcp", json()).is_boolean())
        return std::nullopt;
    n.ip = (*j)["ip"];
    n.netmask = (*j)["netmask"];
    n.gateway = (*j)["gateway"];
    n.dhcp = (*j)["dhcp"];
    return n;
}

bool CameraStore::saveNetwork(const NetworkSettings& n) {
    if (dir_.empty()) {
        network_ = n;
        return true;
    }
    return writeJson("network.json", {{"ip", n.ip}, {"netmask", n.netmask}, {"gateway", n.gateway}, {"dhcp", n.dhcp}});
}

std::optional<CameraSettings> CameraStore::loadConfig() const {
    if (dir_.empty()) return config_;
    auto j = readJson("config.json");
    CameraSettings s;
    if (!j || !settingsFromJson(*j, s)) return std::nullopt;
    return s;
}

bool CameraStore::saveConfig(const CameraSettings& s) {
    if (dir_.empty()) {
        config_ = s;
        return true;
    }
    return writeJson("config.json", settingsToJson(s));
}

bool CameraStore::deleteConfig() {
    if (dir_.empty()) {
        config_.reset();
        return true;
    }
    std::error_code ec;
    fs::remove(fs::path(dir_) / "config.json", ec);
    return !ec;
}

}  // namespace d3sim
