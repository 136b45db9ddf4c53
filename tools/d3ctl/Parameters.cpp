#include "Parameters.h"

#include <cstdlib>
#include <cstring>

using nlohmann::json;

namespace d3ctl {

bool parseBool(const std::string& t, bool& out) {
    if (t == "on" || t == "true" || t == "1") return out = true, true;
    if (t == "off" || t == "false" || t == "0") return out = false, true;
    return false;
}

bool parseInt(const std::string& t, int& out) {
    char* end = nullptr;
    const long v = std::strtol(t.c_str(), &end, 10);
    if (t.empty() || *end != '\0' || v < -2147483647L || v > 2147483647L) return false;
    out = int(v);
    return true;
}

namespace {

// Named values of an enum-like setting, accepting the number as well.
bool parseChoice(const std::string& t, std::initializer_list<const char*> names, int& out) {
    int i = 0;
    for (const char* n : names) {
        if (t == n) return out = i, true;
        ++i;
    }
    return parseInt(t, out) && out >= 0 && out < int(names.size());
}

const char* kTrigger[] = {"normal", "software", "hardware", "hardware-delay"};

using Getter = ReturnCode (DeviceManager::*)(int&);
using Setter = ReturnCode (DeviceManager::*)(int);

template <Getter G>
ReturnCode getInt(DeviceManager& dm, json& out) {
    int v = 0;
    const ReturnCode rc = (dm.*G)(v);
    if (rc == SUCCESS) out = v;
    return rc;
}

template <Setter S>
ReturnCode setInt(DeviceManager& dm, const std::string& t) {
    int v;
    return parseInt(t, v) ? (dm.*S)(v) : INVALID_PARAMETER;
}

using FilterGetter = ReturnCode (DeviceManager::*)(FilterParam&);
using FilterSetter = ReturnCode (DeviceManager::*)(FilterParam);
using FilterSwitch = ReturnCode (DeviceManager::*)(bool);

template <FilterGetter G>
ReturnCode getFilter(DeviceManager& dm, json& out) {
    FilterParam p{};
    const ReturnCode rc = (dm.*G)(p);
    if (rc == SUCCESS) out = {{"enable", p.enable}, {"value", p.value}, {"value2", p.value2}};
    return rc;
}

// "on" / "off" switch the filter and keep its strength; "on,5" or "off,5"
// also set the strength (value2 is carried over from the camera).
template <FilterGetter G, FilterSetter S, FilterSwitch B>
ReturnCode setFilter(DeviceManager& dm, const std::string& t) {
    const auto comma = t.find(',');
    bool on;
    if (!parseBool(t.substr(0, comma), on)) return INVALID_PARAMETER;
    if (comma == std::string::npos) return (dm.*B)(on);
    FilterParam p{};
    const ReturnCode rc = (dm.*G)(p);
    if (rc != SUCCESS) return rc;
    const std::string value = t.substr(comma + 1);
    char* end = nullptr;
    p.value = std::strtof(value.c_str(), &end);
    if (value.empty() || *end != '\0') return INVALID_PARAMETER;
    p.enable = on;
    return (dm.*S)(p);
}

ReturnCode getExposureMode(DeviceManager& dm, json& out) {
    ExposureMode m;
    const ReturnCode rc = dm.GetTofCameraExposureMode(m);
    if (rc == SUCCESS) out = m == AUTO_EXPOSURE ? "auto" : "manual";
    return rc;
}

ReturnCode setExposureMode(DeviceManager& dm, const std::string& t) {
    if (t == "auto") return dm.SetTofCameraAutoExposure();
    if (t != "manual") return INVALID_PARAMETER;
    // Setting an exposure time is what switches the camera to manual; keep
    // the one auto exposure arrived at.
    int us;
    const ReturnCode rc = dm.GetTofCameraExposureTime(us);
    return rc == SUCCESS ? dm.SetTofCameraExposureTime(us) : rc;
}

ReturnCode getHdr(DeviceManager& dm, json& out) {
    bool on;
    const ReturnCode rc = dm.GetHDR(on);
    if (rc == SUCCESS) out = on;
    return rc;
}

ReturnCode setHdr(DeviceManager& dm, const std::string& t) {
    bool on;
    return parseBool(t, on) ? dm.SetHDR(on) : INVALID_PARAMETER;
}

ReturnCode setFast(DeviceManager& dm, const std::string& t) {
    bool on;
    if (!parseBool(t, on) || !on) return INVALID_PARAMETER;
    return dm.SetSingleIntegralMode();
}

ReturnCode getTrigger(DeviceManager& dm, json& out) {
    TriggerMode m;
    const ReturnCode rc = dm.GetTriggerMode(m);
    if (rc == SUCCESS) out = (m >= 0 && m < 4) ? json(kTrigger[m]) : json(int(m));
    return rc;
}

ReturnCode setTrigger(DeviceManager& dm, const std::string& t) {
    int m;
    if (!parseChoice(t, {"normal", "software", "hardware", "hardware-delay"}, m)) return INVALID_PARAMETER;
    return dm.SetTriggerMode(TriggerMode(m));
}

ReturnCode getDelay(DeviceManager& dm, json& out) {
    int ms, us;
    const ReturnCode rc = dm.GetDelayHardTriggerTime(ms, us);
    if (rc == SUCCESS) out = {{"ms", ms}, {"us", us}};
    return rc;
}

ReturnCode setDelay(DeviceManager& dm, const std::string& t) {
    const auto comma = t.find(',');
    int ms, us = 0;
    if (!parseInt(t.substr(0, comma), ms)) return INVALID_PARAMETER;
    if (comma != std::string::npos && !parseInt(t.substr(comma + 1), us)) return INVALID_PARAMETER;
    return dm.SetDelayHardTriggerTime(ms, us);
}

ReturnCode getFrequency(DeviceManager& dm, json& out) {
    FrequencyMode m;
    const ReturnCode rc = dm.GetTofFrequencyMode(m);
    if (rc == SUCCESS) out = m == DUAL_FREQUENCY ? "dual" : "single";
    return rc;
}

ReturnCode setFrequency(DeviceManager& dm, const std::string& t) {
    int m;
    if (!parseChoice(t, {"dual", "single"}, m)) return INVALID_PARAMETER;
    return dm.SetTofFrequencyMode(FrequencyMode(m));
}

ReturnCode getRgbMode(DeviceManager& dm, json& out) {
    ExposureMode m;
    const ReturnCode rc = dm.GetRgbCameraExposureMode(m);
    if (rc == SUCCESS) out = m == AUTO_EXPOSURE ? "auto" : "manual";
    return rc;
}

ReturnCode setRgbMode(DeviceManager& dm, const std::string& t) {
    int m;
    if (!parseChoice(t, {"auto", "manual"}, m)) return INVALID_PARAMETER;
    return dm.SetRgbCameraExposureMode(ExposureMode(m));
}

}  // namespace

const std::vector<Parameter>& parameters() {
    static const std::vector<Parameter> table = {
        {"exposure", "microseconds", false, getInt<&DeviceManager::GetTofCameraExposureTime>,
         setInt<&DeviceManager::SetTofCameraExposureTime>},
        {"exposure-mode", "auto|manual", false, getExposureMode, setExposureMode},
        {"fast", "on (single integration; cannot be read back)", false, nullptr, setFast},
        {"hdr", "on|off", false, getHdr, setHdr},
        {"fps", "1..25", false, getInt<&DeviceManager::GetFrameRate>, setInt<&DeviceManager::SetFrameRate>},
        {"ir-gamma", "0..255", false, getInt<&DeviceManager::GetIRGMMGain>, setInt<&DeviceManager::SetIRGMMGain>},
        {"trigger", "normal|software|hardware|hardware-delay", false, getTrigger, setTrigger},
        {"trigger-delay", "MS[,US]", false, getDelay, setDelay},
        {"frequency", "dual|single", false, getFrequency, setFrequency},
        {"time-filter", "on|off[,KERNEL]", false, getFilter<&DeviceManager::GetTimeMedianFilter>,
         setFilter<&DeviceManager::GetTimeMedianFilter, &DeviceManager::SetTimeMedianFilter,
                   &DeviceManager::SetTimeMedianFilter>},
        {"fly-filter", "on|off[,THRESHOLD]", false, getFilter<&DeviceManager::GetFlyPixeFilter>,
         setFilter<&DeviceManager::GetFlyPixeFilter, &DeviceManager::SetFlyPixeFilter,
                   &DeviceManager::SetFlyPixeFilter>},
        {"confidence-filter", "on|off[,THRESHOLD]", false, getFilter<&DeviceManager::GetConfidenceFilter>,
         setFilter<&DeviceManager::GetConfidenceFilter, &DeviceManager::SetConfidenceFilter,
                   &DeviceManager::SetConfidenceFilter>},
        {"spatial-filter", "on|off[,KERNEL]", false, getFilter<&DeviceManager::GetSpatialFilter>,
         setFilter<&DeviceManager::GetSpatialFilter, &DeviceManager::SetSpatialFilter,
                   &DeviceManager::SetSpatialFilter>},
        {"rgb-exposure-mode", "auto|manual", true, getRgbMode, setRgbMode},
        {"rgb-exposure", "microseconds", true, getInt<&DeviceManager::GetRgbCameraExposureTime>,
         setInt<&DeviceManager::SetRgbCameraExposureTime>},
        {"rgb-gain", "0..1023", true, getInt<&DeviceManager::GetRgbCameraGain>,
         setInt<&DeviceManager::SetRgbCameraGain>},
        {"rgb-contrast", "100..500", true, getInt<&DeviceManager::GetRgbCameraContrastRatio>,
         setInt<&DeviceManager::SetRgbCameraContrastRatio>},
    };
    return table;
}

const Parameter* findParameter(const std::string& name) {
    for (const Parameter& p : parameters())
        if (name == p.name) return &p;
    return nullptr;
}

std::string parameterHelp() {
    std::string s = "Parameters (get/set NAME):\n";
    for (const Parameter& p : parameters()) {
        std::string line = std::string("  ") + p.name;
        line.resize(22, ' ');
        s += line + p.values + (p.rgbOnly ? "  [colour models]" : "") + "\n";
    }
    return s;
}

}  // namespace d3ctl
