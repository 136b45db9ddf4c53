// What the firmware tests share: three colour cameras whose flash is quick,
// searched for on the test program's own port, and the wait until a camera
// has let go of an update whose client hung up.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "SimulatedCameras.h"
#include "rawclient.h"

namespace d3test {

// Started, or null (with the reason in `error`). The SDK (and any tool this
// program starts, which inherits the environment) searches only for them.
inline std::unique_ptr<d3sim::SimulatedCameras> startFirmwareCameras(const std::string& baseAddress,
                                                                     uint16_t discoveryPort, std::string& error) {
    setenv("D3_DISCOVERY_PORT", std::to_string(discoveryPort).c_str(), 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    d3sim::CamerasConfig cfg;
    cfg.count = 3;
    cfg.baseAddress = baseAddress;
    cfg.models = {'3', '3', '3'};
    cfg.discoveryPort = discoveryPort;
    cfg.rebootMs = 300;
    cfg.flashEraseMs = 20;
    cfg.flashWriteMs = 50;
    auto cameras = std::make_unique<d3sim::SimulatedCameras>(cfg);
    if (!cameras->start()) {
        error = cameras->lastError();
        return nullptr;
    }
    return cameras;
}

// A camera reads a client's hang-up in its own time; until it has, the next
// update could meet the old one. Each round trip lets it move on.
inline bool waitForUpdateEnd(d3sim::CameraServer& cam) {
    for (int i = 0; i < 400; ++i) {
        for (const auto& e : cam.camera().commandLog())
            if (e.name == "FirmwareUpdateEnded") return true;
        RawClient c;
        if (c.connect(cam.address(), cam.config().controlPort)) c.call(d3proto::Command::GetDeviceInfo);
    }
    return false;
}

}  // namespace d3test
