// Resident memory of a client that opens, streams and closes a camera again
// and again, as the viewer does on every search, start and reconnect: one
// long-lived reader thread reads colour and depth frames while the main
// thread reopens the camera, alternating TCP and datagrams. Each round is
// one open with InitDevice and two with ReconnectDevice, a few frames each.
// The camera runs in a forked child (127.0.133.2, discovery port 48833), so
// the figures are the client's own.
//
//   bench_reopen_memory [--rounds N] [--frames F] [--json]
//
// Prints, per round, resident memory and the allocator's figures (bytes in
// blocks, bytes held from the system); RSS that climbs while the bytes in
// blocks stay flat is memory the allocator keeps, not a leak.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SimulatedCameras.h"
#include "d3_sdk/DeviceManager.h"
#include "procstats.h"

namespace {

constexpr char kAddress[] = "127.0.133.2";
constexpr uint16_t kDiscoveryPort = 48833;

struct Options {
    int rounds = 30;
    int frames = 10;
    bool json = false;
};

pid_t startCameraProcess() {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    d3sim::CamerasConfig cfg;
    cfg.baseAddress = kAddress;
    cfg.models = {'3'};
    cfg.discoveryPort = kDiscoveryPort;
    cfg.fps = 25;
    d3sim::SimulatedCameras cameras(cfg);
    if (!cameras.start()) {
        std::fprintf(stderr, "bench_reopen_memory: camera: %s\n", cameras.lastError().c_str());
        _exit(1);
    }
    int sig = 0;
    sigwait(&stop, &sig);
    cameras.stop();
    _exit(0);
}

// Reads frames into buffers of its own, like the viewer's frame worker,
// counting those that arrived.
class Reader {
public:
    explicit Reader(DeviceManager& dm) : dm_(dm), thread_([this] { run(); }) {}
    ~Reader() {
        stop_ = true;
        thread_.join();
    }
    void setReading(bool on) { reading_ = on; }
    // Waits until `n` more frames were read; false after `timeout`.
    bool waitForFrames(unsigned n, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        const unsigned target = frames_ + n;
        return cv_.wait_for(lock, timeout, [&] { return frames_ >= target; });
    }

private:
    void run() {
        while (!stop_) {
            if (!reading_) {
                std::unique_lock<std::mutex> lock(mutex_);
                cv_.wait_for(lock, std::chrono::milliseconds(20));
                continue;
            }
            if (dm_.GetRgbTofData(&rgb_, &depth_, &points_, &ir_, nullptr) != SUCCESS) continue;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                ++frames_;
            }
            cv_.notify_all();
        }
    }

    DeviceManager& dm_;
    DataContainer<RGB888Pixel> rgb_;
    DataContainer<uint16_t> depth_;
    DataContainer<PointXYZ> points_;
    DataContainer<uint8_t> ir_;
    std::atomic<bool> reading_{false};
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::condition_variable cv_;
    unsigned frames_ = 0;
    std::thread thread_;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::printf(
                "usage: bench_reopen_memory [--rounds N] [--frames F] [--json]\n"
                "Opens, streams from and closes a simulated colour camera again and again (TCP and UDP\n"
                "in turn) and prints resident memory and the allocator's figures after each round.\n"
                "  --rounds N   rounds of one open and two reconnects (default 30)\n"
                "  --frames F   frames read after each open (default 10)\n"
                "  --json       one JSON object instead of the table\n");
            std::exit(0);
        }
        if ((a == "--rounds" || a == "--frames") && i + 1 < argc) {
            const int v = std::atoi(argv[++i]);
            if (v <= 0) {
                std::fprintf(stderr, "bench_reopen_memory: %s must be positive\n", a.c_str());
                return false;
            }
            (a == "--rounds" ? o.rounds : o.frames) = v;
        } else if (a == "--json") {
            o.json = true;
        } else {
            std::fprintf(stderr, "bench_reopen_memory: unknown or incomplete option %s (try --help)\n", a.c_str());
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    if (!parse(argc, argv, opt)) return 2;
    const pid_t camera = startCameraProcess();
    if (camera < 0) {
        std::fprintf(stderr, "bench_reopen_memory: fork: %s\n", std::strerror(errno));
        return 1;
    }
    setenv("D3_DISCOVERY_PORT", std::to_string(kDiscoveryPort).c_str(), 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    DeviceManager& dm = DeviceManager::GetInstance();
    dm.SetTimeout(2000);
    const std::string device = kAddress;
    int status = 0;
    {
        Reader reader(dm);
        auto stream = [&](const char* what) {
            if (dm.StartStream() != SUCCESS) {
                std::fprintf(stderr, "bench_reopen_memory: %s: the stream did not start\n", what);
                return false;
            }
            reader.setReading(true);
            const bool ok = reader.waitForFrames(unsigned(opt.frames), std::chrono::seconds(20));
            if (!ok) std::fprintf(stderr, "bench_reopen_memory: %s: no frames\n", what);
            return ok;
        };
        // The camera process needs a moment to bind its sockets.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (dm.InitDevice(device, true) != SUCCESS) {
            if (std::chrono::steady_clock::now() > deadline) {
                std::fprintf(stderr, "bench_reopen_memory: the camera did not come up\n");
                status = 1;
                break;
            }
        }
        std::vector<soak::ProcStats> samples;
        if (!opt.json && status == 0) std::printf("round transport  rss MB  in use MB  held MB\n");
        for (int round = 0; status == 0 && round < opt.rounds; ++round) {
            const bool tcp = round % 2 == 0;
            reader.setReading(false);
            dm.DisconnectFromDevice();
            bool ok = dm.InitDevice(device, tcp) == SUCCESS && stream("open");
            for (int r = 0; ok && r < 2; ++r) {
                reader.setReading(false);
                ok = dm.ReconnectDevice(5000) == SUCCESS && stream("reconnect");
            }
            if (!ok) {
                status = 1;
                break;
            }
            const soak::ProcStats s = soak::ProcStats::now();
            samples.push_back(s);
            if (!opt.json)
                std::printf("%5d %-9s %7.1f %10.1f %8.1f\n", round, tcp ? "tcp" : "udp", s.rssKb / 1024.0,
                            s.heapInUseKb / 1024.0, s.heapHeldKb / 1024.0);
            std::fflush(stdout);
        }
        reader.setReading(false);
        dm.DisconnectFromDevice();
        if (opt.json) {
            std::printf("{\"rounds\": [");
            for (size_t i = 0; i < samples.size(); ++i)
                std::printf("%s{\"rssKb\": %ld, \"heapInUseKb\": %ld, \"heapHeldKb\": %ld}", i ? ", " : "",
                            samples[i].rssKb, samples[i].heapInUseKb, samples[i].heapHeldKb);
            std::printf("]}\n");
        }
    }
    kill(camera, SIGTERM);
    waitpid(camera, nullptr, 0);
    return status;
}
