// stats: stream for a while as an application would and report what arrived.
#include <chrono>
#include <ctime>
#include <iostream>
#include <optional>

#include "Output.h"
#include "Recovery.h"
#include "d3_sdk/Extensions.h"

using nlohmann::json;

namespace d3ctl {

namespace {

double cpuSeconds() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

}  // namespace

int cmdStats(const Options& o, const std::string& device, double seconds, bool udp) {
    ReturnCode rc = openDevice(o, device, !udp);
    if (rc != SUCCESS) return fail(o, "open " + device, rc);
    std::optional<StreamRecovery> recovery;
    if (o.reconnect) recovery.emplace();
    DeviceManager& dm = DeviceManager::GetInstance();
    bool rgb = false;
    int fps = 0;
    dm.IsRgbDevice(rgb);
    dm.GetFrameRate(fps);
    if ((rc = dm.StartStream()) != SUCCESS) return fail(o, "start stream", rc);

    DataContainer<uint16_t> depth(480, 640);
    DataContainer<uint8_t> ir(480, 640);
    DataContainer<RGB888Pixel> colour(480, 640);
    DataContainer<PointXYZ> points(480, 640);
    // The first frame may have been waiting since before the stream settled.
    rgb ? dm.GetRgbTofData(&colour, &depth, &points, &ir, nullptr) : dm.GetTofData(&depth, &points, &ir, nullptr);
    d3sdk::ResetStreamStats();
    const double cpu0 = cpuSeconds();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    uint64_t timeouts = 0;
    auto readFrame = [&] {
        return rgb ? dm.GetRgbTofData(&colour, &depth, &points, &ir, nullptr)
                   : dm.GetTofData(&depth, &points, &ir, nullptr);
    };
    while (std::chrono::steady_clock::now() < end) {
        rc = readFrame();
        if (rc == TIMEOUT) {
            ++timeouts;
        } else if (recovery && recovery->recover(rc, std::chrono::time_point_cast<StreamRecovery::Clock::duration>(end),
                                                 readFrame)) {
            // The counters below now cover the stream since the last recovery.
        } else if (rc != SUCCESS) {
            dm.DisconnectFromDevice();
            return fail(o, "read frames", rc);
        }
    }
    const double cpu = cpuSeconds() - cpu0;
    d3sdk::StreamStats s;
    rc = d3sdk::GetStreamStats(s);
    dm.StopStream();
    dm.DisconnectFromDevice();
    if (rc != SUCCESS) return fail(o, "read statistics", rc);
    const double secs = s.seconds > 0 ? s.seconds : seconds;
    json out = {{"transport", udp ? "udp" : "tcp"},
                {"configuredFps", fps},
                // Frames that arrived whole in the window; a frame that
                // arrived just before it may still be delivered in it.
                {"fps", double(s.framesComplete) / secs},
                {"MBps", double(s.bytesReceived) / secs / 1e6},
                {"complete", s.framesComplete},
                {"dropped", s.framesDropped},
                {"delivered", s.framesDelivered},
                {"timeouts", timeouts},
                {"latencyMeanMs", s.meanUnpackMs},
                {"latencyMaxMs", s.maxUnpackMs},
                {"cpuMsPerFrame", s.framesDelivered ? cpu * 1000.0 / double(s.framesDelivered) : 0.0},
                {"seconds", secs}};
    if (udp) {
        // Of the frames that reached us at all, the share completed (after resends).
        const uint64_t attempted = s.framesComplete + s.framesIncomplete;
        out["completeRatio"] = attempted ? double(s.framesComplete) / double(attempted) : 0.0;
        out["incomplete"] = s.framesIncomplete;
        out["packetsReceived"] = s.packetsReceived;
        out["packetsLost"] = s.packetsLost;
        out["packetsResendRequested"] = s.packetsResendRequested;
        out["packetsRecovered"] = s.packetsRecovered;
        out["datagramsIgnored"] = s.datagramsIgnored;
    }
    if (recovery) out["recoveries"] = recovery->report();
    print(o, out);
    return 0;
}

}  // namespace d3ctl
