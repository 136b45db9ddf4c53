#include "d3_protocol/Payloads.h"

#include <cmath>
#include <cstdio>

namespace d3proto {

bool parseJsonObject(const uint8_t* data, size_t size, Json& out) {
    if (size == 0) {
        out = Json::object();
        return true;
    }
    out = Json::parse(data, data + size, nullptr, false);
    return !out.is_discarded() && out.is_object();
}

bool parseJsonObject(const std::string& text, Json& out) {
    return parseJsonObject(reinterpret_cast<const uint8_t*>(text.data()), text.size(), out);
}

std::string dump(const Json& j) { return j.dump(-1, ' ', false, Json::error_handler_t::replace); }

bool getInt(const Json& j, const char* key, int64_t& out) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_number_integer()) return false;
    out = it->get<int64_t>();
    return true;
}

bool getInt(const Json& j, const char* key, int& out) {
    int64_t v;
    if (!getInt(j, key, v) || v < INT32_MIN || v > INT32_MAX) return false;
    out = int(v);
    return true;
}

bool getBool(const Json& j, const char* key, bool& out) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_boolean()) return false;
    out = it->get<bool>();
    return true;
}

bool getFloat(const Json& j, const char* key, float& out) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_number()) return false;
    const double v = it->get<double>();
    if (!std::isfinite(v) || std::fabs(v) > 3.0e38) return false;
    out = float(v);
    return true;
}

bool getString(const Json& j, const char* key, std::string& out) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_string()) return false;
    out = it->get<std::string>();
    return true;
}

namespace {
bool getPort(const Json& j, const char* key, uint16_t& out) {
    int v;
    if (!getInt(j, key, v) || v < 0 || v > 65535) return false;
    out = uint16_t(v);
    return true;
}
}  // namespace

Json toJson(const DeviceInfo& d) {
    return {{"serial", d.serial},
            {"model", d.model},
            {"firmwareVersion", d.firmwareVersion},
            {"deviceVersion", d.deviceVersion},
            {"mac", d.mac},
            {"ip", d.ip},
            {"netmask", d.netmask},
            {"gateway", d.gateway},
            {"dhcp", d.dhcp},
            {"controlPort", d.controlPort},
            {"streamPort", d.streamPort}};
}

bool fromJson(const Json& j, DeviceInfo& out) {
    return getString(j, "serial", out.serial) && getString(j, "model", out.model) &&
           getString(j, "firmwareVersion", out.firmwareVersion) && getString(j, "deviceVersion", out.deviceVersion) &&
           getString(j, "mac", out.mac) && getString(j, "ip", out.ip) && getString(j, "netmask", out.netmask) &&
           getString(j, "gateway", out.gateway) && getBool(j, "dhcp", out.dhcp) &&
           getPort(j, "controlPort", out.controlPort) && getPort(j, "streamPort", out.streamPort);
}

Json toJson(const SessionRequest& r) { return {{"client", r.client}, {"transport", r.transport}}; }

bool fromJson(const Json& j, SessionRequest& out) {
    if (!getString(j, "client", out.client) || out.client.empty() || out.client.size() > 64) return false;
    if (!getString(j, "transport", out.transport)) out.transport = "tcp";
    return out.transport == "tcp" || out.transport == "udp";
}

Json toJson(const SessionReply& r) {
    return {
        {"token", r.token}, {"streamPort", r.streamPort}, {"heartbeatMs", r.heartbeatMs}, {"timeoutMs", r.timeoutMs}};
}

bool fromJson(const Json& j, SessionReply& out) {
    int64_t token;
    if (!getInt(j, "token", token) || token < 0 || token > UINT32_MAX) return false;
    out.token = uint32_t(token);
    return getPort(j, "streamPort", out.streamPort) && getInt(j, "heartbeatMs", out.heartbeatMs) &&
           getInt(j, "timeoutMs", out.timeoutMs);
}

Json toJson(const ImageInfo& i) {
    return {{"tofWidth", i.tofWidth},
            {"tofHeight", i.tofHeight},
            {"rgbWidth", i.rgbWidth},
            {"rgbHeight", i.rgbHeight},
            {"rgb", i.rgb}};
}

bool fromJson(const Json& j, ImageInfo& out) {
    return getInt(j, "tofWidth", out.tofWidth) && getInt(j, "tofHeight", out.tofHeight) &&
           getInt(j, "rgbWidth", out.rgbWidth) && getInt(j, "rgbHeight", out.rgbHeight) && getBool(j, "rgb", out.rgb);
}

