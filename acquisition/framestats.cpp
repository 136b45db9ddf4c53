#include "framestats.h"

#include <algorithm>
#include <cmath>

void countDepths(const uint16_t* depth, size_t n, std::vector<uint32_t>& counts) {
    if (counts.size() != 65536) counts.assign(65536, 0);
    std::fill(counts.begin(), counts.end(), 0u);
    for (size_t i = 0; i < n; ++i) ++counts[depth[i]];
}

int depthPercentile(const std::vector<uint32_t>& counts, double share) {
    uint64_t valid = 0;
    for (size_t d = 1; d < counts.size(); ++d) valid += counts[d];
    if (valid == 0) return -1;
    const uint64_t rank = std::max<uint64_t>(1, uint64_t(std::ceil(share * double(valid) - 1e-9)));
    uint64_t seen = 0;
    for (size_t d = 1; d < counts.size(); ++d) {
        seen += counts[d];
        if (seen >= rank) return int(d);
    }
    return int(counts.size() - 1);
}

void fillHistogram(const std::vector<uint32_t>& counts, DepthHistogram& out) {
    out.bins.fill(0);
    out.invalid = counts.empty() ? 0 : counts[0];
    out.valid = 0;
    for (size_t d = 1; d < counts.size(); ++d) {
        if (counts[d] == 0) continue;
        const size_t bin = std::min<size_t>(d / DepthHistogram::kBinMm, DepthHistogram::kBins - 1);
        out.bins[bin] += counts[d];
        out.valid += counts[d];
    }
    out.low = depthPercentile(counts, 0.01);
    out.high = depthPercentile(counts, 0.99);
}

PixelRect regionInImage(int x1, int y1, int x2, int y2, int width, int height) {
    PixelRect r;
    r.left = std::max(std::min(x1, x2), 0);
    r.top = std::max(std::min(y1, y2), 0);
    r.right = std::min(std::max(x1, x2), width - 1);
    r.bottom = std::min(std::max(y1, y2), height - 1);
    return r;
}

RegionStats StatsAccumulator::result(uint64_t pixels) const {
    RegionStats s;
    s.pixels = pixels;
    s.valid = count_;
    if (count_ == 0) return s;
    s.mean = double(sum_) / double(count_);
    // n * sum(v^2) - (sum v)^2 is exact in 128 bits and never negative.
    const unsigned __int128 spread = sumSquares_ * count_ - (unsigned __int128)sum_ * sum_;
    s.stddev = std::sqrt(double(spread)) / double(count_);
    s.min = min_;
    s.max = max_;
    return s;
}

RegionStats regionStats(const double* values, int cols, const PixelRect& r, bool zeroInvalid) {
    StatsAccumulator acc;
    if (r.empty()) return acc.result(0);
    for (int y = r.top; y <= r.bottom; ++y) {
        const double* row = values + size_t(y) * size_t(cols);
        for (int x = r.left; x <= r.right; ++x) {
            const uint32_t v = row[x] > 0 ? uint32_t(row[x]) : 0u;
            if (zeroInvalid && v == 0) continue;
            acc.add(v);
        }
    }
    return acc.result(uint64_t(r.width()) * uint64_t(r.height()));
}

std::array<RegionStats, 3> regionStatsRgb(const uint32_t* pixels, int cols, const PixelRect& r) {
    // A channel has 256 levels: counting them is much cheaper than summing
    // squares per pixel, and the sums follow exactly from the counts.
    std::array<std::array<uint32_t, 256>, 3> counts{};
    if (!r.empty()) {
        for (int y = r.top; y <= r.bottom; ++y) {
            const uint32_t* row = pixels + size_t(y) * size_t(cols);
            for (int x = r.left; x <= r.right; ++x) {
                const uint32_t p = row[x];
                ++counts[0][(p >> 16) & 0xFF];
                ++counts[1][(p >> 8) & 0xFF];
                ++counts[2][p & 0xFF];
            }
        }
    }
    const uint64_t n = uint64_t(r.width()) * uint64_t(r.height());
    std::array<RegionStats, 3> out;
    for (size_t c = 0; c < 3; ++c) {
        StatsAccumulator acc;
        for (uint32_t level = 0; level < 256; ++level) acc.add(level, counts[c][level]);
        out[c] = acc.result(n);
    }
    return out;
}
