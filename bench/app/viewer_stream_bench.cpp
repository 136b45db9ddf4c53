// The viewer as a user runs it: the real window, workers and SDK streaming
// from a simulated model-3 camera (1080p colour) at its highest rate, 25 fps.
// The camera runs in a forked child so the viewer process's CPU time is the
// viewer's alone (SDK receive and JPEG decode included, as in the product).
// Reports, over a steady-state window of a few seconds:
//   cpu_pct      viewer CPU as a percentage of one core (budget: 25 % at 30 fps)
//   fps          frames painted per second in the depth pane
//   allocs/frame heap allocations (malloc, calloc, realloc, operator new) per
//                read frame, split into the GUI thread and all other threads
// Run: xvfb-run -a build/bench/app/viewer_stream_bench (or
// QT_QPA_PLATFORM=offscreen).
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QPushButton>
#include <QTest>
#include <atomic>
#include <cstdlib>
#include <memory>

#include "acquisition.h"
#include "benchsupport.h"
#include "camerasession.h"
#include "framedisplay.h"
#include "promptrecorder.h"
#include "widget.h"

// --- Allocation counting: glibc's own entry points under the public names,
// so every allocation of every library in this process is seen.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
}

namespace {
std::atomic<uint64_t> gAllocs{0};
std::atomic<uint64_t> gGuiAllocs{0};
thread_local bool tGuiThread = false;  // initial-exec TLS: no allocation on first use

inline void countAlloc() {
    gAllocs.fetch_add(1, std::memory_order_relaxed);
    if (tGuiThread) gGuiAllocs.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

extern "C" void* malloc(size_t n) {
    countAlloc();
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t size) {
    countAlloc();
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t n) {
    countAlloc();
    return __libc_realloc(p, n);
}
extern "C" void free(void* p) { __libc_free(p); }

namespace {

constexpr char kAddress[] = "127.0.96.2";
constexpr uint16_t kDiscoveryPort = 48796;

// Opens the window, starts the camera through search and start like a user,
// and hides the 3D pane when only the 2D panes are measured.
class StreamingWindow {
public:
    explicit StreamingWindow(bool with3d) {
        window_ = std::make_unique<Widget>();
        window_->resize(1600, 900);
        window_->show();
        if (!QTest::qWaitForWindowExposed(window_.get())) return;
        auto* search = window_->findChild<QPushButton*>("pushButton");
        auto* combo = window_->findChild<QComboBox*>("comboBox");
        search->click();
        if (!bench::waitFor([&] { return combo->count() > 0; }, 10000)) return;
        window_->findChild<QPushButton*>("pushButton_2")->click();
        if (!bench::waitFor([&] { return window_->session().status().state == SessionState::Streaming; }, 20000))
            return;
        if (!with3d) window_->findChild<QCheckBox*>("checkBoxCp")->click();
        ok_ = bench::waitFor([&] { return window_->frameDisplay().paintedFrames(1) > 10; }, 20000);
    }
    ~StreamingWindow() {
        window_->findChild<QPushButton*>("pushButton_6")->click();
        bench::waitFor([&] { return !window_->session().busy(); }, 10000);
        window_.reset();
    }
    bool ok() const { return ok_; }
    Widget& window() { return *window_; }

private:
    std::unique_ptr<Widget> window_;
    bool ok_ = false;
};

unsigned framesRead(Widget& w) {
    return w.acquisition().frameReads(Acquisition::RgbTofRead) + w.acquisition().frameReads(Acquisition::TofRead);
}

void BM_ViewerStreaming(benchmark::State& state) {
    const bool with3d = state.range(0) != 0;
    PromptRecorder prompts;
    StreamingWindow sw(with3d);
    if (!sw.ok()) return state.SkipWithError("could not start streaming from the simulated camera");
    Widget& w = sw.window();
    QTest::qWait(2000);  // buffers sized, JPEG decoder warm
    for (auto _ : state) {
        const unsigned read0 = framesRead(w), painted0 = w.frameDisplay().paintedFrames(1);
        const uint64_t allocs0 = gAllocs, gui0 = gGuiAllocs;
        const double cpu0 = bench::processCpuSeconds();
        QElapsedTimer wall;
        wall.start();
        QTest::qWait(6000);
        const double seconds = wall.nsecsElapsed() / 1e9;
        const double cpu = bench::processCpuSeconds() - cpu0;
        const double frames = std::max(1u, framesRead(w) - read0);
        state.SetIterationTime(seconds);
        state.counters["cpu_pct"] = 100.0 * cpu / seconds;
        state.counters["cpu_ms/frame"] = 1000.0 * cpu / frames;
        state.counters["fps_read"] = frames / seconds;
        state.counters["fps_painted"] = double(w.frameDisplay().paintedFrames(1) - painted0) / seconds;
        state.counters["allocs/frame"] = double(gAllocs - allocs0) / frames;
        state.counters["gui_allocs/frame"] = double(gGuiAllocs - gui0) / frames;
    }
}
BENCHMARK(BM_ViewerStreaming)
    ->ArgName("with3d")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    // The camera first, in its own process, before any thread exists here.
    bench::ForkedCamera camera(kAddress, kDiscoveryPort, '3');
    tGuiThread = true;
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
