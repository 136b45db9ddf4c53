// The camera's non-volatile store: a folder per camera (<stateDir>/<serial>/)
// holding identity.json, network.json, config.json and firmware.json. Without a
// state folder the store lives in memory, so a "reboot" still behaves the same
// within one process.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "CameraSettings.h"

namespace d3sim {

struct CameraIdentity {
    std::string serial;
    char model = '3';
    std::string mac;
    std::string deviceVersion;
    std::string firmwareVersion = "1.4.2";  // what the camera left the factory with
};

struct NetworkSettings {
    std::string ip;
    std::string netmask = "255.0.0.0";
    std::string gateway = "127.0.0.1";
    bool dhcp = false;
};

nlohmann::json settingsToJson(const CameraSettings& s);
// Keys missing from `j` keep the values already in `s`; false on a wrong type.
bool settingsFromJson(const nlohmann::json& j, CameraSettings& s);

class CameraStore {
public:
    // `stateDir` empty: memory only. Creates <stateDir>/<serial>/ on first write.
    CameraStore(std::string stateDir, std::string serial);

    std::string folder() const;  // empty without a state folder

    // Writes identity.json/firmware.json when missing; keeps what is there
    // (the firmware version may have been changed by an update).
    void initIdentity(const CameraIdentity& identity);

    // The installed firmware: the version the camera runs from its next start.
    std::optional<std::string> loadFirmwareVersion() const;
    bool saveFirmwareVersion(const std::string& version);

    std::optional<NetworkSettings> loadNetwork() const;
    bool saveNetwork(const NetworkSettings& n);

    std::optional<CameraSettings> loadConfig() const;
    bool saveConfig(const CameraSettings& s);
    bool deleteConfig();

private:
    bool writeJson(const std::string& name, const nlohmann::json& j);
    std::optional<nlohmann::json> readJson(const std::string& name) const;

    std::string dir_;
    // Memory copies, used when there is no folder.
    std::optional<NetworkSettings> network_;
    std::optional<CameraSettings> config_;
    std::optional<std::string> firmware_;
};

}  // namespace d3sim
