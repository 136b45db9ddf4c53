// Figures about a frame's values, computed on the frame workers: the depth
// distribution behind the histogram and its percentiles, and the statistics
// of a rectangle of any picture. Plain functions on plain buffers; no Qt.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// How many pixels have each depth: counts[d] for every d in 0..65535, with
// counts[0] the pixels without a measurement. `counts` is sized once.
void countDepths(const uint16_t* depth, size_t n, std::vector<uint32_t>& counts);

// Nearest-rank percentile of the measured depths (counts[0] is left out): the
// smallest depth at or below which at least share x valid of them lie, for
// share in (0, 1]. -1 when nothing was measured.
int depthPercentile(const std::vector<uint32_t>& counts, double share);

// The depth histogram a frame shows: measured depths in 10 mm bins up to
// 16 m, the last bin taking everything beyond, with the 1st and 99th
// percentile that an automatic colour range uses.
struct DepthHistogram {
    static constexpr int kBinMm = 10;
    static constexpr int kBins = 1600;
    std::array<uint32_t, kBins> bins{};
    uint32_t valid = 0;
    uint32_t invalid = 0;
    int low = -1;   // 1st percentile, mm; -1 without measurements
    int high = -1;  // 99th percentile
};
void fillHistogram(const std::vector<uint32_t>& counts, DepthHistogram& out);

// Inclusive pixel rectangle. Empty when right < left or bottom < top.
struct PixelRect {
    int left = 0, top = 0, right = -1, bottom = -1;
    bool empty() const { return right < left || bottom < top; }
    int width() const { return empty() ? 0 : right - left + 1; }
    int height() const { return empty() ? 0 : bottom - top + 1; }
};

// The rectangle spanned by two corners (in either order), cut to a
// width x height picture; empty when it lies outside.
PixelRect regionInImage(int x1, int y1, int x2, int y2, int width, int height);

// Statistics of the valid values of a region. With no valid value (valid ==
// 0) mean, deviation, minimum and maximum are 0 and mean nothing.
struct RegionStats {
    uint64_t pixels = 0;  // in the region
    uint64_t valid = 0;   // of those, with a value
    double mean = 0;
    double stddev = 0;  // population standard deviation
    double min = 0;
    double max = 0;
    double validShare() const { return pixels ? double(valid) / double(pixels) : 0.0; }
};

// Sums whole values exactly, so the deviation has no rounding error however
// large the region or its mean.
class StatsAccumulator {
public:
    void add(uint32_t v) {
        ++count_;
        sum_ += v;
        sumSquares_ += uint64_t(v) * v;
        if (v < min_) min_ = v;
        if (v > max_) max_ = v;
    }
    // `count` pixels of value v at once.
    void add(uint32_t v, uint64_t count) {
        if (count == 0) return;
        count_ += count;
        sum_ += uint64_t(v) * count;
        sumSquares_ += (unsigned __int128)(uint64_t(v) * v) * count;
        if (v < min_) min_ = v;
        if (v > max_) max_ = v;
    }
    RegionStats result(uint64_t pixels) const;

private:
    uint64_t count_ = 0;
    uint64_t sum_ = 0;
    unsigned __int128 sumSquares_ = 0;
    uint32_t min_ = UINT32_MAX;
    uint32_t max_ = 0;
};

// Row-major `cols`-wide values (whole numbers stored as double, as the
// views keep them). With `zeroInvalid` a 0 is a pixel without a value (depth).
RegionStats regionStats(const double* values, int cols, const PixelRect& r, bool zeroInvalid);
// 0xAARRGGBB pixels, per channel: red, green, blue. Every pixel is valid.
std::array<RegionStats, 3> regionStatsRgb(const uint32_t* pixels, int cols, const PixelRect& r);
