// JSON payloads of control commands, discovery answers and the calibration
// event. Every parser validates types and ranges and returns false instead of
// throwing, so a hostile payload can only ever produce an error reply.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace d3proto {

using Json = nlohmann::json;

// Parses a payload; an empty payload is an empty object. False when the bytes
// are not a JSON object.
bool parseJsonObject(const uint8_t* data, size_t size, Json& out);
bool parseJsonObject(const std::string& text, Json& out);
std::string dump(const Json& j);  // compact, invalid UTF-8 replaced

// Typed field readers: false when the key is missing or has the wrong type.
bool getInt(const Json& j, const char* key, int64_t& out);
bool getInt(const Json& j, const char* key, int& out);
bool getBool(const Json& j, const char* key, bool& out);
bool getFloat(const Json& j, const char* key, float& out);
bool getString(const Json& j, const char* key, std::string& out);

// Answer to Discover and GetDeviceInfo.
struct DeviceInfo {
    std::string serial;
    std::string model;  // the model digit, "0".."4"
    std::string firmwareVersion;
    std::string deviceVersion;
    std::string mac;  // "02:d3:00:00:00:02"
    std::string ip;
    std::string netmask;
    std::string gateway;
    bool dhcp = false;
    uint16_t controlPort = 0;
    uint16_t streamPort = 0;
};
Json toJson(const DeviceInfo& d);
bool fromJson(const Json& j, DeviceInfo& out);

struct SessionRequest {
    std::string client;             // stable per SDK instance: lets a retry or a reconnect be recognised
    std::string transport = "tcp";  // "tcp" or "udp"
};
Json toJson(const SessionRequest& r);
bool fromJson(const Json& j, SessionRequest& out);

struct SessionReply {
    uint32_t token = 0;  // presented on the stream connection
    uint16_t streamPort = 0;
    int heartbeatMs = 1000;  // how often the client should send Heartbeat
    int timeoutMs = 3000;    // silence after which the camera ends the session
};
Json toJson(const SessionReply& r);
bool fromJson(const Json& j, SessionReply& out);

struct ImageInfo {
    int tofWidth = 640;
    int tofHeight = 480;
    int rgbWidth = 0;  // 0 for models without colour
    int rgbHeight = 0;
    bool rgb = false;
};
Json toJson(const ImageInfo& i);
bool fromJson(const Json& j, ImageInfo& out);

struct IntrinsicsMsg {
    float fx = 0, fy = 0, cx = 0, cy = 0;
    float k1 = 0, k2 = 0, k3 = 0, p1 = 0, p2 = 0;
};
Json toJson(const IntrinsicsMsg& i);
bool fromJson(const Json& j, IntrinsicsMsg& out);

// p_rgb = R * p_tof + t, millimetres, R row-major.
struct ExtrinsicsMsg {
    float r[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float t[3] = {0, 0, 0};
};
Json toJson(const ExtrinsicsMsg& e);
bool fromJson(const Json& j, ExtrinsicsMsg& out);

struct FilterMsg {
    bool enable = false;
    float value = 0;
    float value2 = 100.0f;
    bool hasValue = true;  // false: the bool-only setter, keep the camera's values
};
Json toJson(const FilterMsg& f);
bool fromJson(const Json& j, FilterMsg& out);

struct DelayMsg {
    int ms = 0;
    int us = 0;
};
Json toJson(const DelayMsg& d);
bool fromJson(const Json& j, DelayMsg& out);

struct NetworkMsg {
    std::string ip;
    std::string netmask;
    std::string gateway;  // empty: keep the camera's gateway
    bool dhcp = false;
};
Json toJson(const NetworkMsg& n);
bool fromJson(const Json& j, NetworkMsg& out);

// Sent once on the stream connection after AttachStream, before any frame.
struct CalibrationMsg {
    ImageInfo image;
    IntrinsicsMsg tof;
    IntrinsicsMsg rgb;  // zeros without colour
    ExtrinsicsMsg extrinsics;
};
Json toJson(const CalibrationMsg& c);
bool fromJson(const Json& j, CalibrationMsg& out);

// Dotted IPv4 helpers (no resolver, no locale).
bool parseIpv4(const std::string& text, uint32_t& hostOrder);
std::string formatIpv4(uint32_t hostOrder);

}  // namespace d3proto
