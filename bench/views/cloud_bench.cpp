// The 3D view's per-frame costs: copying a ToF frame into the VTK arrays, and
// the frame rate of the whole cloud in a full-window view (needs an X server:
// xvfb-run -a -s "-screen 0 1920x1080x24"). Budgets: copy 0.5 ms, >= 20 fps.
// The view draws on its own thread; gui_ms/frame is what a frame costs the
// window's thread. For comparison, the two Qt-hosted ways of drawing on the
// window's thread (native QOpenGLWidget, stereo QOpenGLWindow) run the same
// pipeline.
#include <QVTKOpenGLNativeWidget.h>
#include <QVTKOpenGLStereoWidget.h>
#include <QVTKOpenGLWindow.h>
#include <benchmark/benchmark.h>
#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkRenderWindow.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QOpenGLWindow>
#include <QTest>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

#include "cloudpipeline.h"
#include "cloudpoint.h"

namespace {

// A room seen by the ToF camera: a back wall bending towards the sides with a
// hole of no measurement, projected through a 640 x 480 pinhole.
std::vector<float> roomFrame(float shift) {
    std::vector<float> xyz(std::size_t(kCloudPoints) * 3);
    const float f = 525.0f;
    for (int v = 0; v < kCloudHeight; ++v)
        for (int u = 0; u < kCloudWidth; ++u) {
            const float du = float(u - 320), dv = float(v - 240);
            float z = 2500.0f - 0.004f * du * du + shift;
            if (du * du + dv * dv < 900) z = 0;
            const std::size_t i = std::size_t(v) * kCloudWidth + u;
            xyz[3 * i] = du * z / f;
            xyz[3 * i + 1] = dv * z / f;
            xyz[3 * i + 2] = z;
        }
    return xyz;
}

void BM_PointCopyIntoVtk(benchmark::State& state) {
    const std::vector<float> frame = roomFrame(0);
    CloudPipeline pipeline;
    pipeline.resize(kCloudPoints);
    for (auto _ : state) {
        copyCloudPoints(frame.data(), kCloudPoints, pipeline.points(), pipeline.depth());
        pipeline.markModified();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PointCopyIntoVtk)->Unit(benchmark::kMillisecond);

// For comparison: the obvious way, one double-precision SetPoint per point.
void BM_PointCopySetPointDouble(benchmark::State& state) {
    const std::vector<float> frame = roomFrame(0);
    vtkNew<vtkPoints> points;
    points->SetNumberOfPoints(kCloudPoints);
    for (auto _ : state) {
        for (int i = 0; i < kCloudPoints; ++i) {
            const float* p = &frame[3 * std::size_t(i)];
            if (isValidCloudDepth(p[2])) {
                points->SetPoint(i, p[0], p[1], p[2]);
            } else {
                points->SetPoint(i, 0.0, 0.0, 0.0);
            }
        }
        points->Modified();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PointCopySetPointDouble)->Unit(benchmark::kMillisecond);

bool haveDisplay() { return std::getenv("DISPLAY") != nullptr; }

// Runs the event loop until the window system has the frame (frameSwapped),
// so a benchmark iteration is one frame on screen, not one queued render.
void waitForSwap(bool& swapped) {
    QElapsedTimer timer;
    timer.start();
    while (!swapped && timer.elapsed() < 2000) QApplication::processEvents(QEventLoop::AllEvents, 5);
    swapped = false;
}

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

// Runs the event loop until the view has painted a new picture, sleeping
// between events so the window's thread is charged only for its work.
void waitForPicture(const CloudPoint& view) {
    const uint64_t shown = view.picturesShown();
    while (view.picturesShown() == shown) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

// The real view, as the main window uses it, in a full-screen window: one
// frame at a time, each waited for until it is on the screen.
void BM_CloudPointFullWindowFps(benchmark::State& state) {
    if (!haveDisplay()) return state.SkipWithError("needs an X server");
    const std::vector<float> frames[2] = {roomFrame(0), roomFrame(150)};
    CloudPoint view;
    view.resize(1920, 1080);
    view.show();
    if (!QTest::qWaitForWindowExposed(&view)) return state.SkipWithError("window not exposed");
    view.paintCpDat(const_cast<float*>(frames[0].data()));
    waitForPicture(view);
    int k = 0;
    const double gui0 = threadCpuSeconds();
    for (auto _ : state) {
        view.paintCpDat(const_cast<float*>(frames[++k & 1].data()));
        waitForPicture(view);
    }
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["gui_ms/frame"] = 1000.0 * (threadCpuSeconds() - gui0) / double(state.iterations());
}
BENCHMARK(BM_CloudPointFullWindowFps)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->MinTime(3.0);

// The same pipeline in each Qt host; samples = 0 is what CloudPoint uses,
// 8 is VTK's default.
template <typename Host>
void renderLoop(benchmark::State& state, Host& host, bool& swapped, int samples) {
    CloudPipeline pipeline;
    pipeline.resize(kCloudPoints);
    pipeline.applyCamera(cameraPreset(CAMERA_MAIN_VIEW, 1920, 1080));
    vtkNew<vtkGenericOpenGLRenderWindow> window;
    window->SetMultiSamples(samples);
    host.setRenderWindow(window);
    window->AddRenderer(pipeline.renderer());
    host.resize(1920, 1080);
    host.show();
    if (!QTest::qWaitForWindowExposed(&host)) return state.SkipWithError("window not exposed");
    const std::vector<float> frames[2] = {roomFrame(0), roomFrame(150)};
    int k = 0;
    for (auto _ : state) {
        copyCloudPoints(frames[++k & 1].data(), kCloudPoints, pipeline.points(), pipeline.depth());
        pipeline.markModified();
        window->Render();
        waitForSwap(swapped);
    }
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_NativeWidgetFps(benchmark::State& state) {
    if (!haveDisplay()) return state.SkipWithError("needs an X server");
    QVTKOpenGLNativeWidget host;
    bool swapped = false;
    QObject::connect(&host, &QOpenGLWidget::frameSwapped, [&] { swapped = true; });
    renderLoop(state, host, swapped, int(state.range(0)));
}
BENCHMARK(BM_NativeWidgetFps)
    ->Arg(0)
    ->Arg(8)
    ->ArgName("samples")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(3.0);

void BM_StereoWidgetFps(benchmark::State& state) {
    if (!haveDisplay()) return state.SkipWithError("needs an X server");
    QVTKOpenGLStereoWidget host;
    bool swapped = false;
    QObject::connect(host.embeddedOpenGLWindow(), &QOpenGLWindow::frameSwapped, [&] { swapped = true; });
    renderLoop(state, host, swapped, int(state.range(0)));
}
BENCHMARK(BM_StereoWidgetFps)
    ->Arg(0)
    ->Arg(8)
    ->ArgName("samples")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(3.0);

}  // namespace

int main(int argc, char** argv) {
    // The display benchmarks need the application object; without a display
    // they report themselves skipped and the copy benchmarks still run.
    std::unique_ptr<QApplication> app;
    if (haveDisplay()) app = std::make_unique<QApplication>(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
