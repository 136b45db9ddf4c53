// Colours for depth pixels and the integer HSV conversion used by the views.
#pragma once

#include <QRgb>
#include <cstdint>

// Opaque colour for a distance between minDistance and maxDistance: red near,
// then yellow, green, cyan and blue with distance. Does not clamp; the caller
// blacks out distances outside the range.
QRgb mapDistanceToColor(double distance, double minDistance, double maxDistance);

// Hue in degrees, saturation and value in percent; the results wrap to 8 bits.
void HSVtoRGB(uint8_t* r, uint8_t* g, uint8_t* b, uint16_t h, uint16_t s = 100, uint16_t v = 100);
