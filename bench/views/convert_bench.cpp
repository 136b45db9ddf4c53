// Per-frame conversion costs on the acquisition thread: depth colour map and
// IR at 640 x 480, colour at 1920 x 1080. Budgets: 0.5, 0.3 and 1 ms. Also
// what the histogram and the largest regions add to a frame.
#include <benchmark/benchmark.h>

#include <QImage>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "colormap.h"
#include "framestats.h"
#include "frameconvert.h"

namespace {

constexpr int kW = 640, kH = 480;
constexpr double kMin = 300, kMax = 4500;

// A tilted floor with noise and a few holes, so values spread over the range
// and some fall outside it, as a real scene does.
std::vector<uint16_t> depthFrame() {
    std::vector<uint16_t> depth(kW * kH);
    std::mt19937 rng(7);
    std::normal_distribution<double> noise(0, 15);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const double d = 200 + y * 10.0 + x * 0.5 + noise(rng);
            depth[y * kW + x] = (x * 7 + y * 3) % 97 == 0 ? 0 : uint16_t(d);
        }
    return depth;
}

void BM_DepthColourMap(benchmark::State& state) {
    const std::vector<uint16_t> depth = depthFrame();
    QImage image(kW, kH, QImage::Format_RGB32);
    ValueMatrix<double> values(kH, kW);
    DepthColorTable table;
    convertDepth(depth.data(), depth.size(), kMin, kMax, table, image, values);
    // The fast path is only worth having if it draws what the formula draws.
    for (int i = 0; i < kW * kH; ++i) {
        const uint16_t d = depth[i];
        const QRgb expected = (d >= kMin && d <= kMax) ? mapDistanceToColor(d, kMin, kMax) : 0u;
        if (reinterpret_cast<const QRgb*>(image.constBits())[i] != expected) {
            state.SkipWithError("depth pixels differ from mapDistanceToColor");
            return;
        }
    }
    for (auto _ : state) {
        convertDepth(depth.data(), depth.size(), kMin, kMax, table, image, values);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DepthColourMap)->Unit(benchmark::kMillisecond);

// The limits change on every frame (a user dragging the slider): the table is
// rebuilt each time, the worst case.
void BM_DepthColourMapNewLimitsEveryFrame(benchmark::State& state) {
    const std::vector<uint16_t> depth = depthFrame();
    QImage image(kW, kH, QImage::Format_RGB32);
    ValueMatrix<double> values(kH, kW);
    DepthColorTable table;
    double max = kMax;
    for (auto _ : state) {
        max = max == kMax ? kMax + 1 : kMax;
        convertDepth(depth.data(), depth.size(), kMin, max, table, image, values);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DepthColourMapNewLimitsEveryFrame)->Unit(benchmark::kMillisecond);

// For comparison: the formula evaluated per pixel.
void BM_DepthFormulaPerPixel(benchmark::State& state) {
    const std::vector<uint16_t> depth = depthFrame();
    QImage image(kW, kH, QImage::Format_RGB32);
    for (auto _ : state) {
        QRgb* px = reinterpret_cast<QRgb*>(image.bits());
        for (int i = 0; i < kW * kH; ++i) {
            const uint16_t d = depth[i];
            px[i] = (d >= kMin && d <= kMax) ? mapDistanceToColor(d, kMin, kMax) : 0u;
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DepthFormulaPerPixel)->Unit(benchmark::kMillisecond);

void BM_IrGrey(benchmark::State& state) {
    std::vector<uint8_t> ir(kW * kH);
    for (std::size_t i = 0; i < ir.size(); ++i) ir[i] = uint8_t(i * 31);
    QImage image(kW, kH, QImage::Format_RGB32);
    ValueMatrix<double> values(kH, kW);
    for (auto _ : state) {
        convertIr(ir.data(), ir.size(), image, values);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_IrGrey)->Unit(benchmark::kMillisecond);

void BM_Rgb1080p(benchmark::State& state) {
    const int w = 1920, h = 1080;
    std::vector<RGB888Pixel> rgb(std::size_t(w) * h);
    for (std::size_t i = 0; i < rgb.size(); ++i) rgb[i] = {uint8_t(i), uint8_t(i >> 8), uint8_t(i >> 16)};
    QImage image(w, h, QImage::Format_RGB32);
    ValueMatrix<QRgb> values(h, w);
    for (auto _ : state) {
        convertRgb(rgb.data(), rgb.size(), image, values);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Rgb1080p)->Unit(benchmark::kMillisecond);

// The depth histogram of a frame: counting, bins and both percentiles.
void BM_DepthHistogram(benchmark::State& state) {
    const std::vector<uint16_t> depth = depthFrame();
    std::vector<uint32_t> counts;
    DepthHistogram histogram;
    for (auto _ : state) {
        countDepths(depth.data(), depth.size(), counts);
        fillHistogram(counts, histogram);
        benchmark::DoNotOptimize(histogram);
    }
}
BENCHMARK(BM_DepthHistogram)->Unit(benchmark::kMillisecond);

// A region as large as the picture: the whole depth frame, the whole 1080p colour frame.
void BM_RegionWholeDepthFrame(benchmark::State& state) {
    const std::vector<uint16_t> depth = depthFrame();
    const std::vector<double> values(depth.begin(), depth.end());
    for (auto _ : state)
        benchmark::DoNotOptimize(regionStats(values.data(), kW, regionInImage(0, 0, kW - 1, kH - 1, kW, kH), true));
}
BENCHMARK(BM_RegionWholeDepthFrame)->Unit(benchmark::kMillisecond);

void BM_RegionWholeColourFrame(benchmark::State& state) {
    const int w = 1920, h = 1080;
    std::vector<uint32_t> pixels(std::size_t(w) * h);
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = 0xFF000000u | uint32_t(i * 2654435761u >> 8);
    for (auto _ : state)
        benchmark::DoNotOptimize(regionStatsRgb(pixels.data(), w, regionInImage(0, 0, w - 1, h - 1, w, h)));
}
BENCHMARK(BM_RegionWholeColourFrame)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
