// Alignment between the ToF camera and the colour camera.
#pragma once

#include <cstdint>
#include <vector>

#include "PointProjector.h"
#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// Pose of the colour camera in the ToF frame: p_rgb = R * p_tof + t (mm).
struct Extrinsics {
    float r[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float t[3] = {0, 0, 0};
};

class Registration {
public:
    void configure(const CameraIntrinsicParam& tof, unsigned tofWidth, unsigned tofHeight,
                   const CameraIntrinsicParam& rgb, unsigned rgbWidth, unsigned rgbHeight, const Extrinsics& ext);

    unsigned rgbWidth() const { return rgbW_; }
    unsigned rgbHeight() const { return rgbH_; }
    const PointProjector& projector() const { return tof_; }

    // Depth seen from the colour camera at its resolution (out: rgbW*rgbH, mm,
    // 0 where nothing projects). The nearest surface wins, and each depth pixel
    // covers the area up to its neighbours on the same surface, so the result
    // is a closed surface rather than a dot pattern (the colour image has
    // several times the pixels). With trackSource it also remembers which
    // depth pixel won each colour pixel, for colouredRgbPoints().
    void depthToRgb(const uint16_t* depth, uint16_t* out, bool trackSource = true);
    const uint32_t* sourceIndex() const { return source_.data(); }

    // Colour of every depth pixel (out: tofW*tofH). Uses the z-buffer and the
    // projections of the last depthToRgb() call, which must have been made
    // for the same depth frame: a pixel hidden behind a nearer surface in the
    // colour camera's view, or without depth, gets black.
    void rgbToDepth(const uint16_t* depth, const uint16_t* zbuffer, const RGB888Pixel* rgb, RGB888Pixel* out) const;

    // Coloured points in the ToF frame, one per depth pixel; returns the count
    // of points with a measurement.
    unsigned colouredTofPoints(const uint16_t* depth, const RGB888Pixel* colour, const uint8_t* ir,
                               PointXYZRGBI* out) const;
    // Coloured points in the colour camera frame, one per colour pixel, from
    // the registered depth; intensity from the depth pixel that won the pixel
    // (the last depthToRgb() must have tracked sources).
    unsigned colouredRgbPoints(const uint16_t* registered, const RGB888Pixel* rgb, const uint8_t* ir,
                               PointXYZRGBI* out) const;

private:
    bool project(unsigned u, unsigned v, uint16_t d, float& ur, float& vr, float& zr) const;

    PointProjector tof_;
    PointProjector rgbRays_;  // back-projection tables of the colour camera
    CameraIntrinsicParam rgbK_{};
    unsigned rgbW_ = 0, rgbH_ = 0;
    Extrinsics ext_;
    // Kept small: written and read once per depth pixel per frame.
    struct Projected {
        uint16_t z;      // depth in the colour camera, mm; 0: none or behind it
        int16_t cu, cv;  // ceil of the projected u and v, clamped to the image (quad bounds)
        int16_t nu, nv;  // nearest colour pixel, -1 outside the image
    };
    std::vector<Projected> projected_;
    std::vector<uint32_t> source_;
};

}  // namespace d3sdk
