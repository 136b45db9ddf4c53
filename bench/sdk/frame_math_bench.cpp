// Per-frame computations the SDK does on the caller's thread or its own.
#include <benchmark/benchmark.h>

#include "BenchData.h"
#include "JpegDecoder.h"
#include "PointProjector.h"
#include "Registration.h"

namespace {

void BM_PointCompute640x480(benchmark::State& state) {
    const auto depth = bench::roomDepth();
    d3sdk::PointProjector p;
    p.configure(bench::tofIntrinsics(), 640, 480);
    std::vector<PointXYZ> out(depth.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(p.compute(depth.data(), out.data()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PointCompute640x480)->Unit(benchmark::kMillisecond);

d3sdk::Registration registration(unsigned rgbW, unsigned rgbH) {
    d3sdk::Registration r;
    d3sdk::Extrinsics e;
    e.t[0] = -25.0f;
    CameraIntrinsicParam k = bench::rgbIntrinsics1080();
    k.cx = float(rgbW) / 2;
    k.cy = float(rgbH) / 2;
    r.configure(bench::tofIntrinsics(), 640, 480, k, rgbW, rgbH, e);
    return r;
}

// Third argument 1: also track which depth pixel won each colour pixel, as
// when the caller asks for coloured points.
void BM_DepthToRgb(benchmark::State& state) {
    const unsigned w = unsigned(state.range(0)), h = unsigned(state.range(1));
    const bool trackSource = state.range(2) != 0;
    const auto depth = bench::roomDepth();
    auto r = registration(w, h);
    std::vector<uint16_t> out(size_t(w) * h);
    for (auto _ : state) {
        r.depthToRgb(depth.data(), out.data(), trackSource);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DepthToRgb)
    ->Args({1920, 1080, 0})
    ->Args({1920, 1080, 1})
    ->Args({1600, 1200, 0})
    ->Unit(benchmark::kMillisecond);

// RGB -> depth as a frame call does it: the z-buffer pass, then sampling.
void BM_RgbToDepth1080p(benchmark::State& state) {
    const auto depth = bench::roomDepth();
    auto r = registration(1920, 1080);
    std::vector<uint16_t> zbuf(1920 * 1080);
    std::vector<RGB888Pixel> rgb(1920 * 1080, RGB888Pixel{10, 20, 30}), out(640 * 480);
    for (auto _ : state) {
        r.depthToRgb(depth.data(), zbuf.data(), false);
        r.rgbToDepth(depth.data(), zbuf.data(), rgb.data(), out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_RgbToDepth1080p)->Unit(benchmark::kMillisecond);

void BM_ColouredPoints1080p(benchmark::State& state) {
    const auto depth = bench::roomDepth();
    auto r = registration(1920, 1080);
    std::vector<uint16_t> reg(1920 * 1080);
    std::vector<RGB888Pixel> rgb(1920 * 1080);
    std::vector<uint8_t> ir(640 * 480, 100);
    std::vector<PointXYZRGBI> pts(1920 * 1080);
    r.depthToRgb(depth.data(), reg.data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(r.colouredRgbPoints(reg.data(), rgb.data(), ir.data(), pts.data()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ColouredPoints1080p)->Unit(benchmark::kMillisecond);

void BM_JpegDecode(benchmark::State& state) {
    const auto jpeg = bench::jpegImage(int(state.range(0)), int(state.range(1)));
    d3sdk::JpegDecoder dec;
    DataContainer<RGB888Pixel> out;
    for (auto _ : state) {
        if (!dec.decode(jpeg.data(), jpeg.size(), out)) state.SkipWithError("decode failed");
        benchmark::ClobberMemory();
    }
    state.counters["jpeg_kB"] = double(jpeg.size()) / 1024.0;
}
BENCHMARK(BM_JpegDecode)->Args({1920, 1080})->Args({1600, 1200})->Unit(benchmark::kMillisecond);

}  // namespace
