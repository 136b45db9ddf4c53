#include "frameconvert.h"

#include <algorithm>
#include <cmath>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define D3_HAVE_SSSE3_PATH 1
#endif

#include "colormap.h"

namespace {

constexpr std::size_t kDepthValues = 65536;
static_assert(sizeof(RGB888Pixel) == 3, "RGB888Pixel must be three packed bytes");

bool sizesMatch(const QImage& image, int rows, int cols) {
    return image.depth() == 32 && image.height() == rows && image.width() == cols;
}

// Number of samples available for a row that starts at `start`.
int rowAvailable(std::size_t count, std::size_t start, int cols) {
    if (start >= count) return 0;
    return int(std::min<std::size_t>(count - start, std::size_t(cols)));
}

QRgb packRgb(const uint8_t* p) { return 0xFF000000u | (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2]; }

// Writes `n` colours to both outputs; returns how many it did (a prefix).
using RgbRowFn = int (*)(const uint8_t* src, int n, QRgb* image, QRgb* values);

int rgbRowScalar(const uint8_t*, int, QRgb*, QRgb*) { return 0; }

#ifdef D3_HAVE_SSSE3_PATH
// Four pixels per step: one byte shuffle turns 12 bytes of R, G, B into four
// B, G, R, A words. A 1080p frame is too big for the scalar loop's budget.
__attribute__((target("ssse3"))) int rgbRowSsse3(const uint8_t* src, int n, QRgb* image, QRgb* values) {
    const __m128i order = _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1);
    const __m128i alpha = _mm_set1_epi32(int(0xFF000000u));
    int x = 0;
    // Each load reads 16 bytes and uses 12; stopping 6 pixels early keeps
    // every load inside the row.
    for (; x + 6 <= n; x += 4) {
        const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * x));
        const __m128i c = _mm_or_si128(_mm_shuffle_epi8(in, order), alpha);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(image + x), c);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(values + x), c);
    }
    return x;
}
#endif

RgbRowFn pickRgbRow() {
#ifdef D3_HAVE_SSSE3_PATH
    if (__builtin_cpu_supports("ssse3")) return rgbRowSsse3;
#endif
    return rgbRowScalar;
}

}  // namespace

DepthColorTable::DepthColorTable() : table_(kDepthValues, 0u) {}

void DepthColorTable::update(double minDistance, double maxDistance) {
    if (built_ && minDistance == min_ && maxDistance == max_) return;
    min_ = minDistance;
    max_ = maxDistance;
    built_ = true;
    std::fill(table_.begin(), table_.end(), 0u);
    if (!(minDistance <= maxDistance)) return;
    // Only the depths inside the range need the formula; the same comparison
    // as the per-pixel rule decides the edges.
    const double first = std::max(0.0, std::ceil(minDistance));
    const double last = std::min(double(kDepthValues - 1), std::floor(maxDistance));
    for (double d = first; d <= last; d += 1.0) {
        if (d >= minDistance && d <= maxDistance)
            table_[std::size_t(d)] = mapDistanceToColor(d, minDistance, maxDistance);
    }
}

bool convertDepth(const uint16_t* depth, std::size_t count, double minDistance, double maxDistance,
                  DepthColorTable& table, QImage& image, ValueMatrix<double>& values) {
    const int rows = values.rows(), cols = values.cols();
    if (!sizesMatch(image, rows, cols)) return false;
    table.update(minDistance, maxDistance);
    const QRgb* lut = table.data();
    const QRgb zeroColour = lut[0];
    uchar* bits = image.bits();
    const qsizetype stride = image.bytesPerLine();
    for (int y = 0; y < rows; ++y) {
        QRgb* px = reinterpret_cast<QRgb*>(bits + y * stride);
        double* val = values[y];
        const std::size_t start = std::size_t(y) * cols;
        const int n = rowAvailable(count, start, cols);
        const uint16_t* src = depth + start;
        for (int x = 0; x < n; ++x) {
            const uint16_t d = src[x];
            const QRgb c = lut[d];
            px[x] = c;
            val[x] = c ? double(d) : 0.0;
        }
        std::fill(px + n, px + cols, zeroColour);
        std::fill(val + n, val + cols, 0.0);
    }
    return true;
}

bool convertIr(const uint8_t* ir, std::size_t count, QImage& image, ValueMatrix<double>& values) {
    const int rows = values.rows(), cols = values.cols();
    if (!sizesMatch(image, rows, cols)) return false;
    uchar* bits = image.bits();
    const qsizetype stride = image.bytesPerLine();
    for (int y = 0; y < rows; ++y) {
        QRgb* px = reinterpret_cast<QRgb*>(bits + y * stride);
        double* val = values[y];
        const std::size_t start = std::size_t(y) * cols;
        const int n = rowAvailable(count, start, cols);
        const uint8_t* src = ir + start;
        for (int x = 0; x < n; ++x) {
            const uint32_t g = src[x];
            px[x] = 0xFF000000u | (g * 0x010101u);
            val[x] = double(g);
        }
        std::fill(px + n, px + cols, 0xFF000000u);
        std::fill(val + n, val + cols, 0.0);
    }
    return true;
}

bool convertRgb(const RGB888Pixel* rgb, std::size_t count, QImage& image, ValueMatrix<QRgb>& values) {
    static const RgbRowFn rowFn = pickRgbRow();
    const int rows = values.rows(), cols = values.cols();
    if (!sizesMatch(image, rows, cols)) return false;
    uchar* bits = image.bits();
    const qsizetype stride = image.bytesPerLine();
    for (int y = 0; y < rows; ++y) {
        QRgb* px = reinterpret_cast<QRgb*>(bits + y * stride);
        QRgb* val = values[y];
        const std::size_t start = std::size_t(y) * cols;
        const int n = rowAvailable(count, start, cols);
        const uint8_t* src = reinterpret_cast<const uint8_t*>(rgb + start);
        for (int x = rowFn(src, n, px, val); x < n; ++x) {
            const QRgb c = packRgb(src + 3 * x);
            px[x] = c;
            val[x] = c;
        }
        std::fill(px + n, px + cols, 0xFF000000u);
        std::fill(val + n, val + cols, 0xFF000000u);
    }
    return true;
}
