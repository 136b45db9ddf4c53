// Per-frame cost of each frame writer at the camera's 640 x 480 (and the
// 1080p colour picture), into a temporary folder: value CSV, point CSV,
// planar YUV, PNG and the SDK's PLY.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <cmath>

#include "framewriters.h"

namespace {

constexpr unsigned kW = 640;
constexpr unsigned kH = 480;

QTemporaryDir& folder() {
    static QTemporaryDir dir;
    return dir;
}
QString file(const char* name) { return folder().path() + "/" + name; }

// A smooth scene with noise, like a depth camera's: values of every width.
DistanceData depthFrame() {
    DistanceData d(kH, kW);
    for (unsigned y = 0; y < kH; ++y)
        for (unsigned x = 0; x < kW; ++x) d.data()[y * kW + x] = uint16_t(800 + (x * 7 + y * 3) % 4000 + (x * y) % 13);
    return d;
}
GrayscaleData irFrame() {
    GrayscaleData d(kH, kW);
    for (unsigned i = 0; i < kW * kH; ++i) d.data()[i] = uint8_t((i * 31) % 251);
    return d;
}
QImage picture(int w, int h, QImage::Format format) {
    QImage img(w, h, format);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) img.setPixel(x, y, qRgb((x * 3) & 255, (y * 5) & 255, ((x + y) * 7) & 255));
    return img;
}
PointcloudData cloud() {
    PointcloudData c(kH, kW);
    for (unsigned i = 0; i < kW * kH; ++i) {
        const float z = 800.0f + float(i % 4000) * 0.731f;
        c.data()[i] = PointXYZ{float(int(i % kW) - 320) * z / 500.0f, float(int(i / kW) - 240) * z / 500.0f, z};
    }
    c.setNumberSize(kW * kH);
    return c;
}

void BM_DepthCsv(benchmark::State& state) {
    const DistanceData d = depthFrame();
    for (auto _ : state) {
        QFile::remove(file("Depth.csv"));
        benchmark::DoNotOptimize(writeValueCsv(file("Depth.csv"), d.data(), d.rows(), d.cols()));
    }
}
BENCHMARK(BM_DepthCsv)->Unit(benchmark::kMillisecond);

void BM_IrCsv(benchmark::State& state) {
    const GrayscaleData d = irFrame();
    for (auto _ : state) {
        QFile::remove(file("IR.csv"));
        benchmark::DoNotOptimize(writeValueCsv(file("IR.csv"), d.data(), d.rows(), d.cols()));
    }
}
BENCHMARK(BM_IrCsv)->Unit(benchmark::kMillisecond);

void BM_PointCsv(benchmark::State& state) {
    const PointcloudData c = cloud();
    for (auto _ : state) {
        QFile::remove(file("PointCloud.csv"));
        benchmark::DoNotOptimize(writePointCsv(file("PointCloud.csv"), c.data(), c.getNumberSize()));
    }
}
BENCHMARK(BM_PointCsv)->Unit(benchmark::kMillisecond);

void BM_Yuv(benchmark::State& state) {
    const QImage img = picture(int(state.range(0)), int(state.range(1)), QImage::Format_RGB32);
    for (auto _ : state) benchmark::DoNotOptimize(saveYUYV(img, file("Rgb.yuv")));
}
BENCHMARK(BM_Yuv)->Args({640, 480})->Args({1920, 1080})->Unit(benchmark::kMillisecond);

void BM_PngDepth(benchmark::State& state) {
    const QImage img = picture(kW, kH, QImage::Format_RGB32);
    for (auto _ : state) benchmark::DoNotOptimize(writePng(img, file("Depth.png")));
}
BENCHMARK(BM_PngDepth)->Unit(benchmark::kMillisecond);

void BM_PngIr(benchmark::State& state) {
    QImage img(kW, kH, QImage::Format_Grayscale8);
    for (int y = 0; y < int(kH); ++y)
        for (int x = 0; x < int(kW); ++x) img.scanLine(y)[x] = uchar((x * 3 + y * 5) & 255);
    for (auto _ : state) benchmark::DoNotOptimize(writePng(img, file("IR.png")));
}
BENCHMARK(BM_PngIr)->Unit(benchmark::kMillisecond);

void BM_PngRgb1080p(benchmark::State& state) {
    const QImage img = picture(1920, 1080, QImage::Format_RGB888);
    for (auto _ : state) benchmark::DoNotOptimize(writePng(img, file("Rgb.png")));
}
BENCHMARK(BM_PngRgb1080p)->Unit(benchmark::kMillisecond);

void BM_Ply(benchmark::State& state) {
    PointcloudData c = cloud();
    const std::string path = file("PointCloud.ply").toStdString();
    for (auto _ : state) benchmark::DoNotOptimize(DeviceManager::SaveAsPLYFile(path, c, true));
}
BENCHMARK(BM_Ply)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
