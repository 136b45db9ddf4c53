#include "SimulatedCameras.h"

#include "d3_protocol/Payloads.h"

namespace d3sim {

SimulatedCameras::SimulatedCameras(CamerasConfig config) : config_(std::move(config)) {}

SimulatedCameras::~SimulatedCameras() { stop(); }

bool SimulatedCameras::start() {
    stop();
    uint32_t base = 0;
    if (!d3proto::parseIpv4(config_.baseAddress, base)) {
        error_ = "bad base address " + config_.baseAddress;
        return false;
    }
    for (int i = 0; i < config_.count; ++i) {
        ServerConfig c;
        c.address = d3proto::formatIpv4(base + uint32_t(i));
        c.model = size_t(i) < config_.models.size() ? config_.models[size_t(i)] : '3';
        c.stateDir = config_.stateDir;
        c.discoveryPort = config_.discoveryPort;
        c.fps = config_.fps;
        c.seed = config_.seed + uint64_t(i);
        c.heartbeatTimeoutMs = config_.heartbeatTimeoutMs;
        c.rebootMs = config_.rebootMs;
        c.accessWord = config_.accessWord;
        c.flashEraseMs = config_.flashEraseMs;
        c.flashWriteMs = config_.flashWriteMs;
        if (i == 0) c.recording = config_.recording;
        auto server = std::make_unique<CameraServer>(c);
        if (!server->start()) {
            error_ = "camera " + std::to_string(i) + " at " + c.address + ": " + server->lastError();
            stop();
            return false;
        }
        servers_.push_back(std::move(server));
    }
    return true;
}

void SimulatedCameras::stop() {
    for (auto& s : servers_) s->stop();
    servers_.clear();
}

}  // namespace d3sim
