// Colour camera model: renders the same scene from the colour camera's own
// position with simple lighting and procedural textures, then applies
// exposure, gain, contrast and a display gamma.
#pragma once

#include <cstdint>
#include <memory>
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

    struct PixelRect {
        int u0, v0, u1, v1;
    };

private:
    // Reflected light (albedo x shading) per pixel and channel, fixed point,
    // for the scene without the sphere: the same for every frame and every
    // camera of this geometry, so it is built once.
    struct StaticLight {
        std::vector<uint16_t> level;
    };
    static std::shared_ptr<const StaticLight> staticLight(RgbSensor& geometry);

    PixelRect project(const Box3& b) const;
    PixelRect projectSphere(const Vec3& c) const;
    void buildToneCurve(int contrast);
    void toneStaticImage(float levelToIndex);
    // Traces columns [u0,u1) of row v and writes their light levels.
    void shadeRow(int v, int u0, int u1, const Scene& scene, const PixelRect& sphere, uint16_t* level);

    int w_, h_;
    Intrinsics k_;
    Vec3 centre_;
    std::vector<float> dx_, dy_;  // ray direction per column / row (z = 1)
    PixelRect palletRect_, boxRect_, pillarRect_;
    std::shared_ptr<const StaticLight> static_;
    std::vector<uint8_t> tone_;  // light level index (0..4095) -> display value
    int toneContrast_ = -1;
    // The static image after exposure and tone curve, redone only when those
    // change, so a steady frame costs little more than adding noise.
    std::vector<uint8_t> toned_;
    float tonedLevelToIndex_ = -1.0f;
    std::vector<int8_t> noise_;  // longer than the table index range by a row
    // Per-row scratch: distance, surface and normal of the nearest hit, light.
    std::vector<float> rowT_;
    std::vector<Surface> rowSurface_;
    std::vector<Vec3> rowNormal_;
    std::vector<uint16_t> rowLevel_;
};

}  // namespace d3sim
