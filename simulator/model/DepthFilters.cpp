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

// Median of nine with the classic 19-exchange network: min/max only, so a
// row of them vectorises.
inline uint16_t median9(uint16_t p0, uint16_t p1, uint16_t p2, uint16_t p3, uint16_t p4, uint16_t p5, uint16_t p6,
                        uint16_t p7, uint16_t p8) {
    sort2(p1, p2), sort2(p4, p5), sort2(p7, p8);
    sort2(p0, p1), sort2(p3, p4), sort2(p6, p7);
    sort2(p1, p2), sort2(p4, p5), sort2(p7, p8);
    sort2(p0, p3), sort2(p5, p8), sort2(p4, p7);
    sort2(p3, p6), sort2(p1, p4), sort2(p2, p5);
    sort2(p4, p7), sort2(p4, p2), sort2(p6, p4);
    sort2(p4, p2);
    return p4;
}

// 3x3 medians of the interior of row y, assuming every value is valid;
// `anyMissing` flags the pixels whose window holds a 0, to be redone.
void median3x3Row(const uint16_t* __restrict src, int y, uint16_t* __restrict out, uint8_t* __restrict anyMissing) {
    const uint16_t* a = src + static_cast<size_t>(y - 1) * kW;
    const uint16_t* b = a + kW;
    const uint16_t* c = b + kW;
#pragma omp simd
    for (int x = 1; x < kW - 1; ++x) {
        out[x] = median9(a[x - 1], a[x], a[x + 1], b[x - 1], b[x], b[x + 1], c[x - 1], c[x], c[x + 1]);
        const uint16_t lo = std::min(std::min(std::min(a[x - 1], a[x]), std::min(a[x + 1], b[x - 1])),
                                     std::min(std::min(b[x], b[x + 1]), std::min(std::min(c[x - 1], c[x]), c[x + 1])));
        anyMissing[x] = lo == 0;
    }
}

