#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "colormap.h"

namespace {

struct ColorCase {
    double distance, min, max;
    QRgb expected;
};

// min 0 / max 670 makes t = distance / 1000, so each band is easy to reach.
TEST(MapDistanceToColor, BandsRoundingAndWrap) {
    const ColorCase cases[] = {
        {0, 0, 670, 0xFFFF0000},    // near end: pure red
        {90, 0, 670, 0xFFFF8A00},   // G = 0.54 -> 137.7 rounds up to 138
        {100, 0, 670, 0xFFFF9900},  // G = 0.6 -> 153
        {200, 0, 670, 0xFFCCFF00},  // falling red in the yellow-green band
        {400, 0, 670, 0xFF00FF66},  // rising blue in the green-cyan band
        {600, 0, 670, 0xFF0066FF},  // falling green in the cyan-blue band
        {670, 0, 670, 0xFF0500FF},  // far end: blue with a trace of red
        {700, 0, 670, 0xFF3300FF},  // beyond max: no clamp, next band
        // t = 1.34: B = -2.04 -> -520 keeps its low 8 bits (248).
        {1340, 0, 670, 0xFFFF00F8},
        {500, 500, 1500, 0xFFFF0000},
        {1500, 500, 1500, 0xFF0500FF},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(mapDistanceToColor(c.distance, c.min, c.max), c.expected)
            << "distance " << c.distance << " in [" << c.min << ", " << c.max << "]";
    }
}

TEST(MapDistanceToColor, EqualLimitsGivePureRed) {
    // t is NaN, every band test fails and only the last band's red survives.
    EXPECT_EQ(mapDistanceToColor(800, 800, 800), 0xFFFF0000u);
    EXPECT_EQ(mapDistanceToColor(0, 0, 0), 0xFFFF0000u);
}

TEST(MapDistanceToColor, BandEdgesAreContinuous) {
    // Each band starts where the previous one ends, so just below and just
    // above an edge differ by at most one step per component.
    for (double edge : {1.0 / 6, 1.0 / 3, 0.5, 2.0 / 3, 5.0 / 6}) {
        const double d = edge / 0.67 * 1000.0;
        const QRgb below = mapDistanceToColor(d - 1e-6, 0, 1000);
        const QRgb above = mapDistanceToColor(d + 1e-6, 0, 1000);
        EXPECT_LE(std::abs(qRed(below) - qRed(above)), 1) << edge;
        EXPECT_LE(std::abs(qGreen(below) - qGreen(above)), 1) << edge;
        EXPECT_LE(std::abs(qBlue(below) - qBlue(above)), 1) << edge;
    }
}

TEST(HSVtoRGB, IntegerRuleAndWrap) {
    using Case = std::tuple<uint16_t, uint16_t, uint16_t, int, int, int>;
    const Case cases[] = {
        {0, 100, 100, 255, 0, 0},     {30, 100, 100, 255, 127, 0},  {60, 100, 100, 255, 255, 0},
        {90, 100, 100, 128, 255, 0},  {120, 100, 100, 0, 255, 0},   {180, 100, 100, 0, 255, 255},
        {240, 100, 100, 0, 0, 255},   {300, 100, 100, 255, 0, 255}, {359, 100, 100, 255, 0, 5},
        {360, 100, 100, 255, 0, 255},  // i = 6 falls into the last case
        {0, 50, 100, 255, 127, 127},  {0, 100, 50, 127, 0, 0},      {200, 0, 100, 255, 255, 255},
        {0, 200, 100, 255, 1, 1},  // saturation above 100 wraps -255 to 1
    };
    for (const auto& [h, s, v, r, g, b] : cases) {
        uint8_t R = 0, G = 0, B = 0;
        HSVtoRGB(&R, &G, &B, h, s, v);
        EXPECT_EQ(std::make_tuple(int(R), int(G), int(B)), std::make_tuple(r, g, b))
            << "h " << h << " s " << s << " v " << v;
    }
    uint8_t R = 0, G = 0, B = 0;
    HSVtoRGB(&R, &G, &B, 120);  // defaults: full saturation and value
    EXPECT_EQ(std::make_tuple(R, G, B), std::make_tuple(uint8_t(0), uint8_t(255), uint8_t(0)));
}

}  // namespace
