// N simulated cameras on consecutive loopback addresses, for tests and d3sim.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CameraServer.h"

namespace d3sim {

struct CamerasConfig {
    int count = 1;
    std::string baseAddress = "127.0.0.2";  // camera i gets baseAddress + i in the last octet
    std::vector<char> models;               // per camera; missing entries are '3'
    std::string stateDir;
    uint16_t discoveryPort = 48600;
    int fps = 0;
    uint64_t seed = 1;  // camera i uses seed + i
    int heartbeatTimeoutMs = 3000;
    int rebootMs = 2000;
    std::string accessWord = "qm-tbrwkex";
    int flashEraseMs = 300;
    int flashWriteMs = 1000;
    // Camera 0 replays this capture (see ServerConfig::recording).
    std::shared_ptr<const Recording> recording;
};

class SimulatedCameras {
public:
    explicit SimulatedCameras(CamerasConfig config);
    ~SimulatedCameras();

    // Starts every camera; false (see lastError) if any cannot start, in which case none runs.
    bool start();
    void stop();
    std::string lastError() const { return error_; }

    int size() const { return int(servers_.size()); }
    CameraServer& operator[](int i) { return *servers_.at(size_t(i)); }

private:
    CamerasConfig config_;
    std::vector<std::unique_ptr<CameraServer>> servers_;
    std::string error_;
};

}  // namespace d3sim