// Median of the valid values in the clipped window around (x, y).
uint16_t windowMedian(const uint16_t* src, int x, int y, int r) {
    uint16_t win[49];
    const int y0 = std::max(0, y - r), y1 = std::min(kH - 1, y + r);
    const int x0 = std::max(0, x - r), x1 = std::min(kW - 1, x + r);
    int n = 0;
    for (int yy = y0; yy <= y1; ++yy) {
        const uint16_t* row = src + static_cast<size_t>(yy) * kW;
        for (int xx = x0; xx <= x1; ++xx) {
            win[n] = row[xx];
            n += row[xx] != 0;
        }
    }
    std::nth_element(win, win + n / 2, win + n);
    return win[n / 2];
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
// Median over K frames of one row by odd-even transposition sort: K rounds of
// compare-exchanges, correct for any K and free of branches.
template <int K>
void medianAcrossFrames(const uint16_t* const* frames, size_t row, uint16_t* __restrict out,
                        uint8_t* __restrict anyMissing) {
    static_assert(K >= 2 && K <= TimeMedianFilter::kMaxKernel, "kernel out of range");
    const uint16_t* f[K];
    for (int j = 0; j < K; ++j) f[j] = frames[j] + row;
#pragma omp simd
    for (int x = 0; x < kW; ++x) {
        uint16_t v[K];
#pragma GCC unroll 16
        for (int j = 0; j < K; ++j) v[j] = f[j][x];
#pragma GCC unroll 16
        for (int round = 0; round < K; ++round)
#pragma GCC unroll 16
            for (int j = round & 1; j + 1 < K; j += 2) sort2(v[j], v[j + 1]);
        out[x] = v[K / 2];
        anyMissing[x] = v[0] == 0;
    }
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
    // Pixels valid in all k frames go through a vectorised sorting network a
    // row at a time; the rest take the median of their valid values.
    uint8_t anyMissing[kW];
    uint16_t v[kMaxKernel];
    for (size_t row = 0; row < kPixels; row += kW) {
        switch (k) {
            case 2:
                medianAcrossFrames<2>(frames, row, depth + row, anyMissing);
                break;
            case 3:
                medianAcrossFrames<3>(frames, row, depth + row, anyMissing);
                break;
            case 4:
                medianAcrossFrames<4>(frames, row, depth + row, anyMissing);
                break;
            case 5:
                medianAcrossFrames<5>(frames, row, depth + row, anyMissing);
                break;
            case 6:
                medianAcrossFrames<6>(frames, row, depth + row, anyMissing);
                break;
            case 7:
                medianAcrossFrames<7>(frames, row, depth + row, anyMissing);
                break;
            case 8:
                medianAcrossFrames<8>(frames, row, depth + row, anyMissing);
                break;
            default:
                medianAcrossFrames<9>(frames, row, depth + row, anyMissing);
                break;
        }
        for (int x = 0; x < kW; ++x) {
            if (!anyMissing[x]) continue;
            int n = 0;
            for (int j = 0; j < k; ++j) {
                const uint16_t d = frames[j][row + x];
                v[n] = d;
                n += d != 0;
            }
            depth[row + x] = n ? medianOfSmall(v, n) : 0;
        }
    }
}

void spatialMedian(uint16_t* depth, int kernel, std::vector<uint16_t>& scratch) {
    // The copy of the input, then a histogram over every 16-bit depth value.
    scratch.resize(kPixels + 65536);
    std::copy(depth, depth + kPixels, scratch.begin());
    std::fill(scratch.begin() + kPixels, scratch.end(), 0);
    const uint16_t* src = scratch.data();
    const int r = kernel / 2;
    if (r == 1) {
        // Fast path for the common kernel: a vectorised network over rows where
        // the whole window is valid, the general median elsewhere.
        uint8_t anyMissing[kW];
        for (int y = 0; y < kH; ++y) {
            uint16_t* out = depth + static_cast<size_t>(y) * kW;
            const uint16_t* in = src + static_cast<size_t>(y) * kW;
            const bool border = y == 0 || y == kH - 1;
            if (!border) median3x3Row(src, y, out, anyMissing);
            for (int x = 0; x < kW; ++x) {
                if (in[x] == 0) {
                    out[x] = 0;  // a missing pixel stays missing
                } else if (border || x == 0 || x == kW - 1 || anyMissing[x]) {
                    out[x] = windowMedian(src, x, y, r);
                }
            }
        }
        return;
    }
    // Larger kernels: a running histogram per row (Huang's method). Sliding the
    // window one pixel swaps two columns, and the median moves only as far as
    // the values changed, so the cost hardly grows with the kernel.
    uint16_t* hist = scratch.data() + kPixels;
    for (int y = 0; y < kH; ++y) {
        const int y0 = std::max(0, y - r), y1 = std::min(kH - 1, y + r);
        int n = 0, below = 0;  // values in the window, values below `med`
        int med = 0;
        auto column = [&](int x, int sign) {
            for (int yy = y0; yy <= y1; ++yy) {
                const int v = src[static_cast<size_t>(yy) * kW + x];
                if (v == 0) continue;
                hist[v] = static_cast<uint16_t>(hist[v] + sign);
                n += sign;
                below += sign * (v < med);
            }
        };
        for (int x = 0; x <= std::min(r, kW - 1); ++x) column(x, 1);
        for (int x = 0; x < kW; ++x) {
            if (x > 0) {
                if (x - r - 1 >= 0) column(x - r - 1, -1);
                if (x + r < kW) column(x + r, 1);
            }
            const size_t i = static_cast<size_t>(y) * kW + x;
            if (src[i] == 0) continue;  // a missing pixel stays missing
            // The median is the smallest value with more than n/2 values at or below it.
            const int half = n / 2;
            while (below > half) below -= hist[--med];
            while (below + hist[med] <= half) below += hist[med++];
            depth[i] = static_cast<uint16_t>(med);
        }
        // Empty the histogram by removing what is left rather than clearing it all.
        for (int x = std::max(0, kW - r - 1); x < kW; ++x)
            for (int yy = y0; yy <= y1; ++yy) hist[src[static_cast<size_t>(yy) * kW + x]] = 0;
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
