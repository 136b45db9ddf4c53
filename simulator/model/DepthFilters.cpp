#include "DepthFilters.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "CameraSettings.h"

namespace d3sim {

namespace {
constexpr int kW = kTofWidth;
constexpr int kH = kTofHeight;
constexpr size_t kPixels = static_cast<size_t>(kW) * kH;

inline void sort2(uint16_t& a, uint16_t& b) {
    const uint16_t lo = std::min(a, b), hi = std::max(a, b);
    a = lo;
    b = hi;
}

// Median of nine with the classic 19-exchange network; branch-free.
inline uint16_t median9(uint16_t* p) {
    sort2(p[1], p[2]), sort2(p[4], p[5]), sort2(p[7], p[8]);
    sort2(p[0], p[1]), sort2(p[3], p[4]), sort2(p[6], p[7]);
    sort2(p[1], p[2]), sort2(p[4], p[5]), sort2(p[7], p[8]);
    sort2(p[0], p[3]), sort2(p[5], p[8]), sort2(p[4], p[7]);
    sort2(p[3], p[6]), sort2(p[1], p[4]), sort2(p[2], p[5]);
    sort2(p[4], p[7]), sort2(p[4], p[2]), sort2(p[6], p[4]);
    sort2(p[4], p[2]);
    return p[4];
}

inline uint16_t medianOfSmall(uint16_t* v, int n) {
    for (int i = 1; i < n; ++i) {
        const uint16_t x = v[i];
        int j = i - 1;
        while (j >= 0 && v[j] > x) {
            v[j + 1] = v[j];
            --j;
        }
        v[j + 1] = x;
    }
    return v[n / 2];
}
}  // namespace

int spatialKernelFor(float value) { return value <= 3.0f ? 3 : value <= 5.0f ? 5 : 7; }

int timeKernelFor(float value) {
    return std::clamp(static_cast<int>(std::lround(value)), 1, TimeMedianFilter::kMaxKernel);
}

void TimeMedianFilter::reset() {
    next_ = 0;
    count_ = 0;
}

void TimeMedianFilter::process(uint16_t* depth, int kernel, bool apply) {
    if (ring_.empty()) ring_.resize(kPixels * kMaxKernel);
    std::memcpy(&ring_[static_cast<size_t>(next_) * kPixels], depth, kPixels * sizeof(uint16_t));
    next_ = (next_ + 1) % kMaxKernel;
    count_ = std::min(count_ + 1, kMaxKernel);
    const int k = std::min(std::clamp(kernel, 1, kMaxKernel), count_);
    if (!apply || k <= 1) return;
    const uint16_t* frames[kMaxKernel];
    for (int j = 0; j < k; ++j)
        frames[j] = &ring_[static_cast<size_t>((next_ - 1 - j + kMaxKernel) % kMaxKernel) * kPixels];
    uint16_t v[kMaxKernel];
    for (size_t i = 0; i < kPixels; ++i) {
        int n = 0;
        for (int j = 0; j < k; ++j) {
            const uint16_t d = frames[j][i];
            v[n] = d;
            n += d != 0;
        }
        depth[i] = n ? medianOfSmall(v, n) : 0;
    }
}

void spatialMedian(uint16_t* depth, int kernel, std::vector<uint16_t>& scratch) {
    scratch.assign(depth, depth + kPixels);
    const uint16_t* src = scratch.data();
    const int r = kernel / 2;
    uint16_t win[49];
    for (int y = 0; y < kH; ++y) {
        const int y0 = std::max(0, y - r), y1 = std::min(kH - 1, y + r);
        for (int x = 0; x < kW; ++x) {
            const size_t i = static_cast<size_t>(y) * kW + x;
            if (src[i] == 0) continue;
            const int x0 = std::max(0, x - r), x1 = std::min(kW - 1, x + r);
            int n = 0;
            for (int yy = y0; yy <= y1; ++yy) {
                const uint16_t* row = src + static_cast<size_t>(yy) * kW;
                for (int xx = x0; xx <= x1; ++xx) {
                    win[n] = row[xx];
                    n += row[xx] != 0;
                }
            }
            if (n == 9) {
                depth[i] = median9(win);
            } else {
                std::nth_element(win, win + n / 2, win + n);
                depth[i] = win[n / 2];
            }
        }
    }
}

void flyingPixelFilter(uint16_t* depth, float thresholdPercent, std::vector<uint16_t>& scratch) {
    scratch.assign(depth, depth + kPixels);
    const uint16_t* src = scratch.data();
    const float frac = thresholdPercent / 100.0f;
    // A missing neighbour is not evidence of a jump, so it never removes a pixel.
    auto differs = [](int d, int n, int limit) { return n != 0 && std::abs(d - n) > limit; };
    auto behind = [](int d, int n, int limit) { return n != 0 && d - n > limit; };
    for (int y = 1; y + 1 < kH; ++y)
        for (int x = 1; x + 1 < kW; ++x) {
            const size_t i = static_cast<size_t>(y) * kW + x;
            const int d = src[i];
            if (d == 0) continue;
            const int limit = static_cast<int>(frac * d);
            const int l = src[i - 1], r = src[i + 1], u = src[i - kW], b = src[i + kW];
            const bool floating =
                behind(d, l, limit) || behind(d, r, limit) || behind(d, u, limit) || behind(d, b, limit);
            const bool spike =
                (differs(d, l, limit) && differs(d, r, limit)) || (differs(d, u, limit) && differs(d, b, limit));
            if (floating || spike) depth[i] = 0;
        }
}

void confidenceFilter(uint16_t* depth, const uint16_t* amplitude, float threshold) {
    for (size_t i = 0; i < kPixels; ++i)
        if (amplitude[i] < threshold) depth[i] = 0;
}

}  // namespace d3sim
