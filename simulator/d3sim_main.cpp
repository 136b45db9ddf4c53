// d3sim: runs simulated cameras on loopback addresses until SIGINT/SIGTERM.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "SimulatedCameras.h"

int main(int argc, char** argv) {
    CLI::App app{"Simulated network ToF cameras on the loopback interface (127.0.0.2, 127.0.0.3, ...)."};
    d3sim::CamerasConfig config;
    std::string models = "3";
    app.add_option("-n,--cameras", config.count, "number of cameras")->check(CLI::Range(1, 200));
    app.add_option("--models", models,
                   "model digit per camera, comma separated (0 KX-110, 1 KX-120, 2 KX-120W, 3 KX-120RGB, "
                   "4 KX-110RGB); the last one repeats")
        ->default_val("3");
    app.add_option("--base-address", config.baseAddress, "address of the first camera")->default_val("127.0.0.2");
    app.add_option("--state", config.stateDir, "state folder; each camera keeps <DIR>/<serial>/");
    app.add_option("--fps", config.fps, "initial frame rate (1..25)")->check(CLI::Range(1, 25));
    app.add_option("--seed", config.seed, "noise seed (camera i uses seed + i)");
    app.add_option("--discovery-port", config.discoveryPort, "UDP discovery port")->default_val(48600);
    app.add_option("--reboot-ms", config.rebootMs, "how long a camera stays away when it reboots")->default_val(2000);
    CLI11_PARSE(app, argc, argv);

    std::stringstream list(models);
    std::string item;
    while (std::getline(list, item, ',')) {
        if (item.size() != 1 || item[0] < '0' || item[0] > '4') {
            std::fprintf(stderr, "d3sim: bad model '%s' (expected 0..4)\n", item.c_str());
            return 2;
        }
        config.models.push_back(item[0]);
    }
    while (int(config.models.size()) < config.count) config.models.push_back(config.models.back());

    // Block the signals before any thread starts, so only sigwait below sees them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    d3sim::SimulatedCameras cameras(config);
    if (!cameras.start()) {
        std::fprintf(stderr, "d3sim: %s\n", cameras.lastError().c_str());
        return 1;
    }
    for (int i = 0; i < cameras.size(); ++i)
        std::printf("camera %s %s model %c discovery port %u\n", cameras[i].serial().c_str(),
                    cameras[i].address().c_str(), cameras[i].camera().model(), unsigned(config.discoveryPort));
    std::fflush(stdout);

    int sig = 0;
    sigwait(&signals, &sig);
    // A short account on exit makes the simulator's own cost visible next to the client's.
    for (int i = 0; i < cameras.size(); ++i) {
        const auto st = cameras[i].stats();
        const double produced = double(st.framesSent + st.framesDropped);
        std::fprintf(stderr, "%s: %llu frames sent, %llu dropped, %.1f ms render + %.1f ms encode per frame\n",
                     cameras[i].serial().c_str(), (unsigned long long)st.framesSent,
                     (unsigned long long)st.framesDropped, produced ? st.renderMsTotal / produced : 0.0,
                     produced ? st.encodeMsTotal / produced : 0.0);
    }
    cameras.stop();
    return 0;
}
