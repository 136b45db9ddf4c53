#include "RgbSensor.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include "Noise.h"

namespace d3sim {

namespace {
constexpr int kToneSize = 4096;
constexpr float kLevelOne = 16384.0f;  // fixed-point light level of a white, fully lit surface (RgbShading)
// Light collected per microsecond of exposure, chosen so the default 625 us
// at zero gain renders mid tones.
constexpr float kSensitivity = 1.5f / 1000.0f;
constexpr int kNoiseTable = 1 << 16;

inline void addNoise(const uint8_t* __restrict src, const int8_t* __restrict noise, uint8_t* __restrict dst, int n) {
#pragma omp simd
    for (int i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(std::clamp(src[i] + noise[i], 0, 255));
}
}  // namespace

float RgbSensor::gainFactor(int gain) { return std::exp2(std::clamp(gain, 0, 1023) / 256.0f); }

RgbSensor::RgbSensor(int width, int height, const Intrinsics& k, const Vec3& centre)
    : w_(width), h_(height), k_(k), centre_(centre) {
    dx_.resize(w_);
    dy_.resize(h_);
    for (int u = 0; u < w_; ++u) dx_[u] = (u - k_.cx) / k_.fx;
    for (int v = 0; v < h_; ++v) dy_[v] = (v - k_.cy) / k_.fy;
    palletRect_ = project(scene::kPallet);
    boxRect_ = project(scene::kBox);
    pillarRect_ = project(scene::kPillar);
    noise_.resize(kNoiseTable + 3 * w_);
    Rng rng(0x5eed);
    const float* normals = normalTable();
    for (int8_t& n : noise_) n = static_cast<int8_t>(std::lround(1.5f * normalAt(normals, rng.next(), 0)));
    rowT_.resize(w_);
    rowSurface_.resize(w_);
    rowNormal_.resize(w_);
    rowLevel_.resize(3 * static_cast<size_t>(w_));
    toned_.resize(3 * static_cast<size_t>(w_) * h_);
    static_ = staticLight(*this);
}

// Built with g's row buffers, hence the non-const sensor.
std::shared_ptr<const RgbSensor::StaticLight> RgbSensor::staticLight(RgbSensor& g) {
    struct Entry {
        int w, h;
        float fx, fy, cx, cy, x, y, z;
        std::shared_ptr<const StaticLight> image;
    };
    // One entry per camera geometry, kept for the life of the process so that
    // restarting a simulated camera does not trace its scene again.
    static std::mutex mutex;
    static std::vector<Entry> cache;
    std::lock_guard<std::mutex> lock(mutex);
    for (const Entry& e : cache) {
        const bool same = e.w == g.w_ && e.h == g.h_ && e.fx == g.k_.fx && e.fy == g.k_.fy && e.cx == g.k_.cx &&
                          e.cy == g.k_.cy && e.x == g.centre_.x && e.y == g.centre_.y && e.z == g.centre_.z;
        if (same) return e.image;
    }
    auto built = std::make_shared<StaticLight>();
    built->level.resize(3 * static_cast<size_t>(g.w_) * g.h_);
    const Scene still(0, false);
    for (int v = 0; v < g.h_; ++v)
        g.shadeRow(v, 0, g.w_, still, PixelRect{0, 0, 0, 0}, &built->level[3 * static_cast<size_t>(v) * g.w_]);
    cache.push_back({g.w_, g.h_, g.k_.fx, g.k_.fy, g.k_.cx, g.k_.cy, g.centre_.x, g.centre_.y, g.centre_.z, built});
    return built;
}

RgbSensor::PixelRect RgbSensor::project(const Box3& b) const {
    float umin = 1e9f, umax = -1e9f, vmin = 1e9f, vmax = -1e9f;
    for (int i = 0; i < 8; ++i) {
        const float x = ((i & 1) ? b.max.x : b.min.x) - centre_.x;
        const float y = ((i & 2) ? b.max.y : b.min.y) - centre_.y;
        const float z = ((i & 4) ? b.max.z : b.min.z) - centre_.z;
        const float u = k_.cx + k_.fx * x / z, v = k_.cy + k_.fy * y / z;
        umin = std::min(umin, u), umax = std::max(umax, u), vmin = std::min(vmin, v), vmax = std::max(vmax, v);
    }
    return {std::clamp(static_cast<int>(std::floor(umin)) - 1, 0, w_),
            std::clamp(static_cast<int>(std::floor(vmin)) - 1, 0, h_),
            std::clamp(static_cast<int>(std::ceil(umax)) + 2, 0, w_),
            std::clamp(static_cast<int>(std::ceil(vmax)) + 2, 0, h_)};
}

RgbSensor::PixelRect RgbSensor::projectSphere(const Vec3& c) const {
    const float r = scene::kSphereRadius;
    return project(Box3{{c.x - r, c.y - r, c.z - r}, {c.x + r, c.y + r, c.z + r}});
}

void RgbSensor::buildToneCurve(int contrast) {
    if (contrast == toneContrast_) return;
    toneContrast_ = contrast;
    tonedLevelToIndex_ = -1.0f;
    tone_.resize(kToneSize);
    const float c = std::clamp(contrast, 100, 500) / 100.0f;
    for (int i = 0; i < kToneSize; ++i) {
        const float lin = static_cast<float>(i) / (kToneSize - 1);
        const float display = std::pow(lin, 1.0f / 2.2f);
        const float stretched = 0.5f + (display - 0.5f) * c;
        tone_[i] = static_cast<uint8_t>(std::lround(255.0f * std::clamp(stretched, 0.0f, 1.0f)));
    }
}

void RgbSensor::toneStaticImage(float levelToIndex) {
    tonedLevelToIndex_ = levelToIndex;
    const uint16_t* level = static_->level.data();
    for (size_t i = 0; i < toned_.size(); ++i)
        toned_[i] = tone_[std::min(kToneSize - 1, static_cast<int>(level[i] * levelToIndex))];
}

float RgbSensor::render(uint64_t frameNo, const RgbExposure& e, uint64_t noiseSeed, uint8_t* rgb) {
    buildToneCurve(e.contrast);
    const float levelToIndex =
        std::max(0.0f, e.exposureUs) * kSensitivity * gainFactor(e.gain) * (kToneSize - 1) / kLevelOne;
    if (levelToIndex != tonedLevelToIndex_) toneStaticImage(levelToIndex);
    const Scene scene(frameNo, true);
    const PixelRect sphere = projectSphere(scene.sphereCenter());
    Rng rng = frameRng(noiseSeed, frameNo, 2);
    const size_t rowBytes = 3 * static_cast<size_t>(w_);
    double sum = 0.0;
    int samples = 0;
    for (int v = 0; v < h_; ++v) {
        const int8_t* noise = &noise_[rng.next() % kNoiseTable];
        uint8_t* out = rgb + v * rowBytes;
        addNoise(&toned_[v * rowBytes], noise, out, static_cast<int>(rowBytes));
        if (v >= sphere.v0 && v < sphere.v1 && sphere.u1 > sphere.u0) {
            // Only the sphere moves: its rectangle is traced afresh.
            shadeRow(v, sphere.u0, sphere.u1, scene, sphere, rowLevel_.data());
            for (int i = 3 * sphere.u0; i < 3 * sphere.u1; ++i) {
                const int idx = std::min(kToneSize - 1, static_cast<int>(rowLevel_[i] * levelToIndex));
                out[i] = static_cast<uint8_t>(std::clamp(tone_[idx] + noise[i], 0, 255));
            }
        }
        if ((v & 7) == 0)
            for (int u = 0; u < w_; u += 8) sum += out[3 * u + 1], ++samples;
    }
    return samples ? static_cast<float>(sum / samples) : 0.0f;
}

}  // namespace d3sim
