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
    projected_.resize(size_t(tofWidth) * tofHeight);
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

namespace {

// Smallest integer >= x for 0 <= x < 2^31, without a library call.
inline int ceilPositive(float x) {
    const int i = int(x);
    return i + (float(i) < x);
}

}  // namespace

void Registration::depthToRgb(const uint16_t* depth, uint16_t* out) {
    std::memset(out, 0, size_t(rgbW_) * rgbH_ * sizeof(uint16_t));
    const unsigned w = tof_.width(), h = tof_.height();
    const float maxU = float(rgbW_) - 0.5f, maxV = float(rgbH_) - 0.5f;
    // Projections of every depth pixel first, so each pixel can see where its
    // right and lower neighbours landed.
    for (unsigned v = 0; v < h; ++v)
        for (unsigned u = 0; u < w; ++u) {
            const uint32_t i = v * w + u;
            Projected& p = projected_[i];
            if (depth[i] == 0 || !project(u, v, depth[i], p.u, p.v, p.z)) p.z = 0;
        }
    uint32_t* src = source_.data();
    for (unsigned v = 0; v < h; ++v) {
        for (unsigned u = 0; u < w; ++u) {
            const uint32_t i = v * w + u;
            const Projected& p = projected_[i];
            if (p.z == 0) continue;
            // The pixel owns the colour pixels between its own projection and
            // those of its right and lower neighbours when they lie on the same
            // surface (depth within 5 %), so neighbouring quads tile the
            // surface without gaps or overlap, steep surfaces included. Across
            // a depth jump it keeps one colour pixel and the gap stays: the
            // colour camera sees something there the ToF camera does not.
            float u0 = p.u, u1 = p.u, v0 = p.v, v1 = p.v;
            const float tolerance = 0.05f * p.z;
            auto extend = [&](const Projected& n) {
                if (n.z == 0 || std::fabs(n.z - p.z) > tolerance) return;
                u0 = std::min(u0, n.u);
                u1 = std::max(u1, n.u);
                v0 = std::min(v0, n.v);
                v1 = std::max(v1, n.v);
            };
            if (u + 1 < w) extend(projected_[i + 1]);
            if (v + 1 < h) extend(projected_[i + w]);
            if (u + 1 < w && v + 1 < h) extend(projected_[i + w + 1]);
            if (u1 < -0.5f || v1 < -0.5f || u0 > maxU || v0 > maxV) continue;
            // A wild point must not paint a large patch.
            u1 = std::min({u1, u0 + 8.0f, maxU});
            v1 = std::min({v1, v0 + 8.0f, maxV});
            // Half-open [ceil(u0), ceil(u1)); a degenerate range becomes the
            // nearest pixel.
            int x0 = ceilPositive(std::max(u0, 0.0f)), x1 = ceilPositive(std::max(u1, 0.0f)) - 1;
            int y0 = ceilPositive(std::max(v0, 0.0f)), y1 = ceilPositive(std::max(v1, 0.0f)) - 1;
            if (x1 < x0) x0 = x1 = std::min(int(std::max(p.u, 0.0f) + 0.5f), int(rgbW_) - 1);
            if (y1 < y0) y0 = y1 = std::min(int(std::max(p.v, 0.0f) + 0.5f), int(rgbH_) - 1);
            const uint16_t zq = uint16_t(std::min(65535.0f, p.z + 0.5f));
            for (int y = y0; y <= y1; ++y) {
                uint16_t* row = out + size_t(y) * rgbW_;
                uint32_t* srow = src + size_t(y) * rgbW_;
                for (int x = x0; x <= x1; ++x) {
                    if (row[x] == 0 || zq < row[x]) {
                        row[x] = zq;
                        srow[x] = i;
                    }
                }
            }
        }
    }
}

void Registration::rgbToDepth(const uint16_t* depth, const uint16_t* zbuffer, const RGB888Pixel* rgb,
                              RGB888Pixel* out) const {
    const size_t n = size_t(tof_.width()) * tof_.height();
    const float maxU = float(rgbW_) - 0.5f, maxV = float(rgbH_) - 0.5f;
    for (size_t i = 0; i < n; ++i) {
        out[i] = RGB888Pixel{0, 0, 0};
        const Projected& p = projected_[i];
        if (depth[i] == 0 || p.z == 0) continue;
        if (p.u < -0.5f || p.v < -0.5f || p.u >= maxU || p.v >= maxV) continue;
        const size_t j = size_t(int(p.v + 0.5f)) * rgbW_ + size_t(int(p.u + 0.5f));
        // The colour camera sees something nearer here: this surface is
        // hidden from it and its colour would belong to the occluder. The
        // margin absorbs depth noise between neighbouring pixels.
        const float nearest = float(zbuffer[j]);
        if (nearest > 0 && p.z > nearest + 10.0f + 0.03f * nearest) continue;
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
