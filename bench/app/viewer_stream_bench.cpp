// The viewer as a user runs it: the real window, workers and SDK streaming
// from a simulated model-3 camera (1080p colour) at its highest rate, 25 fps.
// The camera runs in a forked child so the viewer process's CPU time is the
// viewer's alone (SDK receive and JPEG decode included, as in the product).
// Reports, over a steady-state window of a few seconds:
//   cpu_pct      viewer CPU as a percentage of one core (budget: 25 % at 30 fps)
//   fps_read     frames the workers read; fps_painted: painted in the depth
//                pane; fps_3d: pictures of the 3D pane put on screen (with3d only)
//   allocs/frame heap allocations (malloc, calloc, realloc, operator new) per
//                read frame, split into the GUI thread and all other threads
//   latency_*    from a frame being ready in the SDK (received, unpacked,
//                JPEG decoded) to the end of the paint that first shows it in
//                a 2D pane, over every frame the depth, IR and colour panes
//                showed: 50th and 95th percentile and the largest, in ms
//   pane3d_w/h   size of the 3D pane, for the bare-VTK floor at that size
// Run: xvfb-run -a build/bench/app/viewer_stream_bench (or
// QT_QPA_PLATFORM=offscreen). D3_ALLOC_BACKTRACE=N samples the call stack of
// every Nth allocation while measuring and prints them on stderr by count;
// D3_PAINT_COUNT=1 prints the paint, layout and update events per frame by
// widget; D3_SCREENSHOT=FILE saves the screen at the end of a run.
#include <benchmark/benchmark.h>
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "acquisition.h"
#include "benchsupport.h"
#include "camerasession.h"
#include "cloudpoint.h"
#include "d3_sdk/Extensions.h"
#include "framedisplay.h"
#include "graphicsview.h"
#include "heaptrim.h"
#include "panearea.h"
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

// Optional sampled call stacks of the allocations (D3_ALLOC_BACKTRACE=N:
// every Nth allocation while measuring, printed by count when the program
// ends). Stacks go into storage reserved up front; the unwinder's own
// allocations are not sampled (re-entry guard).
constexpr int kStackDepth = 28;
constexpr int kMaxSamples = 40000;
struct AllocSample {
    int depth;
    bool gui;
    void* frames[kStackDepth];
};
AllocSample* gSamples = nullptr;
std::atomic<int> gSampleCount{0};
std::atomic<bool> gSampling{false};
uint64_t gSampleEvery = 0;
std::atomic<uint64_t> gSampleTick{0};
thread_local bool tInSampler = false;

void sampleAlloc() {
    if (tInSampler || gSampleTick.fetch_add(1, std::memory_order_relaxed) % gSampleEvery != 0) return;
    const int i = gSampleCount.fetch_add(1, std::memory_order_relaxed);
    if (i >= kMaxSamples) return;
    tInSampler = true;
    AllocSample& s = gSamples[i];
    s.gui = tGuiThread;
    s.depth = backtrace(s.frames, kStackDepth);
    tInSampler = false;
}

inline void countAlloc() {
    gAllocs.fetch_add(1, std::memory_order_relaxed);
    if (tGuiThread) gGuiAllocs.fetch_add(1, std::memory_order_relaxed);
    if (gSampling.load(std::memory_order_relaxed)) sampleAlloc();
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
        failure_ = "the window was not shown";
        if (!QTest::qWaitForWindowExposed(window_.get())) return;
        auto* search = window_->findChild<QPushButton*>("pushButton");
        auto* combo = window_->findChild<QComboBox*>("comboBox");
        search->click();
        failure_ = "the search found no simulated camera";
        if (!bench::waitFor([&] { return combo->count() > 0; }, 10000)) return;
        window_->findChild<QPushButton*>("pushButton_2")->click();
        failure_ = "the camera did not start streaming";
        if (!bench::waitFor([&] { return window_->session().status().state == SessionState::Streaming; }, 20000))
            return;
        if (!with3d) {
            // The session reports streaming from its own thread, maybe before
            // the window has shown the panes; untick the 3D box once it is ticked.
            auto* cloudBox = window_->findChild<QCheckBox*>("checkBoxCp");
            failure_ = "the 3D pane was not shown for the start";
            if (!bench::waitFor([&] { return cloudBox->isChecked(); }, 10000)) return;
            cloudBox->click();
        }
        failure_ = "no frames were painted";
        ok_ = bench::waitFor([&] { return window_->frameDisplay().paintedFrames(1) > 10; }, 20000);
    }
    ~StreamingWindow() {
        // D3_SCREENSHOT=FILE keeps what the screen shows at the end of the
        // run, to compare the look of two builds.
        if (const char* shot = std::getenv("D3_SCREENSHOT"))
            window_->screen()->grabWindow(0).save(QString::fromLocal8Bit(shot));
        window_->findChild<QPushButton*>("pushButton_6")->click();
        bench::waitFor([&] { return !window_->session().busy(); }, 10000);
        window_.reset();
    }
    bool ok() const { return ok_; }
    const char* failure() const { return failure_; }
    Widget& window() { return *window_; }

