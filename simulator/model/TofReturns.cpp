// From scene to per-pixel returns: what each ToF pixel would see without
// noise, as one phasor per modulation frequency. Edge pixels blend the
// surfaces inside their footprint; pixels near the floor/wall corner add a
// bounced path.
#include <algorithm>
#include <cmath>
#include <complex>
#include <mutex>

#include "TofSensor.h"

namespace d3sim {

namespace {
constexpr float kTwoPi = 6.28318531f;
constexpr float kInvTwoPi = 1.0f / kTwoPi;
// A pixel whose neighbour differs by more than this fraction of its depth sees
// two surfaces at once, so it is supersampled and its phasors mixed.
constexpr float kEdgeFraction = 0.05f;
constexpr int kFootprintSamples = 4;
constexpr float kFootprintOffsets[kFootprintSamples] = {-0.75f, -0.25f, 0.25f, 0.75f};
// Light bouncing once off the floor onto the wall (and back) near their corner.
constexpr float kMultipathGain = 0.5f;
constexpr float kMultipathReachMm = 200.0f;
constexpr float kMultipathCutoffMm = 600.0f;

float wrapCycles(float c) { return c - std::floor(c); }

Vec3 rayAt(const Intrinsics& k, float u, float v) { return {(u - k.cx) / k.fx, (v - k.cy) / k.fy, 1.0f}; }

// Adds the direct return of a hit and, near the floor/wall corner, the weaker
// path that bounced off the other surface (its mirror image) first.
// `out` holds (range, amplitude per microsecond) pairs.
void addReturns(const Hit& hit, const Vec3& dir, float weight, std::vector<float>& out) {
    const float len = std::sqrt(dir.x * dir.x + dir.y * dir.y + dir.z * dir.z);
    const Vec3 p{hit.t * dir.x, hit.t * dir.y, hit.t * dir.z};
    const float range = hit.t * len;
    const float cosI = std::fabs(hit.normal.x * dir.x + hit.normal.y * dir.y + hit.normal.z * dir.z) / len;
    const float amp = weight * tof::kAmpScale * Scene::reflectivity(hit.surface) * cosI / (range * range);
    out.push_back(range);
    out.push_back(amp);
    float gap = -1.0f;
    Vec3 mirror = p;
    float otherRho = 0.0f;
    if (hit.surface == Surface::Wall) {
        gap = scene::kFloorY - p.y;
        mirror.y = scene::kFloorY + gap;
        otherRho = Scene::reflectivity(Surface::Floor);
    } else if (hit.surface == Surface::Floor) {
        gap = scene::kWallZ - p.z;
        mirror.z = scene::kWallZ + gap;
        otherRho = Scene::reflectivity(Surface::Wall);
    }
    if (gap >= 0.0f && gap < kMultipathCutoffMm) {
        const float mirrorRange = std::sqrt(mirror.x * mirror.x + mirror.y * mirror.y + mirror.z * mirror.z);
        const float a = amp * kMultipathGain * otherRho * std::exp(-gap / kMultipathReachMm);
        // The mirror image gives the specular path; diffuse scattering spreads
        // the bounce over the other surface, lengthening the mean path by
        // about the distance to the corner.
        out.push_back(0.5f * (range + mirrorRange) + gap);
        out.push_back(a);
    }
}
}  // namespace

void TofSensor::Returns::resize(int w, int h) {
    width = w;
    const size_t n = static_cast<size_t>(w) * h;
    amp1.assign(n, 0.0f);
    cyc1.assign(n, 0.0f);
    amp2.assign(n, 0.0f);
    cyc2.assign(n, 0.0f);
    z.assign(n, 0.0f);
}

std::shared_ptr<const TofSensor::StaticImage> TofSensor::staticImage(const Intrinsics& k) {
    // Kept for the life of the process: simulated cameras restart often
    // (reboots, faults) and a rebuild costs tens of milliseconds.
    static std::mutex mutex;
    static std::shared_ptr<const StaticImage> cached;
    static Intrinsics cachedK{};
    std::lock_guard<std::mutex> lock(mutex);
    if (cached && cachedK.fx == k.fx && cachedK.fy == k.fy && cachedK.cx == k.cx && cachedK.cy == k.cy) return cached;
    auto built = std::make_shared<StaticImage>();
    built->resize(kTofWidth, kTofHeight);
    built->dirZ.resize(static_cast<size_t>(kTofWidth) * kTofHeight);
    for (int v = 0; v < kTofHeight; ++v)
        for (int u = 0; u < kTofWidth; ++u) {
            const Vec3 d = rayAt(k, static_cast<float>(u), static_cast<float>(v));
            built->dirZ[static_cast<size_t>(v) * kTofWidth + u] = 1.0f / std::sqrt(d.x * d.x + d.y * d.y + 1.0f);
        }
    BuildScratch scratch;
    buildReturns(k, Scene(0, false), Rect{0, 0, kTofWidth, kTofHeight}, nullptr, *built, scratch);
    cached = built;
    cachedK = k;
    return built;
}

TofSensor::TofSensor(const Intrinsics& k) : k_(k), static_(staticImage(k)) {
    overlay_.resize(256, 256);  // larger than the sphere ever appears, so frames never allocate
}

TofSensor::Rect TofSensor::sphereRect(uint64_t frameNo) const {
    const Vec3 c = Scene::sphereCenterAt(frameNo);
    const float r = scene::kSphereRadius;
    float umin = 1e9f, umax = -1e9f, vmin = 1e9f, vmax = -1e9f;
    for (int i = 0; i < 8; ++i) {
        const float x = c.x + ((i & 1) ? r : -r), y = c.y + ((i & 2) ? r : -r), z = c.z + ((i & 4) ? r : -r);
        const float u = k_.cx + k_.fx * x / z, v = k_.cy + k_.fy * y / z;
        umin = std::min(umin, u), umax = std::max(umax, u), vmin = std::min(vmin, v), vmax = std::max(vmax, v);
    }
    // Two pixels of margin keep the blended pixels along the silhouette inside.
    Rect rect;
    rect.u0 = std::clamp(static_cast<int>(std::floor(umin)) - 2, 0, kTofWidth);
    rect.u1 = std::clamp(static_cast<int>(std::ceil(umax)) + 3, 0, kTofWidth);
    rect.v0 = std::clamp(static_cast<int>(std::floor(vmin)) - 2, 0, kTofHeight);
    rect.v1 = std::clamp(static_cast<int>(std::ceil(vmax)) + 3, 0, kTofHeight);
    return rect;
}

// With a `background` (the static image), only the sphere is traced: pixels
// whose footprint does not touch it copy the background, which is exact and
// keeps the per-frame work to the sphere's own pixels.
void TofSensor::buildReturns(const Intrinsics& k, const Scene& scene, const Rect& r, const StaticImage* background,
                             Returns& out, BuildScratch& scratch) {
    // Centre hits with a one-pixel border so edge detection sees the neighbours.
    const int bu0 = std::max(0, r.u0 - 1), bv0 = std::max(0, r.v0 - 1);
    const int bu1 = std::min(kTofWidth, r.u1 + 1), bv1 = std::min(kTofHeight, r.v1 + 1);
    const int bw = bu1 - bu0;
    const size_t n = static_cast<size_t>(bw) * (bv1 - bv0);
    std::vector<Hit>& hits = scratch.hits;
    std::vector<float>& z = scratch.z;
    std::vector<uint8_t>& onSphere = scratch.onSphere;
    if (hits.size() < n) hits.resize(n);  // only grows: frames reuse it
    z.assign(n, 0.0f);
    onSphere.assign(n, 0);
    for (int v = bv0; v < bv1; ++v)
        for (int u = bu0; u < bu1; ++u) {
            const size_t i = static_cast<size_t>(v - bv0) * bw + (u - bu0);
            const Vec3 d = rayAt(k, static_cast<float>(u), static_cast<float>(v));
            if (background) {
                z[i] = background->z[static_cast<size_t>(v) * kTofWidth + u];
                if (scene.intersectSphere({0, 0, 0}, d, hits[i]) && hits[i].t < z[i]) z[i] = hits[i].t, onSphere[i] = 1;
            } else if (scene.intersect({0, 0, 0}, d, hits[i])) {
                z[i] = hits[i].t;  // dir.z == 1, so t is Z
            }
        }
    std::vector<float>& returns = scratch.returns;
    const int du[4] = {-1, 1, 0, 0}, dv[4] = {0, 0, -1, 1};
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) {
            const size_t bi = static_cast<size_t>(v - bv0) * bw + (u - bu0);
            const size_t oi = static_cast<size_t>(v - r.v0) * out.width + (u - r.u0);
            const float zc = z[bi];
            bool edge = false, nearSphere = onSphere[bi] != 0;
            for (int n = 0; n < 4; ++n) {
                const int nu = u + du[n], nv = v + dv[n];
                if (nu < bu0 || nu >= bu1 || nv < bv0 || nv >= bv1) continue;
                const size_t ni = static_cast<size_t>(nv - bv0) * bw + (nu - bu0);
                edge = edge || std::fabs(z[ni] - zc) > kEdgeFraction * std::min(z[ni], zc);
                nearSphere = nearSphere || onSphere[ni];
            }
            out.z[oi] = zc;
            if (background && !nearSphere) {
                const size_t si = static_cast<size_t>(v) * kTofWidth + u;
                out.amp1[oi] = background->amp1[si], out.cyc1[oi] = background->cyc1[si];
                out.amp2[oi] = background->amp2[si], out.cyc2[oi] = background->cyc2[si];
                continue;
            }
            returns.clear();
            if (edge) {
                // A 4x4 grid of rays over the pixel's footprint, which the lens
                // blur widens to two pixels: both pixels next to an edge blend.
                for (int s = 0; s < kFootprintSamples * kFootprintSamples; ++s) {
                    const Vec3 d = rayAt(k, u + kFootprintOffsets[s % kFootprintSamples],
                                         v + kFootprintOffsets[s / kFootprintSamples]);
                    Hit h;
                    if (scene.intersect({0, 0, 0}, d, h))
                        addReturns(h, d, 1.0f / (kFootprintSamples * kFootprintSamples), returns);
                }
            } else if (zc > 0.0f) {
                const Vec3 d = rayAt(k, static_cast<float>(u), static_cast<float>(v));
                // Beside the sphere the centre hit was only tested against the
                // sphere; trace the whole scene for the surface actually seen.
                Hit h = hits[bi];
                if (!background || onSphere[bi] || scene.intersect({0, 0, 0}, d, h)) addReturns(h, d, 1.0f, returns);
            }
            if (returns.size() == 2) {
                out.amp1[oi] = out.amp2[oi] = returns[1];
                out.cyc1[oi] = wrapCycles(returns[0] / tof::kRange1Mm);
                out.cyc2[oi] = wrapCycles(returns[0] / tof::kRange2Mm);
                continue;
            }
            std::complex<float> p1, p2;
            for (size_t j = 0; j < returns.size(); j += 2) {
                p1 += std::polar(returns[j + 1], kTwoPi * returns[j] / tof::kRange1Mm);
                p2 += std::polar(returns[j + 1], kTwoPi * returns[j] / tof::kRange2Mm);
            }
            out.amp1[oi] = std::abs(p1);
            out.amp2[oi] = std::abs(p2);
            out.cyc1[oi] = wrapCycles(std::arg(p1) * kInvTwoPi);
            out.cyc2[oi] = wrapCycles(std::arg(p2) * kInvTwoPi);
        }
}

void TofSensor::prepareFrame(uint64_t frameNo) {
    if (frameNo == preparedFrame_) return;
    overlayRect_ = sphereRect(frameNo);
    const int w = overlayRect_.u1 - overlayRect_.u0, h = overlayRect_.v1 - overlayRect_.v0;
    if (static_cast<size_t>(w) * h > overlay_.amp1.size()) overlay_.resize(w, h);
    overlay_.width = w;
    buildReturns(k_, Scene(frameNo, true), overlayRect_, static_.get(), overlay_, scratch_);
    preparedFrame_ = frameNo;
}

void TofSensor::renderGroundTruth(uint64_t frameNo, std::vector<float>& zMm) const {
    zMm = static_->z;
    const Rect r = sphereRect(frameNo);
    const Scene scene(frameNo, true);
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) {
            Hit h;
            float& z = zMm[static_cast<size_t>(v) * kTofWidth + u];
            const Vec3 d = rayAt(k_, static_cast<float>(u), static_cast<float>(v));
            if (scene.intersectSphere({0, 0, 0}, d, h) && h.t < z) z = h.t;
        }
}

}  // namespace d3sim
