// Per-frame cost of each frame writer on one frame of the simulated colour
// camera (640 x 480 ToF, 1080p colour) as the panes show it, into a temporary
// folder: value CSV, point CSV, planar YUV, PNG and the SDK's PLY.
#include <benchmark/benchmark.h>

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <algorithm>
#include <cstring>

#include "FrameGenerator.h"
#include "framewriters.h"
#include "imageconverter.h"

namespace {

constexpr unsigned kW = 640;
constexpr unsigned kH = 480;
constexpr int kCameraJpegQuality = 85;

QTemporaryDir& folder() {
    static QTemporaryDir dir;
    return dir;
}
QString file(const char* name) { return folder().path() + "/" + name; }

// One frame of a colour camera's scene (sensor noise included, which is
// what makes PNG compression slow), and the pictures the panes show of it.
struct CameraFrame {
    DistanceData depth{kH, kW};
    GrayscaleData ir{kH, kW};
    RgbImageData rgb;
    PointcloudData points{kH, kW};
    QImage depthImage{int(kW), int(kH), QImage::Format_RGB32};
    QImage irImage{int(kW), int(kH), QImage::Format_RGB32};
    QImage rgbImage;

    CameraFrame() {
        d3sim::FrameGenerator generator('3', 7);
        d3sim::FrameSet f;
        generator.render(10, d3sim::CameraSettings{}, f);
        std::copy(f.depth.begin(), f.depth.end(), depth.data());
        std::copy(f.ir.begin(), f.ir.end(), ir.data());
        rgb = RgbImageData(unsigned(f.rgbHeight), unsigned(f.rgbWidth));
        std::memcpy(rgb.data(), f.rgb.data(), f.rgb.size());
        rgbImage = QImage(f.rgbWidth, f.rgbHeight, QImage::Format_RGB32);
        ImageConverter converter;
        ValueMatrix<double> values{int(kH), int(kW)};
        ValueMatrix<QRgb> rgbValues{f.rgbHeight, f.rgbWidth};
        converter.convertDepth(depth, depthImage, values);
        converter.convertIr(ir, irImage, values);
        converter.convertRgb(rgb, rgbImage, rgbValues);
        // The colour picture reaches the viewer as a JPEG of the camera's quality.
        QByteArray jpeg;
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        rgbImage.save(&buffer, "JPG", kCameraJpegQuality);
        rgbImage = QImage::fromData(jpeg, "JPG").convertToFormat(QImage::Format_RGB32);
        // Points as a pinhole camera with a 500-pixel focal length sees the depth.
        for (unsigned i = 0; i < kW * kH; ++i) {
            const float z = float(depth.data()[i]);
            points.data()[i] =
                PointXYZ{(float(i % kW) - 320.0f) * z / 500.0f, (float(i / kW) - 240.0f) * z / 500.0f, z};
        }
        points.setNumberSize(kW * kH);
    }
};

const CameraFrame& frame() {
    static const CameraFrame f;
    return f;
}

void BM_DepthCsv(benchmark::State& state) {
    const DistanceData& d = frame().depth;
    for (auto _ : state) {
        QFile::remove(file("Depth.csv"));
        benchmark::DoNotOptimize(writeValueCsv(file("Depth.csv"), d.data(), d.rows(), d.cols()));
    }
}
BENCHMARK(BM_DepthCsv)->Unit(benchmark::kMillisecond);

void BM_IrCsv(benchmark::State& state) {
    const GrayscaleData& d = frame().ir;
    for (auto _ : state) {
        QFile::remove(file("IR.csv"));
        benchmark::DoNotOptimize(writeValueCsv(file("IR.csv"), d.data(), d.rows(), d.cols()));
    }
}
BENCHMARK(BM_IrCsv)->Unit(benchmark::kMillisecond);

void BM_PointCsv(benchmark::State& state) {
    const PointcloudData& c = frame().points;
    for (auto _ : state) {
        QFile::remove(file("PointCloud.csv"));
        benchmark::DoNotOptimize(writePointCsv(file("PointCloud.csv"), c.data(), c.getNumberSize()));
    }
}
BENCHMARK(BM_PointCsv)->Unit(benchmark::kMillisecond);

void BM_Yuv(benchmark::State& state) {
    const QImage img = frame().rgbImage.scaled(int(state.range(0)), int(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(saveYUYV(img, file("Rgb.yuv")));
}
BENCHMARK(BM_Yuv)->Args({640, 480})->Args({1920, 1080})->Unit(benchmark::kMillisecond);

// PNG at the default compression, as the views' pictures are saved.
void BM_PngDepth(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(writePng(frame().depthImage, file("Depth.png")));
}
BENCHMARK(BM_PngDepth)->Unit(benchmark::kMillisecond);

void BM_PngIr(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(writePng(frame().irImage, file("IR.png")));
}
BENCHMARK(BM_PngIr)->Unit(benchmark::kMillisecond);

void BM_PngRgb1080p(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(writePng(frame().rgbImage, file("Rgb.png")));
}
BENCHMARK(BM_PngRgb1080p)->Unit(benchmark::kMillisecond);

void BM_Ply(benchmark::State& state) {
    PointcloudData c = frame().points;
    const std::string path = file("PointCloud.ply").toStdString();
    for (auto _ : state) benchmark::DoNotOptimize(DeviceManager::SaveAsPLYFile(path, c, true));
}
BENCHMARK(BM_Ply)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
