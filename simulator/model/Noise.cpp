#include "Noise.h"

#include <array>

namespace d3sim {

namespace {
std::array<float, 1u << kNormalBits> buildNormalTable() {
    std::array<float, 1u << kNormalBits> t{};
    const int n = static_cast<int>(t.size());
    for (int i = 0; i < n; ++i) {
        // Invert the normal CDF by bisection; done once, so clarity beats speed.
        const double p = (i + 0.5) / n;
        double lo = -8.0, hi = 8.0;
        for (int it = 0; it < 60; ++it) {
            const double mid = 0.5 * (lo + hi);
            const double cdf = 0.5 * std::erfc(-mid / std::sqrt(2.0));
            (cdf < p ? lo : hi) = mid;
        }
        t[i] = static_cast<float>(0.5 * (lo + hi));
    }
    return t;
}
}  // namespace

const float* normalTable() {
    static const std::array<float, 1u << kNormalBits> table = buildNormalTable();
    return table.data();
}

}  // namespace d3sim
