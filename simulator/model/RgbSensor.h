// Colour camera model: renders the same scene from the colour camera's own
// position with simple lighting and procedural textures, then applies
// exposure, gain, contrast and a display gamma.
#pragma once

#include <cstdint>
#include <vector>

#include "FrameGenerator.h"
#include "Scene.h"

namespace d3sim {

struct RgbExposure {
    float exposureUs = 625.0f;
    int gain = 0;        // 0..1023, 256 steps per doubling
    int contrast = 100;  // percent around mid grey
};

class RgbSensor {
public:
    // centre: the colour camera's optical centre in the ToF frame (mm). The
    // colour camera looks along the same axes as the ToF camera.
    RgbSensor(int width, int height, const Intrinsics& k, const Vec3& centre);

    int width() const { return w_; }
    int height() const { return h_; }
    // Renders into rgb (width*height*3). Returns the mean green level of a
    // sparse grid of pixels, which auto exposure steers on.
    float render(uint64_t frameNo, const RgbExposure& e, uint64_t noiseSeed, uint8_t* rgb);

    // Multiplier applied to the light level for a gain setting.
    static float gainFactor(int gain);

private:
    struct PixelRect {
        int u0, v0, u1, v1;
    };
    PixelRect project(const Box3& b) const;
    void buildToneCurve(int contrast);
    PixelRect projectSphere(const Vec3& c) const;
    void traceRow(int v, const Scene& scene, const PixelRect& sphere);

    int w_, h_;
    Intrinsics k_;
    Vec3 centre_;
    std::vector<float> dx_, dy_;  // ray direction per column / row (z = 1)
    PixelRect palletRect_, boxRect_, pillarRect_;
    std::vector<uint8_t> tone_;  // linear level (0..4095) -> display value
    int toneContrast_ = -1;
    std::vector<int8_t> noise_;
    // Per-row scratch: distance, surface and normal of the nearest hit.
    std::vector<float> rowT_;
    std::vector<Surface> rowSurface_;
    std::vector<Vec3> rowNormal_;
};

}  // namespace d3sim
