// The floor for the 3D pane: a plain VTK program, no Qt and none of the
// viewer's code, drawing the cloud the viewer draws (the simulated colour
// camera's 640 x 480 points, a new frame every render, coloured by depth
// through a lookup table, one-pixel points, no multisampling) in an X window
// of the 3D pane's size. Under Xvfb this is software GL, as in the viewer's
// benchmarks; the 3D pane should render at least at this rate.
//   fps               renders per second, each of a new frame
//   cpu_ms/frame      CPU of this process per render (Mesa's rasteriser
//                     threads included; the X server's share is not)
// Run: xvfb-run -a -s "-screen 0 1920x1080x24" build/bench/views/views_vtk_floor_bench [--size=700x440]
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkFloatArray.h>
#include <vtkIdTypeArray.h>
#include <vtkLookupTable.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FrameGenerator.h"

namespace {

int gWidth = 700, gHeight = 440;
constexpr int kPoints = 640 * 480;
constexpr int kFrames = 10;  // a second and a half of the scene moving, replayed

double processCpuSeconds() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) + 1e-6 * double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec);
}

// Points (x, y, z in mm) and depth of consecutive frames of the simulated
// colour camera, through its own intrinsics.
struct Frames {
    std::vector<std::vector<float>> xyz, depth;
    Frames() {
        d3sim::FrameGenerator gen('3', 1);
        const d3sim::Intrinsics k = gen.tofIntrinsics();
        d3sim::CameraSettings settings;
        d3sim::FrameSet set;
        for (int f = 0; f < kFrames; ++f) {
            gen.render(uint64_t(f) * 4, settings, set);
            std::vector<float> p(size_t(kPoints) * 3), d(kPoints);
            for (int v = 0; v < 480; ++v)
                for (int u = 0; u < 640; ++u) {
                    const size_t i = size_t(v) * 640 + size_t(u);
                    const float z = float(set.depth[i]);
                    p[3 * i] = (float(u) - k.cx) / k.fx * z;
                    p[3 * i + 1] = (float(v) - k.cy) / k.fy * z;
                    p[3 * i + 2] = z;
                    d[i] = z;
                }
            xyz.push_back(std::move(p));
            depth.push_back(std::move(d));
        }
    }
};

void BM_BareVtkCloud(benchmark::State& state) {
    if (!std::getenv("DISPLAY")) return state.SkipWithError("needs an X server (xvfb-run)");
    static const Frames frames;
    vtkNew<vtkPoints> points;
    points->SetDataTypeToFloat();
    points->SetNumberOfPoints(kPoints);
    vtkNew<vtkFloatArray> depth;
    depth->SetNumberOfValues(kPoints);
    vtkNew<vtkIdTypeArray> offsets, connectivity;
    offsets->SetNumberOfValues(kPoints + 1);
    connectivity->SetNumberOfValues(kPoints);
    for (vtkIdType i = 0; i <= kPoints; ++i) offsets->SetValue(i, i);
    for (vtkIdType i = 0; i < kPoints; ++i) connectivity->SetValue(i, i);
    vtkNew<vtkCellArray> verts;
    verts->SetData(offsets, connectivity);
    vtkNew<vtkPolyData> poly;
    poly->SetPoints(points);
    poly->SetVerts(verts);
    poly->GetPointData()->SetScalars(depth);

    vtkNew<vtkLookupTable> lut;
    lut->SetNumberOfTableValues(5000);
    lut->SetHueRange(0.0, 0.67);
    lut->Build();
    vtkNew<vtkPolyDataMapper> mapper;
    mapper->SetInputData(poly);
    mapper->SetLookupTable(lut);
    mapper->SetScalarModeToUsePointData();
    mapper->SetColorModeToMapScalars();
    mapper->SetScalarRange(0, 5000);
    vtkNew<vtkActor> actor;
    actor->SetMapper(mapper);
    actor->GetProperty()->SetPointSize(1);
    vtkNew<vtkRenderer> renderer;
    renderer->AddActor(actor);
    renderer->SetBackground(0, 0, 0);
    vtkCamera* camera = renderer->GetActiveCamera();
    camera->SetPosition(0, 0, -1200);
    camera->SetFocalPoint(0, 0, 800);
    camera->SetViewUp(0, -1, 0);

    vtkNew<vtkRenderWindow> window;
    window->SetMultiSamples(0);
    window->SetSize(gWidth, gHeight);
    window->AddRenderer(renderer);

    auto show = [&](int f) {
        std::memcpy(static_cast<vtkFloatArray*>(points->GetData())->WritePointer(0, kPoints * 3),
                    frames.xyz[size_t(f % kFrames)].data(), sizeof(float) * 3 * kPoints);
        std::memcpy(depth->WritePointer(0, kPoints), frames.depth[size_t(f % kFrames)].data(), sizeof(float) * kPoints);
        points->GetData()->Modified();
        points->Modified();
        depth->Modified();
        window->Render();
    };
    show(0);
    renderer->ResetCameraClippingRange();  // once, as the viewer sets its camera
    for (int f = 1; f < 10; ++f) show(f);  // window mapped, GPU buffers sized
    int frame = 0;
    for (auto _ : state) {
        const double cpu0 = processCpuSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        const int n = int(state.range(0));
        for (int i = 0; i < n; ++i) show(frame++);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        const double cpu = processCpuSeconds() - cpu0;
        state.SetIterationTime(seconds);
        state.counters["fps"] = double(n) / seconds;
        state.counters["cpu_ms/frame"] = 1000.0 * cpu / double(n);
        state.counters["width"] = gWidth;
        state.counters["height"] = gHeight;
    }
}
BENCHMARK(BM_BareVtkCloud)->Arg(100)->ArgName("frames")->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    // --size=WxH: the 3D pane's size in the layout being compared with.
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--size=", 7) != 0) continue;
        if (std::sscanf(argv[i] + 7, "%dx%d", &gWidth, &gHeight) != 2 || gWidth <= 0 || gHeight <= 0) {
            std::fprintf(stderr, "--size wants WIDTHxHEIGHT\n");
            return 2;
        }
        for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
        --argc;
        break;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
