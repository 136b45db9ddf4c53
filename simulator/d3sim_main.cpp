// d3sim: runs simulated cameras on loopback addresses until SIGINT/SIGTERM.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "FaultControl.h"
#include "SimulatedCameras.h"

namespace {

// `d3sim ctl ADDRESS COMMAND...`: one command to a running simulator's camera.
int runCtl(const std::string& address, uint16_t port, const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& w : words) line += (line.empty() ? "" : " ") + w;
    const std::string answer = d3sim::sendFaultCommand(address, port, line);
    const bool ok = answer.rfind("ok", 0) == 0;
    std::fprintf(ok ? stdout : stderr, "%s\n", answer.c_str());
    return ok ? 0 : 1;
}

}  // namespace

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
    app.add_option("--fps", config.fps, "initial frame rate (1..25); with --replay, the replay rate")
        ->check(CLI::Range(1, 25));
    std::string replayFolder;
    app.add_option("--replay", replayFolder,
                   "the first camera serves the frames saved by the viewer in this folder (continuous saving or "
                   "single saves), looping, at the recorded rate unless --fps is given; its model follows the "
                   "capture (colour size) and settings the capture cannot honour are refused with code 18");
    app.add_option("--seed", config.seed, "noise seed (camera i uses seed + i)");
    app.add_option("--discovery-port", config.discoveryPort, "UDP discovery port")->default_val(48600);
    app.add_option("--reboot-ms", config.rebootMs, "how long a camera stays away when it reboots")->default_val(2000);
    app.add_option("--access-word", config.accessWord, "the word a firmware update must present")
        ->capture_default_str();
    app.add_option("--flash-erase-ms", config.flashEraseMs, "how long erasing the firmware update slot takes")
        ->capture_default_str()
        ->check(CLI::Range(0, 60000));
    app.add_option("--flash-write-ms", config.flashWriteMs, "how long writing a firmware image into flash takes")
        ->capture_default_str()
        ->check(CLI::Range(0, 60000));
    double loss = 0;
    int latencyMs = 0;
    int jitterMs = 0;
    double bandwidthMbit = 0;
    uint16_t ctlPort = d3sim::kFaultControlPort;
    app.add_option("--loss", loss, "share of stream datagrams lost from the start (0..1, seeded)")
        ->check(CLI::Range(0.0, 1.0));
    app.add_option("--latency", latencyMs, "milliseconds added to every control reply and frame")
        ->check(CLI::Range(0, 10000));
    app.add_option("--jitter", jitterMs, "a further 0..MS milliseconds on each reply and frame, order kept")
        ->check(CLI::Range(0, 10000));
    app.add_option("--bandwidth", bandwidthMbit, "stream bandwidth in Mbit/s (0: unlimited)")
        ->check(CLI::Range(0.0, 100000.0));
    app.add_option("--ctl-port", ctlPort,
                   "TCP port of each camera's control socket, on the address it started at (0: none)")
        ->capture_default_str();
    app.footer(std::string("Faults on demand: while d3sim runs, `d3sim ctl ADDRESS COMMAND...` sends one line to the\n"
                           "control socket of the camera that started at ADDRESS (plain text, one line per command,\n"
                           "answered by \"ok ...\" or \"error: ...\"). Commands:\n") +
               d3sim::faultCommandHelp());

    std::string ctlAddress;
    std::vector<std::string> ctlWords;
    uint16_t ctlTarget = d3sim::kFaultControlPort;
    auto* ctl = app.add_subcommand("ctl", "send one fault command to a running d3sim camera and print the answer");
    ctl->add_option("--port", ctlTarget, "the camera's control socket port")->capture_default_str();
    ctl->add_option("ADDRESS", ctlAddress, "address the camera started at")->required();
    ctl->add_option("COMMAND", ctlWords, "command and arguments, e.g. loss 0.1")->required();
    ctl->footer(d3sim::faultCommandHelp());
    CLI11_PARSE(app, argc, argv);
    if (ctl->parsed()) return runCtl(ctlAddress, ctlTarget, ctlWords);

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
    if (!replayFolder.empty()) {
        auto recording = std::make_shared<d3sim::Recording>();
        std::string error;
        if (!recording->load(replayFolder, error)) {
            std::fprintf(stderr, "d3sim: --replay: %s\n", error.c_str());
            return 1;
        }
        std::printf(
            "replay %s: %zu frames, %s, recorded at %s\n", replayFolder.c_str(), recording->frameCount(),
            recording->colour()
                ? (std::to_string(recording->rgbWidth()) + "x" + std::to_string(recording->rgbHeight()) + " colour")
                      .c_str()
                : "no colour",
            recording->frameRate() > 0 ? (std::to_string(recording->frameRate()) + " fps").c_str() : "an unknown rate");
        config.recording = std::move(recording);
    }

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
    std::vector<std::unique_ptr<d3sim::FaultControlServer>> controls;
    for (int i = 0; i < cameras.size(); ++i) {
        cameras[i].faults().setLoss(loss, config.seed + uint64_t(i));
        cameras[i].faults().setLatencyMs(latencyMs);
        cameras[i].faults().setJitterMs(jitterMs);
        cameras[i].faults().setBandwidthMbit(bandwidthMbit);
        std::string ctlNote;
        if (ctlPort != 0) {
            auto control = std::make_unique<d3sim::FaultControlServer>(cameras[i]);
            std::string err;
            if (control->start(cameras[i].address(), ctlPort, err)) {
                ctlNote = " control " + cameras[i].address() + ":" + std::to_string(ctlPort);
                controls.push_back(std::move(control));
            } else {
                // The cameras work without it; only faults on demand are missing.
                std::fprintf(stderr, "d3sim: %s\n", err.c_str());
            }
        }
        std::printf("camera %s %s model %c discovery port %u%s\n", cameras[i].serial().c_str(),
                    cameras[i].address().c_str(), cameras[i].camera().model(), unsigned(config.discoveryPort),
                    ctlNote.c_str());
    }
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
    controls.clear();
    cameras.stop();
    return 0;
}