private:
    std::unique_ptr<Widget> window_;
    bool ok_ = false;
    const char* failure_ = "";
};

using Clock = std::chrono::steady_clock;

// Times the paints of the 2D panes: each paint is run from inside the filter,
// so the clock is read when the picture is in the window's back buffer, and
// a paint that shows a frame not shown before gives one latency sample.
class PaintLatency : public QObject {
public:
    explicit PaintLatency(Widget& w) : display_(w.frameDisplay()) {
        PaneArea* panes = w.paneArea();
        watch(panes->rgbView(), 0);
        watch(panes->depthView(), 1);
        watch(panes->irView(), 2);
        samples_.reserve(100000);  // no allocation while measuring
    }
    void restart() {
        samples_.clear();
        for (int pane = 0; pane < 3; ++pane) last_[pane] = display_.shownFrameReady(pane);
    }
    // Percentile p (0..100) of the samples so far, ms; sorts them.
    double percentile(double p) {
        if (samples_.empty()) return 0;
        std::sort(samples_.begin(), samples_.end());
        const size_t i = std::min(samples_.size() - 1, size_t(p / 100.0 * double(samples_.size())));
        return samples_[i];
    }
    size_t count() const { return samples_.size(); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Paint || inPaint_) return false;
        const int pane = int(std::find(viewports_, viewports_ + 3, watched) - viewports_);
        if (pane == 3) return false;
        // The paint itself, now; the filter lets it through this time
        // (removing and installing the filter instead would allocate).
        inPaint_ = true;
        QCoreApplication::sendEvent(watched, event);
        inPaint_ = false;
        const Clock::time_point ready = display_.shownFrameReady(pane);
        if (ready != last_[pane] && ready != Clock::time_point{}) {
            last_[pane] = ready;
            if (samples_.size() < samples_.capacity())
                samples_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - ready).count());
        }
        return true;
    }

private:
    void watch(GraphicsView* view, int pane) {
        viewports_[pane] = view->viewport();
        view->viewport()->installEventFilter(this);
    }

    FrameDisplay& display_;
    bool inPaint_ = false;
    QObject* viewports_[3]{};  // by pane: 0 colour, 1 depth, 2 IR
    Clock::time_point last_[3]{};
    std::vector<double> samples_;
};

std::string symbolName(void* address) {
    Dl_info info{};
    if (!dladdr(address, &info) || !info.dli_sname) {
        char text[64];
        std::snprintf(text, sizeof text, "%p", address);
        return (info.dli_fname ? std::string(info.dli_fname) + " " : std::string()) + text;
    }
    int status = 0;
    char* demangled = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    std::string name = status == 0 && demangled ? demangled : info.dli_sname;
    std::free(demangled);
    return name;
}

// Prints the sampled stacks, most frequent first, and the functions found in
// the most samples; counts are scaled back to allocations per frame.
void printAllocSamples(double frames) {
    const int n = std::min(gSampleCount.load(), kMaxSamples);
    if (n == 0 || frames <= 0) return;
    constexpr int kSkip = 3;  // sampleAlloc, countAlloc, the allocation function
    std::map<std::pair<bool, std::vector<void*>>, int> stacks;
    std::map<std::string, int> inclusive;
    for (int i = 0; i < n; ++i) {
        const AllocSample& s = gSamples[i];
        std::vector<void*> frames(s.frames + std::min(kSkip, s.depth), s.frames + s.depth);
        ++stacks[{s.gui, frames}];
        std::set<std::string> seen;
        for (void* f : frames) {
            std::string name = symbolName(f);
            if (seen.insert(name).second) ++inclusive[name];
        }
    }
    const double scale = double(gSampleEvery) / frames;
    std::vector<std::pair<int, const std::pair<const std::pair<bool, std::vector<void*>>, int>*>> sorted;
    for (const auto& entry : stacks) sorted.push_back({entry.second, &entry});
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::fprintf(stderr, "allocation samples: %d, 1 in %llu, over %.0f frames\n", n,
                 static_cast<unsigned long long>(gSampleEvery), frames);
    for (size_t i = 0; i < std::min<size_t>(sorted.size(), 40); ++i) {
        const auto& [key, count] = *sorted[i].second;
        std::fprintf(stderr, "\n%.2f allocs/frame (%s)\n", count * scale, key.first ? "GUI" : "other");
        for (size_t f = 0; f < std::min<size_t>(key.second.size(), 18); ++f)
            std::fprintf(stderr, "    %s\n", symbolName(key.second[f]).c_str());
    }
    std::vector<std::pair<int, std::string>> functions;
    for (const auto& [name, count] : inclusive) functions.push_back({count, name});
    std::sort(functions.rbegin(), functions.rend());
    std::fprintf(stderr, "\nfunctions by allocations/frame beneath them:\n");
    for (size_t i = 0; i < std::min<size_t>(functions.size(), 80); ++i)
        std::fprintf(stderr, "%8.2f  %s\n", functions[i].first * scale, functions[i].second.substr(0, 160).c_str());
}

