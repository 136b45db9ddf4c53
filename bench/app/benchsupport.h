// What the whole-viewer benchmarks share: a simulated camera in a forked
// child (so the viewer process's CPU time is the viewer's alone), the SDK
// pointed at it, waits on the event loop and the process's CPU time.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QTest>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>

#include "SimulatedCameras.h"

namespace bench {

// Runs the event loop until cond holds; false after ms.
inline bool waitFor(const std::function<bool()>& cond, int ms) { return QTest::qWaitFor(cond, ms); }

inline double processCpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// One camera of `model` at 25 fps in a child process, started before any
// thread exists here; the SDK's searches find it alone. Stops with the
// object (or with this process).
class ForkedCamera {
public:
    ForkedCamera(const char* address, uint16_t discoveryPort, char model) {
        pid_ = fork();
        if (pid_ == 0) {
            d3sim::CamerasConfig cfg;
            cfg.count = 1;
            cfg.baseAddress = address;
            cfg.models = {model};
            cfg.discoveryPort = discoveryPort;
            cfg.fps = 25;
            d3sim::SimulatedCameras cameras(cfg);
            if (!cameras.start()) _exit(1);
            while (getppid() != 1) sleep(1);  // ends with the benchmark
            cameras.stop();
            _exit(0);
        }
        setenv("D3_DISCOVERY_PORT", std::to_string(discoveryPort).c_str(), 1);
        setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
        if (!getenv("DISPLAY")) setenv("QT_QPA_PLATFORM", "offscreen", 0);
    }
    ~ForkedCamera() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    ForkedCamera(const ForkedCamera&) = delete;
    ForkedCamera& operator=(const ForkedCamera&) = delete;

private:
    pid_t pid_ = -1;
};

}  // namespace bench
