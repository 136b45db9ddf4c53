// Simulated cameras on a loopback address block and discovery port that no
// other test program uses, started once per test program.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "SimulatedCameras.h"
#include "d3_sdk/DeviceManager.h"

namespace sdktest {

inline std::unique_ptr<d3sim::SimulatedCameras> startCameras(const std::string& base, uint16_t discoveryPort,
                                                             std::vector<char> models, int heartbeatTimeoutMs = 3000) {
    // The SDK reads the discovery port and targets from the environment at
    // each search; searches stay on the loopback.
    setenv("D3_DISCOVERY_PORT", std::to_string(discoveryPort).c_str(), 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    d3sim::CamerasConfig cfg;
    cfg.count = int(models.size());
    cfg.baseAddress = base;
    cfg.models = std::move(models);
    cfg.discoveryPort = discoveryPort;
    cfg.heartbeatTimeoutMs = heartbeatTimeoutMs;
    cfg.rebootMs = 300;
    auto cams = std::make_unique<d3sim::SimulatedCameras>(cfg);
    EXPECT_TRUE(cams->start()) << cams->lastError();
    return cams;
}

// Median of a w x h patch of a 16-bit image: robust to the odd noisy pixel.
inline uint16_t patchMedian(const DataContainer<uint16_t>& img, unsigned u0, unsigned v0, unsigned w, unsigned h) {
    std::vector<uint16_t> v;
    for (unsigned y = v0; y < v0 + h; ++y)
        for (unsigned x = u0; x < u0 + w; ++x) v.push_back(img.data()[y * img.cols() + x]);
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    return v[v.size() / 2];
}

}  // namespace sdktest
