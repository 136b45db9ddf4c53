// Synthetic ToF + RGB frames of a slowly moving scene. Pure computation: no
// sockets, no threads. Deterministic for (model, seed, frame number, settings
// history) so tests can check content exactly.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "CameraSettings.h"

namespace d3sim {

struct Intrinsics {
    float fx, fy, cx, cy;
    float k1 = 0, k2 = 0, k3 = 0, p1 = 0, p2 = 0;
};

// Pose of the RGB camera in the ToF camera frame: p_rgb = R * p_tof + t (mm).
struct Extrinsics {
    float r[9];
    float t[3];
};

struct FrameSet {
    uint32_t frameId = 0;
    uint64_t timestampUs = 0;         // sensor time of the exposure
    std::vector<uint16_t> depth;      // 640x480, mm, 0 = no measurement
    std::vector<uint8_t> ir;          // 640x480, amplitude after gamma
    std::vector<uint16_t> amplitude;  // 640x480, raw amplitude (the second 16-bit image)
    int rgbWidth = 0, rgbHeight = 0;  // 0 for models without colour
    std::vector<uint8_t> rgb;         // rgbWidth*rgbHeight*3, R,G,B
};

class FrameGenerator {
public:
    // model: the model digit '0'..'4'; '3' gives 1920x1080 colour, '4' 1600x1200.
    FrameGenerator(char model, uint64_t seed);
    ~FrameGenerator();

    Intrinsics tofIntrinsics() const;
    Intrinsics rgbIntrinsics() const;  // zeros for models without colour
    Extrinsics rgbExtrinsics() const;
    int rgbWidth() const;
    int rgbHeight() const;

    // Renders frame `frameNo` with `settings` into `out`, reusing its storage.
    // Stateful filters (time median, auto exposure) keep history between calls;
    // reset() clears it.
    void render(uint64_t frameNo, const CameraSettings& settings, FrameSet& out);
    void reset();

    // Exposure chosen by auto exposure for the last frame (equals the manual
    // exposure when auto exposure is off).
    int effectiveExposureUs() const;
    // Exposure the colour camera used for the last frame (auto or manual,
    // after the frame-rate cap); 0 for models without colour.
    int effectiveRgbExposureUs() const;

    // Noise-free planar depth (mm) at each ToF pixel centre for frame
    // `frameNo`: no wrapping, edge mixing, multipath or noise; 0 where a ray
    // hits nothing. For checks against the known scene geometry (Scene.h).
    void renderGroundTruth(uint64_t frameNo, std::vector<float>& depthMm) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace d3sim
