// Continuous saving as a user runs it: the real window, workers, recorder and
// SDK streaming from a simulated camera at 25 fps with every pane on, every
// frame saved into the working folder's "bench-frames". The camera runs in a
// forked child, as in viewer_stream_bench. Reports over the run:
//   fps_read / fps_saved  frames read / written per second
//   failed                frames not saved (pool full or a write failure)
//   queue_max / queue_avg frames waiting for the disk (sampled every 100 ms)
//   fps_painted           depth-pane paints per second while saving
//   cpu_pct               viewer process CPU (100 = one core)
// Arguments: --model=3 (1080p colour, default) or --model=1 (ToF only),
// --seconds=60. Run: xvfb-run -a build/bench/app/continuous_save_bench
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QPushButton>
#include <QTest>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "acquisition.h"
#include "benchsupport.h"
#include "camerasession.h"
#include "framedisplay.h"
#include "promptrecorder.h"
#include "recorder.h"
#include "widget.h"

namespace {

constexpr char kAddress[] = "127.0.97.2";
constexpr uint16_t kDiscoveryPort = 48797;
char gModel = '3';
int gSeconds = 60;

unsigned framesRead(Widget& w) {
    return w.acquisition().frameReads(Acquisition::RgbTofRead) + w.acquisition().frameReads(Acquisition::TofRead);
}

void BM_ContinuousSave(benchmark::State& state) {
    PromptRecorder prompts;
    const QString root = QDir::currentPath() + "/bench-frames";
    QDir(root).removeRecursively();
    QDir().mkpath(root);
    prompts.pathAnswer = root;

    auto window = std::make_unique<Widget>();
    Widget& w = *window;
    w.resize(1600, 900);
    w.show();
    if (!QTest::qWaitForWindowExposed(&w)) return state.SkipWithError("no window");
    w.findChild<QPushButton*>("pushButton")->click();
    auto* combo = w.findChild<QComboBox*>("comboBox");
    if (!bench::waitFor([&] { return combo->count() > 0; }, 10000)) return state.SkipWithError("no camera found");
    w.findChild<QPushButton*>("pushButton_2")->click();
    if (!bench::waitFor([&] { return w.session().status().state == SessionState::Streaming; }, 20000))
        return state.SkipWithError("could not start streaming");
    QTest::qWait(2000);  // buffers sized, decoder warm
    w.findChild<QPushButton*>("pushButton_savepath")->click();
    Recorder& recorder = w.recorder();

    for (auto _ : state) {
        const unsigned read0 = framesRead(w), painted0 = w.frameDisplay().paintedFrames(1);
        const double cpu0 = bench::processCpuSeconds();
        w.findChild<QPushButton*>("pushButton_start_save")->click();
        QElapsedTimer wall;
        wall.start();
        unsigned queueMax = 0;
        double queueSum = 0;
        int samples = 0;
        while (wall.elapsed() < gSeconds * 1000) {
            QTest::qWait(100);
            const unsigned waiting = recorder.counts().waiting;
            queueMax = std::max(queueMax, waiting);
            queueSum += waiting;
            ++samples;
        }
        w.findChild<QPushButton*>("pushButton_end_save")->click();
        const double seconds = wall.nsecsElapsed() / 1e9;
        const unsigned read = framesRead(w) - read0;
        const double painted = double(w.frameDisplay().paintedFrames(1) - painted0);
        recorder.flush();
        const double drained = wall.nsecsElapsed() / 1e9;
        const RecorderCounts c = recorder.counts();
        state.SetIterationTime(seconds);
        state.counters["fps_read"] = read / seconds;
        state.counters["fps_saved"] = c.saved / drained;
        state.counters["saved"] = c.saved;
        state.counters["failed"] = c.failed;
        state.counters["queue_max"] = queueMax;
        state.counters["queue_avg"] = samples ? queueSum / samples : 0;
        state.counters["fps_painted"] = painted / seconds;
        state.counters["cpu_pct"] = 100.0 * (bench::processCpuSeconds() - cpu0) / drained;
    }
    window.reset();
    QDir(root).removeRecursively();
}
BENCHMARK(BM_ContinuousSave)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--model=", 8) == 0) gModel = argv[i][8];
        if (std::strncmp(argv[i], "--seconds=", 10) == 0) gSeconds = std::atoi(argv[i] + 10);
    }
    // The camera first, in its own process, before any thread exists here.
    bench::ForkedCamera camera(kAddress, kDiscoveryPort, gModel);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
