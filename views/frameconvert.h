// Per-frame conversion of SDK buffers into display images and value matrices.
// They run on the acquisition thread under the view's image lock and write
// into buffers sized once, so streaming allocates nothing. The images must be
// 32-bit (Format_RGB32) and not shared with another QImage, or writing to them
// would detach (allocate) first.
#pragma once

#include <QImage>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "framerecords.h"
#include "valuematrix.h"

// mapDistanceToColor for every possible depth value between two limits, so a
// frame costs one table read per pixel. Rebuilt only when the limits change.
// A depth outside [min, max] maps to 0 (black, alpha 0); every depth inside
// maps to an opaque colour, so 0 also tells "out of range".
class DepthColorTable {
public:
    DepthColorTable();

    void update(double minDistance, double maxDistance);
    QRgb operator[](uint16_t depth) const { return table_[depth]; }
    const QRgb* data() const { return table_.data(); }

private:
    std::vector<QRgb> table_;
    double min_ = 0.0;
    double max_ = -1.0;  // no range yet: the first update always builds
    bool built_ = false;
};

// Depth in millimetres to colour, row by row; pixels outside [min, max] turn
// black with value 0. Frames shorter than the image are padded with depth 0.
// Returns false (and writes nothing) when image and matrix sizes differ.
bool convertDepth(const uint16_t* depth, std::size_t count, double minDistance, double maxDistance,
                  DepthColorTable& table, QImage& image, ValueMatrix<double>& values);

// IR bytes to opaque grey; short frames are padded with 0.
bool convertIr(const uint8_t* ir, std::size_t count, QImage& image, ValueMatrix<double>& values);

// R, G, B bytes to opaque colour; the matrix keeps the same colour value.
// Short frames are padded with black.
bool convertRgb(const RGB888Pixel* rgb, std::size_t count, QImage& image, ValueMatrix<QRgb>& values);
