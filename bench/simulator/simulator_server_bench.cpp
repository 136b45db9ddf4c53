// What the camera side spends per frame besides rendering: JPEG-encoding the
// colour image and packing the frame payload (and what the receiver spends
// validating it). Colour content comes from the real renderer so the JPEG
// numbers reflect the simulator's images, not noise or flat colour.
#include <benchmark/benchmark.h>

#include "FrameGenerator.h"
#include "JpegEncoder.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"

namespace {

const d3sim::FrameSet& renderedFrame(char model) {
    static d3sim::FrameSet frames[2];
    d3sim::FrameSet& f = frames[model == '3' ? 0 : 1];
    if (f.depth.empty()) {
        d3sim::FrameGenerator gen(model, 1);
        gen.render(10, d3sim::CameraSettings(), f);
    }
    return f;
}

void BM_JpegEncode(benchmark::State& state) {
    const d3sim::FrameSet& f = renderedFrame(char('0' + state.range(0)));
    d3sim::JpegEncoder jpeg(85);
    for (auto _ : state) {
        if (!jpeg.encode(f.rgb.data(), f.rgbWidth, f.rgbHeight)) state.SkipWithError("encode failed");
        benchmark::DoNotOptimize(jpeg.data());
    }
    state.counters["jpeg_kB"] = double(jpeg.size()) / 1024.0;
    state.SetLabel(std::to_string(f.rgbWidth) + "x" + std::to_string(f.rgbHeight));
}
BENCHMARK(BM_JpegEncode)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond);

void BM_PackFramePayload(benchmark::State& state) {
    const d3sim::FrameSet& f = renderedFrame('3');
    d3sim::JpegEncoder jpeg(85);
    jpeg.encode(f.rgb.data(), f.rgbWidth, f.rgbHeight);
    d3proto::FrameHeader h;
    h.tofWidth = 640;
    h.tofHeight = 480;
    h.rgbWidth = uint16_t(f.rgbWidth);
    h.rgbHeight = uint16_t(f.rgbHeight);
    h.rgbEncoding = d3proto::RgbEncoding::Jpeg;
    h.rgbBytes = uint32_t(jpeg.size());
    std::vector<uint8_t> out;
    for (auto _ : state) {
        const size_t n = d3proto::encodeFrame(h, f.depth.data(), f.ir.data(), f.amplitude.data(), jpeg.data(), out,
                                              d3proto::kHeaderSize);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
}
BENCHMARK(BM_PackFramePayload)->Unit(benchmark::kMicrosecond);

void BM_ValidateFramePayload(benchmark::State& state) {
    const d3sim::FrameSet& f = renderedFrame('1');
    d3proto::FrameHeader h;
    h.tofWidth = 640;
    h.tofHeight = 480;
    std::vector<uint8_t> bytes;
    d3proto::encodeFrame(h, f.depth.data(), f.ir.data(), f.amplitude.data(), nullptr, bytes);
    d3proto::FrameView v;
    for (auto _ : state) benchmark::DoNotOptimize(d3proto::decodeFrame(bytes.data(), bytes.size(), v));
}
BENCHMARK(BM_ValidateFramePayload);

}  // namespace
