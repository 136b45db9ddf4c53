// A configuration used by the file and import tests.
#pragma once

#include "panelconfig.h"

// A file every value of which differs from a fresh camera's and from the
// panel's start values. The exposures fit the limits of the camera's 20 fps:
// the editors still have those ranges when the file's exposures reach them.
inline PanelConfig distinctConfig() {
    PanelConfig c;
    c.triggerMode = 0;
    c.irGamma = 77;
    c.minColorMap = 300;
    c.maxColorMap = 4000;
    c.autoExposure = false;
    c.hdr = false;
    c.exposureTime = 900;
    c.spatialFilter = true;
    c.timeFilter = 2;
    c.confidenceFilter = 30;
    c.flyFilter = 10;
    c.timeFilterOn = true;
    c.confidenceFilterOn = false;
    c.flyFilterOn = true;
    c.depShow = true;
    c.irShow = false;
    c.cpShow = true;
    c.rgbShow = false;
    c.fps = 10;
    c.fastMode = false;
    c.rgb2dep = false;
    c.dep2rgb = false;
    c.rgb2pointcloud = false;
    c.rgbManual = true;
    c.rgbExposureTime = 600;
    c.rgbBrightness = 200;
    c.rgbContrast = 150;
    c.spatialIndex = 1;
    c.hardDelayMs = 5;
    c.hardDelayUs = 20;
    c.tofFrequency = true;
    return c;
}
