// Point frames for the 3D view, without VTK: which points are drawn and how
// coloured frames are sampled.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framerecords.h"

constexpr int kCloudWidth = 640;
constexpr int kCloudHeight = 480;
constexpr int kCloudPoints = kCloudWidth * kCloudHeight;
constexpr int kFullHdGridWidth = 960;
constexpr int kFullHdGridHeight = 540;

// Depths the sensor measures reliably; anything else (0 = no measurement) is
// drawn at the origin with depth scalar 0.
inline bool isValidCloudDepth(float z) { return z > 100.0f && z < 15000.0f; }

// Copies `count` points of packed x, y, z into the view's float point array
// (3 per point) and depth scalars (1 per point). Returns the valid points.
int copyCloudPoints(const float* xyz, int count, float* points, float* depth);

// Grid a coloured frame of the given width is shown on: full-HD colour frames
// on a 960 x 540 grid, everything else on the 640 x 480 ToF grid.
struct CloudGrid {
    int cols;
    int rows;
    int points() const { return cols * rows; }
};
CloudGrid cloudGridFor(unsigned sourceCols);

// Samples a coloured frame onto its grid (`grid` points in the outputs):
// grid point (i, j) takes source row i*cols/grid.cols and column j*cols/grid.cols,
// so 640-wide frames are taken point by point, 1600 with a step of 2.5 and
// 1920 with a step of 2. Grid points with no source or an invalid depth go
// to the origin with depth 0 and black. `colours` (3 bytes a point) may be
// null when coloured mode is off. Returns the valid points.
int copyRgbCloudPoints(const RgbPointcloudData& frame, CloudGrid grid, float* points, float* depth, uint8_t* colours);
