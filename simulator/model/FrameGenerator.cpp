#include "FrameGenerator.h"

#include <algorithm>
#include <cmath>

#include "DepthFilters.h"
#include "RgbSensor.h"
#include "TofSensor.h"

namespace d3sim {

namespace {
constexpr size_t kTofPixels = static_cast<size_t>(kTofWidth) * kTofHeight;
constexpr int kMinTofExposureUs = 6;
constexpr int kFastModeFps = 25;         // single integration runs at the fastest table row
constexpr float kFastModeNoise = 1.41f;  // half the light per frame: sqrt(2) more noise
constexpr float kHdrShortRatio = 8.0f;   // long / short exposure of HDR
// Auto exposure brings the 98th percentile of amplitude here: bright, with a
// margin below the point where samples clip.
constexpr float kTofAeTarget = 2000.0f;
constexpr float kRgbAeTargetLevel = 110.0f;
constexpr float kAeDeadBand = 0.02f;
constexpr float kIrFullScale = 2048.0f;  // amplitude shown as white IR at gamma 0
// The colour camera sits 25 mm to the right of the ToF camera, axes parallel.
constexpr Vec3 kRgbCentre{25.0f, 0.0f, 0.0f};

Intrinsics rgbIntrinsicsFor(char model) {
    if (model == '3') return {1400.0f, 1400.0f, 960.0f, 540.0f};
    if (model == '4') return {1250.0f, 1250.0f, 800.0f, 600.0f};
    return {0.0f, 0.0f, 0.0f, 0.0f};
}
}  // namespace

struct FrameGenerator::Impl {
    char model;
    uint64_t seed;
    TofSensor tof{Intrinsics{520.0f, 520.0f, 320.0f, 240.0f}};
    std::unique_ptr<RgbSensor> rgb;
    TimeMedianFilter timeMedian;
    std::vector<uint16_t> scratch;
    std::vector<uint8_t> saturated = std::vector<uint8_t>(kTofPixels);
    std::vector<int> hdrPixels;
    std::vector<uint8_t> irCurve = std::vector<uint8_t>(4096);
    int irCurveGamma = -1;
    float tofAe = -1.0f;  // auto-exposure state; < 0 until auto exposure starts
    float rgbAe = -1.0f;
    int lastTofExposure = CameraSettings{}.tofExposureUs;
    int lastRgbExposure = 0;