// Optional count of the paint and layout events each widget gets while
// measuring (D3_PAINT_COUNT=1), printed per frame: which widgets repaint.
class PaintCounter : public QObject {
public:
    void start() {
        counts_.clear();
        qApp->installEventFilter(this);
    }
    void print(double frames) {
        qApp->removeEventFilter(this);
        std::vector<std::pair<int, std::string>> sorted;
        for (const auto& [name, count] : counts_) sorted.push_back({count, name});
        std::sort(sorted.rbegin(), sorted.rend());
        std::fprintf(stderr, "events per frame, by widget:\n");
        for (const auto& [count, name] : sorted) std::fprintf(stderr, "%8.2f  %s\n", count / frames, name.c_str());
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        const char* kind = event->type() == QEvent::Paint           ? "paint"
                           : event->type() == QEvent::LayoutRequest ? "layout"
                           : event->type() == QEvent::UpdateRequest ? "update"
                                                                    : nullptr;
        if (kind && watched->isWidgetType())
            ++counts_[std::string(kind) + " " + watched->metaObject()->className() + " " +
                      watched->objectName().toStdString() + " <- " +
                      (watched->parent() ? watched->parent()->objectName().toStdString() : std::string())];
        return false;
    }

private:
    std::map<std::string, int> counts_;
};

unsigned framesRead(Widget& w) {
    return w.acquisition().frameReads(Acquisition::RgbTofRead) + w.acquisition().frameReads(Acquisition::TofRead);
}

void BM_ViewerStreaming(benchmark::State& state) {
    const bool with3d = state.range(0) != 0;
    PromptRecorder prompts;
    StreamingWindow sw(with3d);
    if (!sw.ok()) return state.SkipWithError(sw.failure());
    Widget& w = sw.window();
    PaintLatency latency(w);
    QTest::qWait(2000);  // buffers sized, JPEG decoder warm
    for (auto _ : state) {
        latency.restart();
        const unsigned read0 = framesRead(w), painted0 = w.frameDisplay().paintedFrames(1);
        const uint64_t rendered0 = w.paneArea()->cloudView()->picturesShown();
        const uint64_t allocs0 = gAllocs, gui0 = gGuiAllocs;
        const double cpu0 = bench::processCpuSeconds();
        QElapsedTimer wall;
        wall.start();
        if (gSamples) gSampling = true;
        PaintCounter paints;
        const bool countPaints = std::getenv("D3_PAINT_COUNT") != nullptr;
        if (countPaints) paints.start();
        QTest::qWait(6000);
        gSampling = false;
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
        state.counters["fps_3d"] = double(w.paneArea()->cloudView()->picturesShown() - rendered0) / seconds;
        if (with3d) {
            state.counters["pane3d_w"] = w.paneArea()->cloudView()->canvas()->width();
            state.counters["pane3d_h"] = w.paneArea()->cloudView()->canvas()->height();
        }
        state.counters["latency_p50_ms"] = latency.percentile(50);
        state.counters["latency_p95_ms"] = latency.percentile(95);
        state.counters["latency_max_ms"] = latency.percentile(100);
        state.counters["latency_frames"] = double(latency.count());
        if (countPaints) paints.print(frames);
        if (gSamples) {
            printAllocSamples(frames);
            gSampleCount = 0;
        }
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
    if (const char* every = std::getenv("D3_ALLOC_BACKTRACE")) {
        gSampleEvery = std::max(1ull, std::strtoull(every, nullptr, 10));
        gSamples = new AllocSample[kMaxSamples];
        void* warm[4];
        backtrace(warm, 4);  // loads the unwinder before any sample is taken
    }
    // The frames' ready time from the SDK itself, on the worker that read them.
    Acquisition::setFrameReadyClock([] {
        d3sdk::FrameTiming t;
        return d3sdk::GetLastFrameTiming(t) ? t.ready : Clock::now();
    });
    keepLargeBlocksMapped();  // as the viewer does
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
