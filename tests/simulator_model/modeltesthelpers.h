// Statistics over image regions shared by the model tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "CameraSettings.h"
#include "FrameGenerator.h"

namespace d3sim::testing {

struct Region {
    int u0, v0, u1, v1;  // [u0,u1) x [v0,v1)
};

// Plain back wall in every frame: above the box and left of the pillar.
constexpr Region kWallPatch{200, 100, 440, 140};
// Front face of the box (z = 2300).
constexpr Region kBoxFrontPatch{180, 290, 260, 340};

template <typename T>
double meanOf(const std::vector<T>& img, const Region& r, int width = kTofWidth, bool skipZeros = false) {
    double sum = 0;
    int n = 0;
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) {
            const T x = img[static_cast<size_t>(v) * width + u];
            if (skipZeros && x == 0) continue;
            sum += x;
            ++n;
        }
    return n ? sum / n : 0.0;
}

// Standard deviation of the valid pixels of a region: spatial noise on a plane
// that is parallel to the sensor, where every pixel has the same true depth.
inline double spatialStd(const std::vector<uint16_t>& depth, const Region& r) {
    const double mean = meanOf(depth, r, kTofWidth, true);
    double sq = 0;
    int n = 0;
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) {
            const uint16_t d = depth[static_cast<size_t>(v) * kTofWidth + u];
            if (d == 0) continue;
            sq += (d - mean) * (d - mean);
            ++n;
        }
    return n > 1 ? std::sqrt(sq / (n - 1)) : 0.0;
}

inline int countZeros(const std::vector<uint16_t>& depth, const Region& r) {
    int n = 0;
    for (int v = r.v0; v < r.v1; ++v)
        for (int u = r.u0; u < r.u1; ++u) n += depth[static_cast<size_t>(v) * kTofWidth + u] == 0;
    return n;
}

inline int area(const Region& r) { return (r.u1 - r.u0) * (r.v1 - r.v0); }

// Per-pixel standard deviation over `frames` consecutive frames, averaged
// over the region: the frame-to-frame noise a user sees on a still surface.
inline double temporalStd(FrameGenerator& gen, const CameraSettings& s, const Region& r, int frames,
                          uint64_t firstFrame = 0) {
    const int w = r.u1 - r.u0, n = w * (r.v1 - r.v0);
    std::vector<double> sum(n, 0.0), sq(n, 0.0);
    std::vector<int> count(n, 0);
    FrameSet f;
    for (int k = 0; k < frames; ++k) {
        gen.render(firstFrame + k, s, f);
        for (int v = r.v0; v < r.v1; ++v)
            for (int u = r.u0; u < r.u1; ++u) {
                const double d = f.depth[static_cast<size_t>(v) * kTofWidth + u];
                if (d == 0) continue;
                const int i = (v - r.v0) * w + (u - r.u0);
                sum[i] += d, sq[i] += d * d, ++count[i];
            }
    }
    double total = 0;
    int used = 0;
    for (int i = 0; i < n; ++i) {
        if (count[i] < 2) continue;
        const double m = sum[i] / count[i];
        total += std::sqrt(std::max(0.0, (sq[i] - count[i] * m * m) / (count[i] - 1)));
        ++used;
    }
    return used ? total / used : 0.0;
}

// Valid pixels more than 100 mm off the truth in a band across the left edge
// of the box front (column ~161.7), on rows where the wall is behind it.
inline int countEdgeOutliers(const std::vector<uint16_t>& depth, const std::vector<float>& truth) {
    int n = 0;
    for (int v = 285; v < 340; ++v)
        for (int u = 155; u < 170; ++u) {
            const size_t i = static_cast<size_t>(v) * kTofWidth + u;
            n += depth[i] != 0 && std::fabs(depth[i] - truth[i]) > 100.0f;
        }
    return n;
}

}  // namespace d3sim::testing
