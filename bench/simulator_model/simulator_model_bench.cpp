// Frame generation cost. The simulator serves two cameras at up to 30 fps on
// two cores next to the viewer: a default ToF frame should stay within 6 ms
// and a 1080p colour frame within 12 ms on one core.
#include <benchmark/benchmark.h>

#include "DepthFilters.h"
#include "FrameGenerator.h"

namespace d3sim {
namespace {

void renderLoop(benchmark::State& state, char model, const CameraSettings& s) {
    FrameGenerator gen(model, 1);
    FrameSet f;
    uint64_t n = 0;
    gen.render(n++, s, f);  // first frame sizes the buffers
    for (auto _ : state) {
        gen.render(n++, s, f);
        benchmark::DoNotOptimize(f.depth.data());
    }
}

void BM_TofDefault(benchmark::State& state) { renderLoop(state, '0', CameraSettings{}); }
BENCHMARK(BM_TofDefault)->Unit(benchmark::kMillisecond);

void BM_TofSingleFrequency(benchmark::State& state) {
    CameraSettings s;
    s.frequencyMode = 1;
    renderLoop(state, '0', s);
}
BENCHMARK(BM_TofSingleFrequency)->Unit(benchmark::kMillisecond);

void BM_TofHdrSaturating(benchmark::State& state) {
    CameraSettings s;
    s.hdr = true;
    s.frameRate = 5;
    s.tofExposureUs = 4000;
    renderLoop(state, '0', s);
}
BENCHMARK(BM_TofHdrSaturating)->Unit(benchmark::kMillisecond);

void BM_TofAllFilters(benchmark::State& state) {
    CameraSettings s;
    s.timeMedian = {true, 9.0f, 100.0f};
    s.spatial = {true, 7.0f, 100.0f};
    s.flyPixel = {true, 15.0f, 100.0f};
    s.confidence = {true, 15.0f, 100.0f};
    renderLoop(state, '0', s);
}
BENCHMARK(BM_TofAllFilters)->Unit(benchmark::kMillisecond);

// ToF plus colour; subtract BM_TofDefault for the colour share.
void BM_TofAndRgb1080p(benchmark::State& state) { renderLoop(state, '3', CameraSettings{}); }
BENCHMARK(BM_TofAndRgb1080p)->Unit(benchmark::kMillisecond);

void BM_TofAndRgb1600x1200(benchmark::State& state) { renderLoop(state, '4', CameraSettings{}); }
BENCHMARK(BM_TofAndRgb1600x1200)->Unit(benchmark::kMillisecond);

// A camera (re)start once its geometry's static images exist, as after a
// simulated reboot; the first camera of a geometry also traces the scene.
void BM_Construct(benchmark::State& state) {
    for (auto _ : state) {
        FrameGenerator gen('3', 1);
        benchmark::DoNotOptimize(&gen);
    }
}
BENCHMARK(BM_Construct)->Unit(benchmark::kMillisecond);

// Filters alone, on a real noisy frame.
const FrameSet& sampleFrame() {
    static const FrameSet frame = [] {
        FrameGenerator gen('0', 1);
        FrameSet f;
        gen.render(0, CameraSettings{}, f);
        return f;
    }();
    return frame;
}

void BM_SpatialMedian(benchmark::State& state) {
    std::vector<uint16_t> depth, scratch;
    for (auto _ : state) {
        depth = sampleFrame().depth;
        spatialMedian(depth.data(), static_cast<int>(state.range(0)), scratch);
        benchmark::DoNotOptimize(depth.data());
    }
}
BENCHMARK(BM_SpatialMedian)->Arg(3)->Arg(5)->Arg(7)->Unit(benchmark::kMillisecond);

void BM_TimeMedian(benchmark::State& state) {
    TimeMedianFilter filter;
    std::vector<uint16_t> depth;
    for (int i = 0; i < TimeMedianFilter::kMaxKernel; ++i) {
        depth = sampleFrame().depth;
        filter.process(depth.data(), 1, false);
    }
    for (auto _ : state) {
        depth = sampleFrame().depth;
        filter.process(depth.data(), static_cast<int>(state.range(0)), true);
        benchmark::DoNotOptimize(depth.data());
    }
}
BENCHMARK(BM_TimeMedian)->Arg(3)->Arg(9)->Unit(benchmark::kMillisecond);

void BM_FlyingPixel(benchmark::State& state) {
    std::vector<uint16_t> depth, scratch;
    for (auto _ : state) {
        depth = sampleFrame().depth;
        flyingPixelFilter(depth.data(), 15.0f, scratch);
        benchmark::DoNotOptimize(depth.data());
    }
}
BENCHMARK(BM_FlyingPixel)->Unit(benchmark::kMillisecond);

void BM_Confidence(benchmark::State& state) {
    std::vector<uint16_t> depth;
    for (auto _ : state) {
        depth = sampleFrame().depth;
        confidenceFilter(depth.data(), sampleFrame().amplitude.data(), 15.0f);
        benchmark::DoNotOptimize(depth.data());
    }
}
BENCHMARK(BM_Confidence)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace d3sim
