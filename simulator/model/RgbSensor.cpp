#include "RgbSensor.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Noise.h"

namespace d3sim {

namespace {
constexpr int kToneSize = 4096;
// Light level per microsecond of exposure for a white surface in full light,
// chosen so the default 625 us exposure at zero gain renders mid tones.
constexpr float kSensitivity = 1.5f / 1000.0f;
constexpr float kAmbientLight = 0.35f;
// Unit vector towards the light: above, in front and to the left, so box
// fronts are lit and their right-hand sides stay in shade.
constexpr Vec3 kLight{-0.4000f / 1.0012f, -0.8000f / 1.0012f, -0.4500f / 1.0012f};

struct Rgb {
    float r, g, b;
};

// Floor that is safe for the coordinates of this scene and cheaper than std::floor.
inline int ifloor(float x) { return static_cast<int>(x + 100000.0f) - 100000; }

Rgb albedo(Surface s, const Vec3& p, const Vec3& n) {
    switch (s) {
        case Surface::Floor: {
            // 500 mm tiles.
            const bool dark = (ifloor(p.x / 500.0f) + ifloor(p.z / 500.0f)) & 1;
            return dark ? Rgb{0.30f, 0.30f, 0.33f} : Rgb{0.55f, 0.55f, 0.52f};
        }
        case Surface::Wall: {
            // Bricks 500 x 125 mm with mortar joints, every other course offset.
            const int course = ifloor(p.y / 125.0f);
            const float inCourse = p.y - course * 125.0f;
            const float x = p.x + ((course & 1) ? 250.0f : 0.0f);
            const float inBrick = x - ifloor(x / 500.0f) * 500.0f;
            if (inCourse < 12.0f || inBrick < 12.0f) return {0.75f, 0.74f, 0.70f};
            return {0.62f, 0.36f, 0.28f};
        }
        case Surface::Pallet: {
            // Slats 130 mm wide with 30 mm dark gaps along x.
            const float x = p.x - scene::kPallet.min.x;
            const bool gap = x - ifloor(x / 160.0f) * 160.0f >= 130.0f;
            return gap ? Rgb{0.15f, 0.11f, 0.07f} : Rgb{0.58f, 0.42f, 0.24f};
        }
        case Surface::Box: {
            if (n.z < 0.0f) {
                // Front face: a white label and a dark tape band.
                if (p.x > -600.0f && p.x < -400.0f && p.y > 250.0f && p.y < 400.0f) return {0.90f, 0.90f, 0.88f};
                if (p.y < 190.0f) return {0.12f, 0.12f, 0.12f};
            }
            return {0.64f, 0.47f, 0.29f};
        }
        case Surface::Pillar:
            return {0.30f, 0.40f, 0.62f};
        case Surface::Sphere: {
            const bool red = ifloor((p.y - scene::kSphereY) / 100.0f) & 1;
            return red ? Rgb{0.80f, 0.10f, 0.10f} : Rgb{0.85f, 0.85f, 0.85f};
        }
        case Surface::None:
            break;
    }
    return {0.0f, 0.0f, 0.0f};
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
    noise_.resize(1u << 16);
    Rng rng(0x5eed);
    const float* normals = normalTable();
    for (int8_t& n : noise_) n = static_cast<int8_t>(std::lround(1.5f * normalAt(normals, rng.next(), 0)));
    rowT_.resize(w_);
    rowSurface_.resize(w_);
    rowNormal_.resize(w_);
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
    tone_.resize(kToneSize);
    const float c = std::clamp(contrast, 100, 500) / 100.0f;
    for (int i = 0; i < kToneSize; ++i) {
        const float lin = static_cast<float>(i) / (kToneSize - 1);
        const float display = std::pow(lin, 1.0f / 2.2f);
        const float stretched = 0.5f + (display - 0.5f) * c;
        tone_[i] = static_cast<uint8_t>(std::lround(255.0f * std::clamp(stretched, 0.0f, 1.0f)));
    }
}

void RgbSensor::traceRow(int v, const Scene& scene, const PixelRect& sphere) {
    const float dy = dy_[v];
    // Background: the back wall, or the floor where it comes first; constant
    // along a row because every ray in it has the same dy and dz.
    float tBg = scene::kWallZ - centre_.z;
    Surface bg = Surface::Wall;
    Vec3 nBg{0.0f, 0.0f, -1.0f};
    if (dy > 0.0f && (scene::kFloorY - centre_.y) / dy < tBg) {
        tBg = (scene::kFloorY - centre_.y) / dy;
        bg = Surface::Floor;
        nBg = {0.0f, -1.0f, 0.0f};
    }
    std::fill(rowT_.begin(), rowT_.end(), tBg);
    std::fill(rowSurface_.begin(), rowSurface_.end(), bg);
    std::fill(rowNormal_.begin(), rowNormal_.end(), nBg);
    struct Item {
        const Box3& box;
        const PixelRect& rect;
        Surface s;
    };
    const Item items[] = {{scene::kPallet, palletRect_, Surface::Pallet},
                          {scene::kBox, boxRect_, Surface::Box},
                          {scene::kPillar, pillarRect_, Surface::Pillar}};
    for (const Item& it : items) {
        if (v < it.rect.v0 || v >= it.rect.v1) continue;
        for (int u = it.rect.u0; u < it.rect.u1; ++u) {
            float t;
            Vec3 n;
            if (intersectBox(it.box, centre_, {dx_[u], dy, 1.0f}, t, n) && t < rowT_[u])
                rowT_[u] = t, rowSurface_[u] = it.s, rowNormal_[u] = n;
        }
    }
    if (v >= sphere.v0 && v < sphere.v1)
        for (int u = sphere.u0; u < sphere.u1; ++u) {
            Hit h;
            if (scene.intersectSphere(centre_, {dx_[u], dy, 1.0f}, h) && h.t < rowT_[u])
                rowT_[u] = h.t, rowSurface_[u] = Surface::Sphere, rowNormal_[u] = h.normal;
        }
}

float RgbSensor::render(uint64_t frameNo, const RgbExposure& e, uint64_t noiseSeed, uint8_t* rgb) {
    buildToneCurve(e.contrast);
    const Scene scene(frameNo, true);
    const PixelRect sphere = projectSphere(scene.sphereCenter());
    const float scale = std::max(0.0f, e.exposureUs) * kSensitivity * gainFactor(e.gain) * (kToneSize - 1);
    Rng rng = frameRng(noiseSeed, frameNo, 2);
    double sum = 0.0;
    int samples = 0;
    for (int v = 0; v < h_; ++v) {
        traceRow(v, scene, sphere);
        const float dy = dy_[v];
        const uint32_t noiseBase = static_cast<uint32_t>(rng.next());
        uint8_t* out = rgb + static_cast<size_t>(v) * w_ * 3;
        for (int u = 0; u < w_; ++u) {
            const float t = rowT_[u];
            const Vec3 p{centre_.x + t * dx_[u], centre_.y + t * dy, centre_.z + t};
            const Vec3& n = rowNormal_[u];
            const Rgb a = albedo(rowSurface_[u], p, n);
            const float lit = n.x * kLight.x + n.y * kLight.y + n.z * kLight.z;
            const float s = scale * (kAmbientLight + (1.0f - kAmbientLight) * std::max(0.0f, lit));
            const int noise = noise_[(noiseBase + static_cast<uint32_t>(u)) & 0xFFFF];
            const float lv[3] = {a.r * s, a.g * s, a.b * s};
            for (int c = 0; c < 3; ++c) {
                const int idx = lv[c] < kToneSize - 1 ? static_cast<int>(lv[c]) : kToneSize - 1;
                out[3 * u + c] = static_cast<uint8_t>(std::clamp(tone_[idx] + noise, 0, 255));
            }
        }
        if ((v & 7) == 0)
            for (int u = 0; u < w_; u += 8) sum += out[3 * u + 1], ++samples;
    }
    return samples ? static_cast<float>(sum / samples) : 0.0f;
}

}  // namespace d3sim
