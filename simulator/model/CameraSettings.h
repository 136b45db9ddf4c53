// Settings held by a simulated camera. The protocol server owns one instance
// per camera, changes it on control commands, persists it in the state folder,
// and hands a copy to the frame generator for every frame.
#pragma once

#include <cstdint>

namespace d3sim {

constexpr int kTofWidth = 640;
constexpr int kTofHeight = 480;

struct FilterSetting {
    bool enable = false;
    float value = 0.0f;     // kernel size (time/spatial median) or threshold
    float value2 = 100.0f;  // stored and returned unchanged
};

struct CameraSettings {
    // ToF sensor
    int tofExposureUs = 1000;
    bool tofAutoExposure = false;
    bool singleIntegral = false;  // fast mode: one integration, noisier
    bool hdr = false;             // merge a short and a long exposure
    int frameRate = 20;           // 1..25; caps the exposure (limit table)
    int irGamma = 0;              // 0..255
    int triggerMode = 0;          // 0 free-run, 1 software, 2 hardware, 3 hardware + delay
    int hardTriggerDelayMs = 0;
    int hardTriggerDelayUs = 0;
    int frequencyMode = 0;  // 0 dual frequency (long range), 1 single (short range)
    FilterSetting timeMedian{false, 3.0f, 100.0f};
    FilterSetting flyPixel{false, 1.0f, 100.0f};
    FilterSetting confidence{false, 1.0f, 100.0f};
    FilterSetting spatial{false, 3.0f, 100.0f};

    // RGB sensor (models 3 and 4)
    bool rgbAutoExposure = true;
    int rgbExposureUs = 625;
    int rgbGain = 0;        // 0..1023
    int rgbContrast = 100;  // 100..500
};

// Frame rate -> maximum ToF and RGB exposure (microseconds).
struct ExposureLimit {
    int tofMaxUs;
    int rgbMaxUs;
};
ExposureLimit exposureLimitForFps(int fps);

}  // namespace d3sim
