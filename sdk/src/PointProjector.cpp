#include "PointProjector.h"

namespace d3sdk {

void PointProjector::configure(const CameraIntrinsicParam& k, unsigned width, unsigned height) {
    if (width == width_ && height == height_ && k.fx == fx_ && k.fy == fy_ && k.cx == cx_ && k.cy == cy_) return;
    width_ = width;
    height_ = height;
    fx_ = k.fx;
    fy_ = k.fy;
    cx_ = k.cx;
    cy_ = k.cy;
    rayX_.resize(width);
    rayY_.resize(height);
    // A zero focal length would turn every point into inf/nan; flat zeros at
    // least keep z usable until real intrinsics arrive.
    const float ifx = fx_ != 0 ? 1.0f / fx_ : 0.0f;
    const float ify = fy_ != 0 ? 1.0f / fy_ : 0.0f;
    for (unsigned u = 0; u < width; ++u) rayX_[u] = (float(u) - cx_) * ifx;
    for (unsigned v = 0; v < height; ++v) rayY_[v] = (float(v) - cy_) * ify;
}

unsigned PointProjector::compute(const uint16_t* depth, PointXYZ* out) const {
    unsigned valid = 0;
    const float* rx = rayX_.data();
    for (unsigned v = 0; v < height_; ++v) {
        const float ry = rayY_[v];
        const uint16_t* d = depth + size_t(v) * width_;
        PointXYZ* p = out + size_t(v) * width_;
        for (unsigned u = 0; u < width_; ++u) {
            const float z = float(d[u]);
            // Multiplying by z = 0 already yields a zero point; no branch keeps
            // the loop vectorisable.
            p[u].x = rx[u] * z;
            p[u].y = ry * z;
            p[u].z = z;
            valid += d[u] != 0;
        }
    }
    return valid;
}

}  // namespace d3sdk
