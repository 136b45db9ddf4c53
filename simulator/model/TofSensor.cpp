#include "TofSensor.h"

#include <algorithm>
#include <cmath>
#include <complex>

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
constexpr float kMultipathGain = 0.3f;
constexpr float kMultipathReachMm = 200.0f;
constexpr float kMultipathCutoffMm = 600.0f;

struct Return {
    float range;
    float amp;  // per microsecond of exposure
};

float wrapCycles(float c) { return c - std::floor(c); }

// Adds the direct return of a hit and, near the floor/wall corner, the weaker
// path that bounced off the other surface (its mirror image) first.
void addReturns(const Hit& hit, const Vec3& dir, float weight, std::vector<Return>& out) {
    const float len = std::sqrt(dir.x * dir.x + dir.y * dir.y + dir.z * dir.z);
    const Vec3 p{hit.t * dir.x, hit.t * dir.y, hit.t * dir.z};
    const float range = hit.t * len;
    const float cosI = std::fabs(hit.normal.x * dir.x + hit.normal.y * dir.y + hit.normal.z * dir.z) / len;
    const float amp = weight * tof::kAmpScale * Scene::reflectivity(hit.surface) * cosI / (range * range);
    out.push_back({range, amp});
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
        out.push_back({0.5f * (range + mirrorRange), a});
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

TofSensor::TofSensor(const Intrinsics& k) : k_(k) {
    dirZ_.resize(static_cast<size_t>(kTofWidth) * kTofHeight);
    for (int v = 0; v < kTofHeight; ++v)
        for (int u = 0; u < kTofWidth; ++u) {
            const Vec3 d = rayAt(static_cast<float>(u), static_cast<float>(v));
            dirZ_[static_cast<size_t>(v) * kTofWidth + u] = 1.0f / std::sqrt(d.x * d.x + d.y * d.y + 1.0f);
        }
    static_.resize(kTofWidth, kTofHeight);
    overlay_.resize(256, 256);  // larger than the sphere ever appears, so frames never allocate
    buildReturns(Scene(0, false), Rect{0, 0, kTofWidth, kTofHeight}, static_);
}

Vec3 TofSensor::rayAt(float u, float v) const { return {(u - k_.cx) / k_.fx, (v - k_.cy) / k_.fy, 1.0f}; }

TofSensor::Rect TofSensor::sphereRect(uint64_t frameNo) const {
    const Vec3 c = Scene::sphereCenterAt(frameNo);
    const float r = scene::kSphereRadius;
    float umin = 1e9f, umax = -1e9f, vmin = 1e9f, vmax = -1e9f;
    for (int i = 0; i < 8; ++i) {
        const float x = c.x + ((i & 1) ? r : -r), y = c.y + ((i & 2) ? r : -r), z = c.z + ((i & 4) ? r : -r);
        const float u = k_.cx + k_.fx * x / z, v = k_.cy + k_.fy * y / z;
        umin = std::min(umin, u), umax = std::max(umax, u), vmin = std::min(vmin, v), vmax = std::max(vmax, v);
    }
    // Two pixels of margin keep the mixed pixels along the silhouette inside.
    Rect rect;
    rect.u0 = std::clamp(static_cast<int>(std::floor(umin)) - 2, 0, kTofWidth);
    rect.u1 = std::clamp(static_cast<int>(std::ceil(umax)) + 3, 0, kTofWidth);
    rect.v0 = std::clamp(static_cast<int>(std::floor(vmin)) - 2, 0, kTofHeight);
    rect.v1 = std::clamp(static_cast<int>(std::ceil(vmax)) + 3, 0, kTofHeight);
    return rect;
}

void TofSensor::buildReturns(const Scene& scene, const Rect& r, Returns& out) const {
    // Centre hits with a one-pixel border so edge detection sees the neighbours.
    const int bu0 = std::max(0, r.u0 - 1), bv0 = std::max(0, r.v0 - 1);
    const int bu1 = std::min(kTofWidth, r.u1 + 1), bv1 = std::min(kTofHeight, r.v1 + 1);
    const int bw = bu1 - bu0;
    std::vector<Hit> hits(static_cast<size_t>(bw) * (bv1 - bv0));
    std::vector<float> z(hits.size(), 0.0f);
    for (int v = bv0; v < bv1; ++v)
        for (int u = bu0; u < bu1; ++u) {
            const size_t i = static_cast<size_t>(v - bv0) * bw + (u - bu0);
            const Vec3 d = rayAt(static_cast<float>(u), static_cast<float>(v));
            if (scene.intersect({0, 0, 0}, d, hits[i])) z[i] = hits[i].t;  // dir.z == 1, so t is Z
        }
    std::vector<Return> returns;
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) {
            const size_t bi = static_cast<size_t>(v - bv0) * bw + (u - bu0);
            const float zc = z[bi];
            bool edge = false;
            const int du[4] = {-1, 1, 0, 0}, dv[4] = {0, 0, -1, 1};
            for (int n = 0; n < 4 && !edge; ++n) {
                const int nu = u + du[n], nv = v + dv[n];
                if (nu < bu0 || nu >= bu1 || nv < bv0 || nv >= bv1) continue;
                const float zn = z[static_cast<size_t>(nv - bv0) * bw + (nu - bu0)];
                edge = std::fabs(zn - zc) > kEdgeFraction * std::min(zn, zc);
            }
            returns.clear();
            if (edge) {
                // A 4x4 grid of rays over the pixel's footprint, which the lens
                // blur widens to two pixels: both pixels next to an edge mix.
                for (int s = 0; s < kFootprintSamples * kFootprintSamples; ++s) {
                    const float su = kFootprintOffsets[s % kFootprintSamples];
                    const float sv = kFootprintOffsets[s / kFootprintSamples];
                    const Vec3 d = rayAt(u + su, v + sv);
                    Hit h;
                    if (scene.intersect({0, 0, 0}, d, h))
                        addReturns(h, d, 1.0f / (kFootprintSamples * kFootprintSamples), returns);
                }
            } else if (hits[bi].surface != Surface::None) {
                addReturns(hits[bi], rayAt(static_cast<float>(u), static_cast<float>(v)), 1.0f, returns);
            }
            const size_t oi = static_cast<size_t>(v - r.v0) * out.width + (u - r.u0);
            out.z[oi] = zc;
            if (returns.size() == 1) {
                out.amp1[oi] = out.amp2[oi] = returns[0].amp;
                out.cyc1[oi] = wrapCycles(returns[0].range / tof::kRange1Mm);
                out.cyc2[oi] = wrapCycles(returns[0].range / tof::kRange2Mm);
                continue;
            }
            std::complex<float> p1, p2;
            for (const Return& ret : returns) {
                p1 += std::polar(ret.amp, kTwoPi * ret.range / tof::kRange1Mm);
                p2 += std::polar(ret.amp, kTwoPi * ret.range / tof::kRange2Mm);
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
    buildReturns(Scene(frameNo, true), overlayRect_, overlay_);
    preparedFrame_ = frameNo;
}

void TofSensor::renderGroundTruth(uint64_t frameNo, std::vector<float>& zMm) const {
    zMm = static_.z;
    const Rect r = sphereRect(frameNo);
    const Scene scene(frameNo, true);
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) {
            Hit h;
            float& z = zMm[static_cast<size_t>(v) * kTofWidth + u];
            if (scene.intersectSphere({0, 0, 0}, rayAt(static_cast<float>(u), static_cast<float>(v)), h) && h.t < z)
                z = h.t;
        }
}

namespace {
struct PixelIn {
    float a1, c1, a2, c2, dirZ;
};

// Four raw samples S_k = B + A(1 + cos(phi + k*pi/2))/2 give I = S0 - S2 and
// Q = S3 - S1; their noise is drawn directly on I and Q with the summed
// variance. Rotating the frame so the true phasor lies on the I axis means the
// phase error is atan2(nQ, A + nI): no sin/cos per pixel.
inline void measureOne(const PixelIn& p, const TofMeasureMode& m, uint64_t bits, const float* normals, uint16_t& depth,
                       uint16_t& amplitude, uint8_t& saturated) {
    const float T = m.exposureUs;
    const float A1 = p.a1 * T, A2 = p.a2 * T;
    const float Amax = std::max(A1, A2);
    const float B = tof::kAmbientFraction * Amax + tof::kDarkPerUs * T;
    if (B + Amax > tof::kFullWell) {
        depth = 0;
        amplitude = static_cast<uint16_t>(tof::kFullWell);
        saturated = 1;
        return;
    }
    saturated = 0;
    const float read2 = 2.0f * tof::kReadNoise * tof::kReadNoise;
    const float s1 = m.noiseScale * std::sqrt(tof::kShotGain * (2.0f * B + A1) + read2);
    const float i1 = A1 + s1 * normalAt(normals, bits, 0), q1 = s1 * normalAt(normals, bits, 1);
    const float m1 = std::sqrt(i1 * i1 + q1 * q1);
    float ph1 = p.c1 + fastAtan2(q1, i1) * kInvTwoPi;
    ph1 += (ph1 < 0.0f) - (ph1 >= 1.0f);
    float range, amp;
    if (!m.dualFrequency) {
        range = ph1 * tof::kRange1Mm;
        amp = m1;
    } else {
        const float s2 = m.noiseScale * std::sqrt(tof::kShotGain * (2.0f * B + A2) + read2);
        const float i2 = A2 + s2 * normalAt(normals, bits, 2), q2 = s2 * normalAt(normals, bits, 3);
        const float m2 = std::sqrt(i2 * i2 + q2 * q2);
        float ph2 = p.c2 + fastAtan2(q2, i2) * kInvTwoPi;
        ph2 += (ph2 < 0.0f) - (ph2 >= 1.0f);
        // The phase difference wraps only at the beat range: a coarse range
        // that picks each frequency's wrap count. Noise can pick the wrong one,
        // as on a real camera at low signal.
        float beat = ph1 - ph2;
        beat += (beat < 0.0f);
        const float coarse = beat * tof::kRangeBeatMm;
        const float k1 = static_cast<float>(static_cast<int>(coarse / tof::kRange1Mm - ph1 + 1.5f) - 1);
        const float k2 = static_cast<float>(static_cast<int>(coarse / tof::kRange2Mm - ph2 + 1.5f) - 1);
        range = 0.5f * ((ph1 + k1) * tof::kRange1Mm + (ph2 + k2) * tof::kRange2Mm);
        amp = 0.5f * (m1 + m2);
    }
    const float z = range * p.dirZ;
    depth = z > 0.0f && z < 65535.0f ? static_cast<uint16_t>(z + 0.5f) : 0;
    amplitude = amp < 65535.0f ? static_cast<uint16_t>(amp + 0.5f) : 65535;
}
}  // namespace

void TofSensor::measure(const TofMeasureMode& mode, Rng& rng, uint16_t* depth, uint16_t* amplitude,
                        uint8_t* saturated) const {
    const float* normals = normalTable();
    const Rect& r = overlayRect_;
    for (int v = 0; v < kTofHeight; ++v) {
        const size_t row = static_cast<size_t>(v) * kTofWidth;
        // A row is up to three spans: static, sphere overlay, static.
        const bool hasOverlay = v >= r.v0 && v < r.v1 && r.u1 > r.u0;
        const int cuts[4] = {0, hasOverlay ? r.u0 : kTofWidth, hasOverlay ? r.u1 : kTofWidth, kTofWidth};
        for (int span = 0; span < 3; ++span) {
            const Returns& src = span == 1 ? overlay_ : static_;
            for (int u = cuts[span]; u < cuts[span + 1]; ++u) {
                const size_t si = span == 1 ? static_cast<size_t>(v - r.v0) * src.width + (u - r.u0) : row + u;
                const size_t i = row + u;
                const PixelIn p{src.amp1[si], src.cyc1[si], src.amp2[si], src.cyc2[si], dirZ_[i]};
                measureOne(p, mode, rng.next(), normals, depth[i], amplitude[i], saturated[i]);
            }
        }
    }
}

void TofSensor::measurePixels(const TofMeasureMode& mode, Rng& rng, const std::vector<int>& pixels, uint16_t* depth,
                              uint16_t* amplitude, uint8_t* saturated) const {
    const float* normals = normalTable();
    const Rect& r = overlayRect_;
    for (int i : pixels) {
        const int u = i % kTofWidth, v = i / kTofWidth;
        const bool inOverlay = r.contains(u, v);
        const Returns& src = inOverlay ? overlay_ : static_;
        const size_t si = inOverlay ? static_cast<size_t>(v - r.v0) * src.width + (u - r.u0) : static_cast<size_t>(i);
        const PixelIn p{src.amp1[si], src.cyc1[si], src.amp2[si], src.cyc2[si], dirZ_[i]};
        measureOne(p, mode, rng.next(), normals, depth[i], amplitude[i], saturated[i]);
    }
}

}  // namespace d3sim
