// The per-pixel measurement, the hot loop of the simulator. It works a row at
// a time on plain float arrays with no table look-ups or branches inside, so
// the compiler can vectorise it; the noise draws are gathered beforehand.
#include <algorithm>
#include <cmath>

#include "TofSensor.h"

namespace d3sim {

namespace {
constexpr int kW = kTofWidth;
constexpr float kInvTwoPi = 0.159154943f;

// Inputs of one row: the returns are read in place from the static image
// where possible, so only rows crossing the sphere are copied.
struct RowIn {
    const float *a1, *c1, *a2, *c2, *dirZ;
    alignas(32) float n0[kW], n1[kW], n2[kW], n3[kW];
};

// Storage for rows assembled from several sources.
struct RowBuffer {
    alignas(32) float a1[kW], c1[kW], a2[kW], c2[kW], dirZ[kW];
    void pointAt(RowIn& in) const { in.a1 = a1, in.c1 = c1, in.a2 = a2, in.c2 = c2, in.dirZ = dirZ; }
};

struct RowOut {
    alignas(32) float depth[kW], amp[kW], sat[kW];
};

// atan2 to ~1e-5 rad. The sign of y is random noise, so it is applied with
// copysign rather than a branch the CPU would mispredict half the time.
inline float atan2Branchless(float y, float x) {
    const float ax = std::fabs(x), ay = std::fabs(y);
    const float mx = std::max(ax, ay), mn = std::min(ax, ay);
    const float a = mn / std::max(mx, 1e-20f);
    const float s = a * a;
    float r = a * (0.99997726f +
                   s * (-0.33262347f + s * (0.19354346f + s * (-0.11643287f + s * (0.05265332f - 0.01172120f * s)))));
    r = ay > ax ? 1.57079637f - r : r;
    r = x < 0.0f ? 3.14159274f - r : r;
    return std::copysign(r, y);
}

inline float wrapUnit(float c) {
    c = c < 0.0f ? c + 1.0f : c;
    return c >= 1.0f ? c - 1.0f : c;
}

// Four raw samples S_k = B + A(1 + cos(phi + k*pi/2))/2 give I = S0 - S2 and
// Q = S3 - S1, each with the summed variance of its two samples. Turning the
// frame so the true phasor lies on the I axis makes the phase error
// atan2(nQ, A + nI): the true phase is added back, with no sin/cos per pixel.
template <bool Dual>
void measureRow(const RowIn& in, const TofMeasureMode& m, RowOut& out) {
    const float T = m.exposureUs, ns = m.noiseScale;
    const float read2 = 2.0f * tof::kReadNoise * tof::kReadNoise;
    const float dark = tof::kDarkPerUs * T;
#pragma omp simd
    for (int i = 0; i < kW; ++i) {
        const float A1 = in.a1[i] * T, A2 = in.a2[i] * T;
        const float Amax = std::max(A1, A2);
        const float B = tof::kAmbientFraction * Amax + dark;
        const float s1 = ns * std::sqrt(tof::kShotGain * (2.0f * B + A1) + read2);
        const float i1 = A1 + s1 * in.n0[i], q1 = s1 * in.n1[i];
        const float m1 = std::sqrt(i1 * i1 + q1 * q1);
        const float ph1 = wrapUnit(in.c1[i] + atan2Branchless(q1, i1) * kInvTwoPi);
        float range, amp;
        if (Dual) {
            const float s2 = ns * std::sqrt(tof::kShotGain * (2.0f * B + A2) + read2);
            const float i2 = A2 + s2 * in.n2[i], q2 = s2 * in.n3[i];
            const float m2 = std::sqrt(i2 * i2 + q2 * q2);
            const float ph2 = wrapUnit(in.c2[i] + atan2Branchless(q2, i2) * kInvTwoPi);
            // The phase difference wraps only at the beat range: a coarse range
            // that picks each frequency's wrap count. Noise can pick the wrong
            // one, as on a real camera at low signal.
            float beat = ph1 - ph2;
            beat = beat < 0.0f ? beat + 1.0f : beat;
            const float coarse = beat * tof::kRangeBeatMm;
            const float k1 = static_cast<float>(static_cast<int>(coarse * (1.0f / tof::kRange1Mm) - ph1 + 1.5f) - 1);
            const float k2 = static_cast<float>(static_cast<int>(coarse * (1.0f / tof::kRange2Mm) - ph2 + 1.5f) - 1);
            range = 0.5f * ((ph1 + k1) * tof::kRange1Mm + (ph2 + k2) * tof::kRange2Mm);
            // Rounding near either end of the beat cycle can pick one wrap too
            // few or too many; the pair of phases only knows range modulo it.
            range = range < 0.0f ? range + tof::kRangeBeatMm : range;
            range = range >= tof::kRangeBeatMm ? range - tof::kRangeBeatMm : range;
            amp = 0.5f * (m1 + m2);
        } else {
            range = ph1 * tof::kRange1Mm;
            amp = m1;
        }
        // Masks by multiplication: a select around the dirZ load would stop
        // the compiler from vectorising (it cannot prove the load safe).
        const float sat = B + Amax > tof::kFullWell ? 1.0f : 0.0f;
        out.depth[i] = range * in.dirZ[i] * (1.0f - sat);
        out.amp[i] = amp + (tof::kFullWell - amp) * sat;
        out.sat[i] = sat;
    }
}

void measureRow(const RowIn& in, const TofMeasureMode& m, RowOut& out) {
    if (m.dualFrequency)
        measureRow<true>(in, m, out);
    else
        measureRow<false>(in, m, out);
}

// Table look-ups do not vectorise, so the draws are made here, beforehand;
// the single-frequency mode needs only the first pair.
inline void drawNormals(RowIn& in, int count, bool dual, Rng& rng) {
    const float* table = normalTable();
    for (int i = 0; i < count; ++i) {
        const uint64_t bits = rng.next();
        in.n0[i] = normalAt(table, bits, 0);
        in.n1[i] = normalAt(table, bits, 1);
        if (dual) {
            in.n2[i] = normalAt(table, bits, 2);
            in.n3[i] = normalAt(table, bits, 3);
        }
    }
}

inline void store(const RowOut& out, int i, size_t dst, uint16_t* depth, uint16_t* amplitude, uint8_t* saturated) {
    depth[dst] = static_cast<uint16_t>(static_cast<int>(std::clamp(out.depth[i] + 0.5f, 0.0f, 65535.0f)));
    amplitude[dst] = static_cast<uint16_t>(static_cast<int>(std::min(out.amp[i], 65535.0f) + 0.5f));
    saturated[dst] = static_cast<uint8_t>(static_cast<int>(out.sat[i]));
}

void storeRow(const RowOut& out, uint16_t* __restrict depth, uint16_t* __restrict amplitude,
              uint8_t* __restrict saturated) {
#pragma omp simd
    for (int u = 0; u < kW; ++u) store(out, u, static_cast<size_t>(u), depth, amplitude, saturated);
}
}  // namespace

void TofSensor::measure(const TofMeasureMode& mode, Rng& rng, uint16_t* depth, uint16_t* amplitude,
                        uint8_t* saturated) const {
    RowIn in;
    RowBuffer merged;
    RowOut out;
    const Rect& r = overlayRect_;
    for (int v = 0; v < kTofHeight; ++v) {
        const size_t row = static_cast<size_t>(v) * kW;
        in.a1 = &static_->amp1[row], in.c1 = &static_->cyc1[row];
        in.a2 = &static_->amp2[row], in.c2 = &static_->cyc2[row];
        in.dirZ = &static_->dirZ[row];
        if (v >= r.v0 && v < r.v1 && r.u1 > r.u0) {
            std::copy_n(in.a1, kW, merged.a1);
            std::copy_n(in.c1, kW, merged.c1);
            std::copy_n(in.a2, kW, merged.a2);
            std::copy_n(in.c2, kW, merged.c2);
            std::copy_n(in.dirZ, kW, merged.dirZ);
            const size_t o = static_cast<size_t>(v - r.v0) * overlay_.width;
            const int n = r.u1 - r.u0;
            std::copy_n(&overlay_.amp1[o], n, merged.a1 + r.u0);
            std::copy_n(&overlay_.cyc1[o], n, merged.c1 + r.u0);
            std::copy_n(&overlay_.amp2[o], n, merged.a2 + r.u0);
            std::copy_n(&overlay_.cyc2[o], n, merged.c2 + r.u0);
            merged.pointAt(in);
        }
        drawNormals(in, kW, mode.dualFrequency, rng);
        measureRow(in, mode, out);
        storeRow(out, depth + row, amplitude + row, saturated + row);
    }
}

void TofSensor::measurePixels(const TofMeasureMode& mode, Rng& rng, const std::vector<int>& pixels, uint16_t* depth,
                              uint16_t* amplitude, uint8_t* saturated) const {
    RowIn in{};
    RowBuffer packed{};
    packed.pointAt(in);
    RowOut out;
    const Rect& r = overlayRect_;
    // Scattered pixels are packed into rows so they share the vectorised loop.
    for (size_t start = 0; start < pixels.size(); start += kW) {
        const int n = static_cast<int>(std::min<size_t>(kW, pixels.size() - start));
        for (int j = 0; j < n; ++j) {
            const int i = pixels[start + j];
            const int u = i % kW, v = i / kW;
            const bool inOverlay = r.contains(u, v);
            const Returns& src = inOverlay ? overlay_ : *static_;
            const size_t si =
                inOverlay ? static_cast<size_t>(v - r.v0) * src.width + (u - r.u0) : static_cast<size_t>(i);
            packed.a1[j] = src.amp1[si];
            packed.c1[j] = src.cyc1[si];
            packed.a2[j] = src.amp2[si];
            packed.c2[j] = src.cyc2[si];
            packed.dirZ[j] = static_->dirZ[i];
        }
        drawNormals(in, n, mode.dualFrequency, rng);
        measureRow(in, mode, out);
        for (int j = 0; j < n; ++j) store(out, j, static_cast<size_t>(pixels[start + j]), depth, amplitude, saturated);
    }
}

}  // namespace d3sim
