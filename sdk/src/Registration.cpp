#include "Registration.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace d3sdk {

void Registration::configure(const CameraIntrinsicParam& tof, unsigned tofWidth, unsigned tofHeight,
                             const CameraIntrinsicParam& rgb, unsigned rgbWidth, unsigned rgbHeight,
                             const Extrinsics& ext) {
    tof_.configure(tof, tofWidth, tofHeight);
    rgbRays_.configure(rgb, rgbWidth, rgbHeight);
    rgbK_ = rgb;
    rgbW_ = rgbWidth;
    rgbH_ = rgbHeight;
    ext_ = ext;
    source_.resize(size_t(rgbWidth) * rgbHeight);
    const size_t n = size_t(tofWidth) * tofHeight + 16;
    z_.resize(n);
    cu_.resize(n);
    cv_.resize(n);
    nu_.resize(n);
    nv_.resize(n);
    for (auto* row : {&x0_, &span_, &y0_, &y1_}) row->resize(tofWidth + 8);
}

bool Registration::project(unsigned u, unsigned v, uint16_t d, float& ur, float& vr, float& zr) const {
    const float z = float(d);
    const float x = tof_.rayX(u) * z;
    const float y = tof_.rayY(v) * z;
    const float* r = ext_.r;
    const float qx = r[0] * x + r[1] * y + r[2] * z + ext_.t[0];
    const float qy = r[3] * x + r[4] * y + r[5] * z + ext_.t[1];
    const float qz = r[6] * x + r[7] * y + r[8] * z + ext_.t[2];
    if (qz < 1.0f) return false;  // behind or on the colour camera
    const float iz = 1.0f / qz;
    ur = rgbK_.fx * qx * iz + rgbK_.cx;
    vr = rgbK_.fy * qy * iz + rgbK_.cy;
    zr = qz;
    return true;
}

void Registration::rgbToDepth(const uint16_t* depth, const uint16_t* zbuffer, const RGB888Pixel* rgb,
                              RGB888Pixel* out) const {
    const size_t n = size_t(tof_.width()) * tof_.height();
    for (size_t i = 0; i < n; ++i) {
        out[i] = RGB888Pixel{0, 0, 0};
        const uint16_t z = z_[i];
        if (depth[i] == 0 || z == 0 || nu_[i] < 0) continue;
        const size_t j = size_t(nv_[i]) * rgbW_ + size_t(nu_[i]);
        // The colour camera sees something nearer here: this surface is
        // hidden from it and its colour would belong to the occluder. The
        // margin absorbs depth noise between neighbouring pixels.
        const float nearest = float(zbuffer[j]);
        if (nearest > 0 && float(z) > nearest + 10.0f + 0.03f * nearest) continue;
        out[i] = rgb[j];
    }
}

unsigned Registration::colouredTofPoints(const uint16_t* depth, const RGB888Pixel* colour, const uint8_t* ir,
                                         PointXYZRGBI* out) const {
    const unsigned w = tof_.width(), h = tof_.height();
    unsigned valid = 0;
    for (unsigned v = 0; v < h; ++v) {
        const float ry = tof_.rayY(v);
        for (unsigned u = 0; u < w; ++u) {
            const size_t i = size_t(v) * w + u;
            const float z = float(depth[i]);
            PointXYZRGBI& p = out[i];
            p.x = tof_.rayX(u) * z;
            p.y = ry * z;
            p.z = z;
            p.r = colour[i].r;
            p.g = colour[i].g;
            p.b = colour[i].b;
            p.i = ir ? ir[i] : 0;
            valid += depth[i] != 0;
        }
    }
    return valid;
}

unsigned Registration::colouredRgbPoints(const uint16_t* registered, const RGB888Pixel* rgb, const uint8_t* ir,
                                         PointXYZRGBI* out) const {
    unsigned valid = 0;
    for (unsigned v = 0; v < rgbH_; ++v) {
        const float ry = rgbRays_.rayY(v);
        for (unsigned u = 0; u < rgbW_; ++u) {
            const size_t i = size_t(v) * rgbW_ + u;
            const uint16_t d = registered[i];
            const float z = float(d);
            PointXYZRGBI& p = out[i];
            p.x = rgbRays_.rayX(u) * z;
            p.y = ry * z;
            p.z = z;
            p.r = rgb[i].r;
            p.g = rgb[i].g;
            p.b = rgb[i].b;
            p.i = (d != 0 && ir) ? ir[source_[i]] : 0;
            valid += d != 0;
        }
    }
    return valid;
}

}  // namespace d3sdk