Json toJson(const IntrinsicsMsg& i) {
    return {{"fx", i.fx}, {"fy", i.fy}, {"cx", i.cx}, {"cy", i.cy}, {"k1", i.k1},
            {"k2", i.k2}, {"k3", i.k3}, {"p1", i.p1}, {"p2", i.p2}};
}

bool fromJson(const Json& j, IntrinsicsMsg& out) {
    return getFloat(j, "fx", out.fx) && getFloat(j, "fy", out.fy) && getFloat(j, "cx", out.cx) &&
           getFloat(j, "cy", out.cy) && getFloat(j, "k1", out.k1) && getFloat(j, "k2", out.k2) &&
           getFloat(j, "k3", out.k3) && getFloat(j, "p1", out.p1) && getFloat(j, "p2", out.p2);
}

Json toJson(const ExtrinsicsMsg& e) {
    return {{"r", std::vector<float>(e.r, e.r + 9)}, {"t", std::vector<float>(e.t, e.t + 3)}};
}

namespace {
bool getFloats(const Json& j, const char* key, float* out, size_t n) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_array() || it->size() != n) return false;
    for (size_t i = 0; i < n; ++i) {
        const Json& v = (*it)[i];
        if (!v.is_number() || !std::isfinite(v.get<double>())) return false;
        out[i] = v.get<float>();
    }
    return true;
}
}  // namespace

bool fromJson(const Json& j, ExtrinsicsMsg& out) { return getFloats(j, "r", out.r, 9) && getFloats(j, "t", out.t, 3); }

Json toJson(const FilterMsg& f) {
    Json j = {{"enable", f.enable}};
    if (f.hasValue) {
        j["value"] = f.value;
        j["value2"] = f.value2;
    }
    return j;
}

bool fromJson(const Json& j, FilterMsg& out) {
    if (!getBool(j, "enable", out.enable)) return false;
    const bool hasValue = j.contains("value");
    const bool hasValue2 = j.contains("value2");
    if (hasValue != hasValue2) return false;
    out.hasValue = hasValue;
    return !hasValue || (getFloat(j, "value", out.value) && getFloat(j, "value2", out.value2));
}

Json toJson(const DelayMsg& d) { return {{"ms", d.ms}, {"us", d.us}}; }

bool fromJson(const Json& j, DelayMsg& out) { return getInt(j, "ms", out.ms) && getInt(j, "us", out.us); }

Json toJson(const NetworkMsg& n) {
    return {{"ip", n.ip}, {"netmask", n.netmask}, {"gateway", n.gateway}, {"dhcp", n.dhcp}};
}

bool fromJson(const Json& j, NetworkMsg& out) {
    return getString(j, "ip", out.ip) && getString(j, "netmask", out.netmask) && getString(j, "gateway", out.gateway) &&
           getBool(j, "dhcp", out.dhcp);
}

Json toJson(const CalibrationMsg& c) {
    return {{"image", toJson(c.image)},
            {"tof", toJson(c.tof)},
            {"rgb", toJson(c.rgb)},
            {"extrinsics", toJson(c.extrinsics)}};
}

bool fromJson(const Json& j, CalibrationMsg& out) {
    for (const char* key : {"image", "tof", "rgb", "extrinsics"})
        if (!j.contains(key) || !j[key].is_object()) return false;
    return fromJson(j["image"], out.image) && fromJson(j["tof"], out.tof) && fromJson(j["rgb"], out.rgb) &&
           fromJson(j["extrinsics"], out.extrinsics);
}

bool parseIpv4(const std::string& text, uint32_t& hostOrder) {
    unsigned a, b, c, d;
    char tail;
    if (text.size() > 15 || std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u%c", &a, &b, &c, &d, &tail) != 4) return false;
    if (a > 255 || b > 255 || c > 255 || d > 255) return false;
    for (char ch : text)
        if (ch != '.' && (ch < '0' || ch > '9')) return false;
    hostOrder = (a << 24) | (b << 16) | (c << 8) | d;
    return true;
}

std::string formatIpv4(uint32_t v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", v >> 24, (v >> 16) & 255, (v >> 8) & 255, v & 255);
    return buf;
}

}  // namespace d3proto
