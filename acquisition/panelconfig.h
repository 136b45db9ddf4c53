// The control panel's settings as one record: what a configuration file
// holds and what an import applies. Field by field the panel's controls.
#pragma once

struct PanelConfig {
    int triggerMode = 0;  // 0 normal, 1 software, 2 hardware, 3 hardware with delay
    int irGamma = 0;
    int minColorMap = 0;
    int maxColorMap = 0;
    bool autoExposure = false;
    bool hdr = false;
    int exposureTime = 0;
    bool spatialFilter = false;
    int timeFilter = 0;
    int confidenceFilter = 0;
    int flyFilter = 0;
    bool timeFilterOn = false;
    bool confidenceFilterOn = false;
    bool flyFilterOn = false;
    bool depShow = false;
    bool irShow = false;
    bool cpShow = false;
    bool rgbShow = false;
    int fps = 0;
    bool fastMode = false;
    bool rgb2dep = false;
    bool dep2rgb = false;
    bool rgb2pointcloud = false;
    bool rgbManual = false;
    int rgbExposureTime = 0;
    int rgbBrightness = 0;  // applied as the colour sensor's gain
    int rgbContrast = 0;
    int spatialIndex = 0;  // index of the kernel list
    int hardDelayMs = 0;
    int hardDelayUs = 0;
    bool tofFrequency = false;  // single frequency

    bool operator==(const PanelConfig& o) const;
};
