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
    // Fills the projections of depth row v (`depth` points at the row).
    void projectRow(const uint16_t* depth, unsigned v);
    // Works out the colour pixels each depth pixel of row v owns, into the
    // row's quad bounds.
    void quadsOfRow(unsigned v);
    // Writes the quads of row v into the depth seen from the colour camera.
    void fillRow(unsigned v, uint16_t* out, bool trackSource);

    PointProjector tof_;
    PointProjector rgbRays_;  // back-projection tables of the colour camera
    CameraIntrinsicParam rgbK_{};
    unsigned rgbW_ = 0, rgbH_ = 0;
    Extrinsics ext_;
    // Each depth pixel's projection, one array per field so that eight
    // pixels are worked on at once (with room to read eight past the end):
    std::vector<uint16_t> z_;       // depth in the colour camera, mm; 0: none or behind it
    std::vector<int16_t> cu_, cv_;  // ceil of the projected u and v, clamped to the image (quad bounds)
    std::vector<int16_t> nu_, nv_;  // nearest colour pixel, -1 outside the image
    // The colour pixels a depth pixel of the current row owns: columns
    // [x0, x0 + span), rows [y0, y1]; span 0 owns none.
    std::vector<int16_t> x0_, span_, y0_, y1_;
    std::vector<uint32_t> source_;
};

}  // namespace d3sdk
