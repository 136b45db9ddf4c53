// Time-of-flight sensor model: turns the scene into per-pixel returns (phasors
// at the two modulation frequencies) and measures them with shot and read
// noise, saturation and phase wrapping.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "FrameGenerator.h"
#include "Noise.h"
#include "Scene.h"

namespace d3sim {

namespace tof {
constexpr float kSpeedOfLightMmPerUs = 299792.458f;
constexpr float kFreq1MHz = 60.0f;  // the single-frequency mode uses this one alone
constexpr float kFreq2MHz = 50.0f;
// Unambiguous ranges c/2f; the pair together repeats only at c/2(f1-f2).
constexpr float kRange1Mm = kSpeedOfLightMmPerUs / (2.0f * kFreq1MHz);                   // ~2498 mm
constexpr float kRange2Mm = kSpeedOfLightMmPerUs / (2.0f * kFreq2MHz);                   // ~2998 mm
constexpr float kRangeBeatMm = kSpeedOfLightMmPerUs / (2.0f * (kFreq1MHz - kFreq2MHz));  // ~14990 mm
// Amplitude A = kAmpScale * reflectivity * cos(incidence) * exposureUs / range^2 (mm).
constexpr float kAmpScale = 3.2e6f;
constexpr float kFullWell = 4095.0f;      // a raw sample above this is clipped: depth invalid
constexpr float kAmbientFraction = 0.1f;  // background light relative to the modulated signal
constexpr float kDarkPerUs = 0.005f;      // dark signal per microsecond of exposure
constexpr float kShotGain = 0.25f;        // variance per DN of collected signal
constexpr float kReadNoise = 3.0f;        // DN per raw sample
}  // namespace tof

struct TofMeasureMode {
    float exposureUs = 1000.0f;
    bool dualFrequency = true;
    float noiseScale = 1.0f;  // >1 in the single-integration (fast) mode
};

class TofSensor {
public:
    explicit TofSensor(const Intrinsics& k);

    const Intrinsics& intrinsics() const { return k_; }
    // Noise-free planar depth (Z, mm) along each pixel's centre ray.
    void renderGroundTruth(uint64_t frameNo, std::vector<float>& zMm) const;
    // Updates the per-pixel returns for the moving part of the scene.
    void prepareFrame(uint64_t frameNo);
    // Measures every pixel. saturated[i] is set where a raw sample clipped.
    void measure(const TofMeasureMode& mode, Rng& rng, uint16_t* depth, uint16_t* amplitude, uint8_t* saturated) const;
    // Measures only the listed pixels (the short exposure of HDR).
    void measurePixels(const TofMeasureMode& mode, Rng& rng, const std::vector<int>& pixels, uint16_t* depth,
                       uint16_t* amplitude, uint8_t* saturated) const;

    // Area (pixels [u0,u1) x [v0,v1)) that the moving sphere may cover.
    struct Rect {
        int u0 = 0, v0 = 0, u1 = 0, v1 = 0;
        bool contains(int u, int v) const { return u >= u0 && u < u1 && v >= v0 && v < v1; }
    };
    Rect sphereRect(uint64_t frameNo) const;

private:
    // Per-pixel returns, structure of arrays: amplitude per microsecond of
    // exposure and phase in cycles [0,1) for each frequency, plus the noise-free
    // Z of the centre ray.
    struct Returns {
        std::vector<float> amp1, cyc1, amp2, cyc2, z;
        int width = 0;
        void resize(int w, int h);
    };
    // The scene without the sphere never changes: built once per process and
    // shared by every camera.
    struct StaticImage : Returns {
        std::vector<float> dirZ;  // z component of each centre ray's unit direction
    };
    // Working storage of buildReturns, kept so frames do not allocate.
    struct BuildScratch {
        std::vector<Hit> hits;
        std::vector<float> z;
        std::vector<uint8_t> onSphere;
        std::vector<float> returns;  // (range, amplitude) pairs
    };
    static std::shared_ptr<const StaticImage> staticImage(const Intrinsics& k);
    static void buildReturns(const Intrinsics& k, const Scene& scene, const Rect& r, const StaticImage* background,
                             Returns& out, BuildScratch& scratch);

    Intrinsics k_;
    std::shared_ptr<const StaticImage> static_;
    Returns overlay_;  // sphereRect only, full scene
    BuildScratch scratch_;
    Rect overlayRect_;
    uint64_t preparedFrame_ = ~0ull;
};

}  // namespace d3sim
