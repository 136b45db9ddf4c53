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

inline bool Registration::project(unsigned u, unsigned v, uint16_t d, float& ur, float& vr, float& zr) const {
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

void Registration::depthToRgb(const uint16_t* depth, uint16_t* out, bool trackSource) {
    std::memset(out, 0, size_t(rgbW_) * rgbH_ * sizeof(uint16_t));
    const unsigned w = tof_.width(), h = tof_.height();
    const int W = int(rgbW_), H = int(rgbH_);
    // Project every depth pixel first, so each one can see where its right and
    // lower neighbours landed. Integer pixel bounds are worked out here once
    // rather than for each of the up to four quads a projection takes part in.
    for (unsigned v = 0; v < h; ++v)
        for (unsigned u = 0; u < w; ++u) {
            const uint32_t i = v * w + u;
            Projected& p = projected_[i];
            float pu, pv, pz;
            if (depth[i] == 0 || !project(u, v, depth[i], pu, pv, pz) || pz > 65535.0f) {
                p.z = 0;
                continue;
            }
            p.z = uint16_t(pz + 0.5f);
            p.cu = int16_t(ceilPositive(std::clamp(pu, 0.0f, float(W))));
            p.cv = int16_t(ceilPositive(std::clamp(pv, 0.0f, float(H))));
            const bool inside = pu >= -0.5f && pv >= -0.5f && pu < float(W) - 0.5f && pv < float(H) - 0.5f;
            p.nu = inside ? int16_t(pu + 0.5f) : int16_t(-1);
            p.nv = inside ? int16_t(pv + 0.5f) : int16_t(-1);
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
            int x0 = p.cu, x1 = p.cu, y0 = p.cv, y1 = p.cv;
            const int tolerance = p.z / 20;
            auto extend = [&](const Projected& n) {
                if (n.z == 0 || std::abs(int(n.z) - int(p.z)) > tolerance) return;
                x0 = std::min(x0, int(n.cu));
                x1 = std::max(x1, int(n.cu));
                y0 = std::min(y0, int(n.cv));
                y1 = std::max(y1, int(n.cv));
            };
            if (u + 1 < w) extend(projected_[i + 1]);
            if (v + 1 < h) {
                extend(projected_[i + w]);
                if (u + 1 < w) extend(projected_[i + w + 1]);
            }
            // Half-open ranges; a degenerate one becomes the nearest pixel.
            x1 = std::min(x1, x0 + 8) - 1;  // a wild point must not paint a large patch
            y1 = std::min(y1, y0 + 8) - 1;
            if (x1 < x0 || y1 < y0) {
                if (p.nu < 0) continue;
                if (x1 < x0) x0 = x1 = p.nu;
                if (y1 < y0) y0 = y1 = p.nv;
            }
            const uint16_t zq = p.z;
            for (int y = y0; y <= y1; ++y) {
                uint16_t* row = out + size_t(y) * rgbW_;
                if (trackSource) {
                    uint32_t* srow = src + size_t(y) * rgbW_;
                    for (int x = x0; x <= x1; ++x) {
                        if (row[x] == 0 || zq < row[x]) {
                            row[x] = zq;
                            srow[x] = i;
                        }
                    }
                } else {
                    for (int x = x0; x <= x1; ++x)
                        if (row[x] == 0 || zq < row[x]) row[x] = zq;
                }
            }
        }
    }
}

void Registration::rgbToDepth(const uint16_t* depth, const uint16_t* zbuffer, const RGB888Pixel* rgb,
                              RGB888Pixel* out) const {
    const size_t n = size_t(tof_.width()) * tof_.height();
    for (size_t i = 0; i < n; ++i) {
        out[i] = RGB888Pixel{0, 0, 0};
        const Projected& p = projected_[i];
        if (depth[i] == 0 || p.z == 0 || p.nu < 0) continue;
        const size_t j = size_t(p.nv) * rgbW_ + size_t(p.nu);
        // The colour camera sees something nearer here: this surface is
        // hidden from it and its colour would belong to the occluder. The
        // margin absorbs depth noise between neighbouring pixels.
        const float nearest = float(zbuffer[j]);
        if (nearest > 0 && float(p.z) > nearest + 10.0f + 0.03f * nearest) continue;
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
