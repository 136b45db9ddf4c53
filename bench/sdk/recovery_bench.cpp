// How long a client needs to get frames again after its camera died and came
// back: from the camera answering again to the first frame, through
// ReconnectDevice + StartStream as an application's recovery loop calls them.
// Simulated cameras in this process on 127.0.89.x, discovery port 48789.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "SimulatedCameras.h"
#include "d3_sdk/DeviceManager.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint16_t kPort = 48789;

std::unique_ptr<d3sim::SimulatedCameras> startCamera(const std::string& address, char model) {
    setenv("D3_DISCOVERY_PORT", std::to_string(kPort).c_str(), 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    d3sim::CamerasConfig cfg;
    cfg.baseAddress = address;
    cfg.models = {model};
    cfg.discoveryPort = kPort;
    cfg.fps = 20;
    cfg.rebootMs = 300;
    auto cams = std::make_unique<d3sim::SimulatedCameras>(cfg);
    return cams->start() ? std::move(cams) : nullptr;
}

// Reconnect, restart the stream and read frames until one arrives.
int recoverUntilFrame(DeviceManager& dm, DataContainer<uint16_t>& depth) {
    int attempts = 0;
    for (;;) {
        ++attempts;
        ReturnCode rc = dm.ReconnectDevice(1000);
        if (rc == SUCCESS) rc = dm.StartStream();
        while (rc == SUCCESS || rc == TIMEOUT) {
            rc = dm.GetTofData(&depth, nullptr, nullptr, nullptr);
            if (rc == SUCCESS) return attempts;
        }
    }
}

// arg 0: model digit. Each iteration kills the camera, waits for the SDK to
// report the loss, restarts it, and times recovery from the restart.
void BM_RecoverAfterKillAndRestart(benchmark::State& state) {
    const char model = char('0' + state.range(0));
    auto cams = startCamera(model == '3' ? "127.0.89.3" : "127.0.89.2", model);
    if (!cams) return state.SkipWithError("camera did not start");
    d3sim::CameraServer& cam = (*cams)[0];
    DeviceManager& dm = DeviceManager::GetInstance();
    std::atomic<int> lost{0};
    dm.RegisterNetworkMonitoringCallback([&lost](std::string, std::string, void*) { ++lost; }, nullptr);
    dm.SetTimeout(2000);
    DataContainer<uint16_t> depth;
    if (dm.InitDevice(cam.deviceString(), true) != SUCCESS || dm.StartStream() != SUCCESS ||
        dm.GetTofData(&depth, nullptr, nullptr, nullptr) != SUCCESS)
        return state.SkipWithError("no stream");
    double detectMs = 0;
    int attempts = 0;
    for (auto _ : state) {
        const int before = lost;
        const auto killed = Clock::now();
        cam.kill();
        while (lost == before) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        detectMs += std::chrono::duration<double, std::milli>(Clock::now() - killed).count();
        cam.restart();
        const auto t0 = Clock::now();
        attempts += recoverUntilFrame(dm, depth);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - t0).count());
    }
    state.counters["lossNoticedMs"] = detectMs / double(state.iterations());
    state.counters["attempts"] = double(attempts) / double(state.iterations());
    dm.DisconnectFromDevice();
    dm.RegisterNetworkMonitoringCallback(nullptr, nullptr);
}
BENCHMARK(BM_RecoverAfterKillAndRestart)
    ->Arg(1)
    ->Arg(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

}  // namespace
