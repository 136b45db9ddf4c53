#include "colormap.h"

#include <cmath>
#include <cstdint>

namespace {

// Scales a [0, 1] component to a byte, rounding halves away from zero and
// keeping the low 8 bits of whatever comes out. A NaN component (minimum and
// maximum equal) and values too large to be an integer give 0.
unsigned componentByte(double c) {
    const double scaled = std::round(c * 255.0);
    if (!(std::fabs(scaled) < 9.0e18)) return 0;
    return unsigned(static_cast<int64_t>(scaled) & 0xFF);
}

}  // namespace

QRgb mapDistanceToColor(double distance, double minDistance, double maxDistance) {
    // 0.67 stops the scale short of a full colour circle, so far stays blue.
    const double t = (distance - minDistance) / (maxDistance - minDistance) * 0.67;
    double r, g, b;
    if (t < 1.0 / 6.0) {
        r = 1.0;
        g = 6.0 * t;
        b = 0.0;
    } else if (t < 1.0 / 3.0) {
        r = 1.0 - 6.0 * (t - 1.0 / 6.0);
        g = 1.0;
        b = 0.0;
    } else if (t < 1.0 / 2.0) {
        r = 0.0;
        g = 1.0;
        b = 6.0 * (t - 1.0 / 3.0);
    } else if (t < 2.0 / 3.0) {
        r = 0.0;
        g = 1.0 - 6.0 * (t - 1.0 / 2.0);
        b = 1.0;
    } else if (t < 5.0 / 6.0) {
        r = 6.0 * (t - 2.0 / 3.0);
        g = 0.0;
        b = 1.0;
    } else {
        r = 1.0;
        g = 0.0;
        b = 1.0 - 6.0 * (t - 5.0 / 6.0);
    }
    return 0xFF000000u | (componentByte(r) << 16) | (componentByte(g) << 8) | componentByte(b);
}

void HSVtoRGB(uint8_t* r, uint8_t* g, uint8_t* b, uint16_t h, uint16_t s, uint16_t v) {
    // Single precision on purpose: the truncations below depend on it.
    const float value = float(v) * 2.55f;
    const int vi = int(value);
    const int i = h / 60;
    const int f = h % 60;
    const int grey = 100 - int(s);
    const int m = int(float(grey) * value / 100.0f);
    const int a = int((value - float(grey) * value / 100.0f) * float(f) / 60.0f);
    int red, green, blue;
    switch (i) {
        case 0:
            red = vi, green = m + a, blue = m;
            break;
        case 1:
            red = vi - a, green = vi, blue = m;
            break;
        case 2:
            red = m, green = vi, blue = m + a;
            break;
        case 3:
            red = m, green = vi - a, blue = vi;
            break;
        case 4:
            red = m + a, green = m, blue = vi;
            break;
        default:
            red = vi, green = m, blue = vi - a;
            break;
    }
    *r = uint8_t(red);
    *g = uint8_t(green);
    *b = uint8_t(blue);
}