    void renderTof(uint64_t frameNo, const CameraSettings& s, FrameSet& out);
    void renderRgb(uint64_t frameNo, const CameraSettings& s, FrameSet& out);
    void updateIrCurve(int gamma);
    float amplitudePercentile98(const uint16_t* amp) const;
};

FrameGenerator::FrameGenerator(char model, uint64_t seed) : impl_(std::make_unique<Impl>()) {
    impl_->model = model;
    impl_->seed = seed;
    const Intrinsics k = rgbIntrinsicsFor(model);
    if (k.fx > 0.0f) {
        const int w = model == '3' ? 1920 : 1600, h = model == '3' ? 1080 : 1200;
        impl_->rgb = std::make_unique<RgbSensor>(w, h, k, kRgbCentre);
    }
    impl_->hdrPixels.reserve(kTofPixels);
}

FrameGenerator::~FrameGenerator() = default;

Intrinsics FrameGenerator::tofIntrinsics() const { return impl_->tof.intrinsics(); }
Intrinsics FrameGenerator::rgbIntrinsics() const { return rgbIntrinsicsFor(impl_->model); }

Extrinsics FrameGenerator::rgbExtrinsics() const {
    // p_rgb = p_tof - centre: the axes are parallel, so R is the identity.
    return {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {-kRgbCentre.x, -kRgbCentre.y, -kRgbCentre.z}};
}

int FrameGenerator::rgbWidth() const { return impl_->rgb ? impl_->rgb->width() : 0; }
int FrameGenerator::rgbHeight() const { return impl_->rgb ? impl_->rgb->height() : 0; }
int FrameGenerator::effectiveExposureUs() const { return impl_->lastTofExposure; }
int FrameGenerator::effectiveRgbExposureUs() const { return impl_->lastRgbExposure; }

void FrameGenerator::renderGroundTruth(uint64_t frameNo, std::vector<float>& depthMm) const {
    impl_->tof.renderGroundTruth(frameNo, depthMm);
}

void FrameGenerator::reset() {
    impl_->timeMedian.reset();
    impl_->tofAe = -1.0f;
    impl_->rgbAe = -1.0f;
}

void FrameGenerator::render(uint64_t frameNo, const CameraSettings& settings, FrameSet& out) {
    out.frameId = static_cast<uint32_t>(frameNo);
    const int fps = std::clamp(settings.frameRate, 1, 30);
    out.timestampUs = frameNo * 1000000ull / static_cast<uint64_t>(fps);
    impl_->renderTof(frameNo, settings, out);
    impl_->renderRgb(frameNo, settings, out);
}

void FrameGenerator::Impl::updateIrCurve(int gamma) {
    gamma = std::clamp(gamma, 0, 255);
    if (gamma == irCurveGamma) return;
    irCurveGamma = gamma;
    // Higher settings lift the dark end, as a display gamma below one does.
    const float exponent = 1.0f / (1.0f + gamma / 64.0f);
    for (size_t a = 0; a < irCurve.size(); ++a) {
        const float x = std::min(1.0f, static_cast<float>(a) / kIrFullScale);
        irCurve[a] = static_cast<uint8_t>(std::lround(255.0f * std::pow(x, exponent)));
    }
}

float FrameGenerator::Impl::amplitudePercentile98(const uint16_t* amp) const {
    // Sparse histogram: auto exposure needs a robust level, not every pixel.
    constexpr int kBins = 128, kBinWidth = 4096 / kBins;
    int hist[kBins] = {};
    int n = 0;
    for (int v = 2; v < kTofHeight; v += 4)
        for (int u = 2; u < kTofWidth; u += 4, ++n) ++hist[std::min(kBins - 1, amp[v * kTofWidth + u] / kBinWidth)];
    int above = 0;
    for (int b = kBins - 1; b >= 0; --b) {
        above += hist[b];
        if (above * 50 >= n) return (b + 1.0f) * kBinWidth;
    }
    return 1.0f;
}

void FrameGenerator::Impl::renderTof(uint64_t frameNo, const CameraSettings& s, FrameSet& out) {
    out.depth.resize(kTofPixels);
    out.amplitude.resize(kTofPixels);
    out.ir.resize(kTofPixels);

    const int cap = exposureLimitForFps(s.singleIntegral ? kFastModeFps : s.frameRate).tofMaxUs;
    if (!s.tofAutoExposure || tofAe < 0.0f) tofAe = static_cast<float>(s.tofExposureUs);
    tofAe = std::clamp(tofAe, static_cast<float>(kMinTofExposureUs), static_cast<float>(cap));
    const float exposure =
        s.tofAutoExposure ? tofAe : static_cast<float>(std::clamp(s.tofExposureUs, kMinTofExposureUs, cap));
    lastTofExposure = static_cast<int>(std::lround(exposure));

    TofMeasureMode mode;
    mode.exposureUs = exposure;
    mode.dualFrequency = s.frequencyMode == 0;
    mode.noiseScale = s.singleIntegral ? kFastModeNoise : 1.0f;
    tof.prepareFrame(frameNo);
    Rng rng = frameRng(seed, frameNo, 0);
    tof.measure(mode, rng, out.depth.data(), out.amplitude.data(), saturated.data());

    if (s.hdr) {
        // Re-measure clipped pixels with a short exposure; elsewhere the long
        // one has the better signal-to-noise ratio and is kept.
        hdrPixels.clear();
        for (size_t i = 0; i < kTofPixels; ++i)
            if (saturated[i]) hdrPixels.push_back(static_cast<int>(i));
        mode.exposureUs = exposure / kHdrShortRatio;
        Rng shortRng = frameRng(seed, frameNo, 1);
        tof.measurePixels(mode, shortRng, hdrPixels, out.depth.data(), out.amplitude.data(), saturated.data());
        for (int i : hdrPixels)
            out.amplitude[i] = static_cast<uint16_t>(std::min(65535.0f, out.amplitude[i] * kHdrShortRatio));
    }

    updateIrCurve(s.irGamma);
    for (size_t i = 0; i < kTofPixels; ++i) out.ir[i] = irCurve[std::min<uint16_t>(out.amplitude[i], 4095)];

    if (s.tofAutoExposure) {
        const float level = amplitudePercentile98(out.amplitude.data());
        const float step = std::clamp(std::sqrt(kTofAeTarget / level), 0.5f, 2.0f);
        if (std::fabs(step - 1.0f) > kAeDeadBand)
            tofAe = std::clamp(tofAe * step, static_cast<float>(kMinTofExposureUs), static_cast<float>(cap));
    }

    uint16_t* depth = out.depth.data();
    timeMedian.process(depth, timeKernelFor(s.timeMedian.value), s.timeMedian.enable);
    if (s.spatial.enable) spatialMedian(depth, spatialKernelFor(s.spatial.value), scratch);
    if (s.flyPixel.enable) flyingPixelFilter(depth, s.flyPixel.value, scratch);
    if (s.confidence.enable) confidenceFilter(depth, out.amplitude.data(), s.confidence.value);
}

void FrameGenerator::Impl::renderRgb(uint64_t frameNo, const CameraSettings& s, FrameSet& out) {
    if (!rgb) {
        out.rgbWidth = out.rgbHeight = 0;
        out.rgb.clear();
        lastRgbExposure = 0;
        return;
    }
    out.rgbWidth = rgb->width();
    out.rgbHeight = rgb->height();
    out.rgb.resize(static_cast<size_t>(out.rgbWidth) * out.rgbHeight * 3);
    const float cap = static_cast<float>(exposureLimitForFps(s.singleIntegral ? kFastModeFps : s.frameRate).rgbMaxUs);
    if (!s.rgbAutoExposure || rgbAe < 0.0f) rgbAe = static_cast<float>(s.rgbExposureUs);
    rgbAe = std::clamp(rgbAe, 1.0f, cap);
    RgbExposure e;
    e.exposureUs = s.rgbAutoExposure ? rgbAe : std::clamp(static_cast<float>(s.rgbExposureUs), 0.0f, cap);
    e.gain = s.rgbGain;
    e.contrast = s.rgbContrast;
    lastRgbExposure = static_cast<int>(std::lround(e.exposureUs));
    const float level = rgb->render(frameNo, e, seed, out.rgb.data());
    if (s.rgbAutoExposure) {
        // Display levels are gamma encoded: light scales with level^2.2. Half
        // of that step per frame converges without oscillating.
        const float step = level < 1.0f ? 2.0f : std::clamp(std::pow(kRgbAeTargetLevel / level, 1.1f), 0.5f, 2.0f);
        // A dead band, as real auto exposure has, keeps a settled exposure
        // still instead of hunting by fractions of a percent.
        if (std::fabs(step - 1.0f) > kAeDeadBand) rgbAe = std::clamp(rgbAe * step, 1.0f, cap);
    }
}

}  // namespace d3sim
