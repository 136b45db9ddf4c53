// Depth image -> 3D points in the ToF camera frame (millimetres).
#pragma once

#include <cstdint>
#include <vector>

#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// Keeps one (u - cx) / fx entry per column and one (v - cy) / fy per row, so a
// point costs two multiplies; the tables are rebuilt only when the intrinsics
// or the image size change (once per session in practice).
class PointProjector {
public:
    void configure(const CameraIntrinsicParam& k, unsigned width, unsigned height);

    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    float rayX(unsigned u) const { return rayX_[u]; }
    float rayY(unsigned v) const { return rayY_[v]; }
    const float* raysX() const { return rayX_.data(); }

    // Writes width*height points; a zero depth gives (0,0,0). Returns the
    // number of points with a measurement.
    unsigned compute(const uint16_t* depth, PointXYZ* out) const;

private:
    unsigned width_ = 0, height_ = 0;
    float fx_ = 0, fy_ = 0, cx_ = 0, cy_ = 0;
    std::vector<float> rayX_, rayY_;
};

}  // namespace d3sdk
