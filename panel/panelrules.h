// Value rules of the control panel that need no widget: how editor values
// become camera values and back, and which exposures a frame rate allows.
#pragma once

#include <QString>

#include "exposurelimits.h"

namespace PanelRules {

// Longest ToF and RGB exposures allowed at a frame rate.
struct ExposureLimits {
    int tofMax;
    int rgbMax;
};

// Limits for fps from the table. A rate outside the table takes its nearest
// row, so a camera reporting an odd rate still gets sane editor ranges.
ExposureLimits exposureLimits(const FrameRateLimits& map, int fps);

// A number from a file or a camera as an int: NaN reads as 0, values beyond
// an int saturate (a plain cast would be undefined).
int saturatingInt(double v);
// The time-domain and spatial filters take an odd kernel size 2v+1.
float kernelSize(int v);
// Inverse for the time editor: (k - 1) / 2, truncated.
int timeEditorValue(float kernel);
// Spatial kernel to the index of the item "1", "2", "3" of the kernel combo,
// (k - 1) / 2 - 1 truncated, kept inside the three items.
int spatialComboIndex(float kernel);
// Kernel sent when the spatial check box is ticked: 3 for the item "1",
// 5 for any other item (also for "3", which the combo itself sends as 7).
float spatialKernelForCheckBox(const QString& comboText);

// The frame-rate editor stops at 20; cameras running at 25 or 30 show 20.
int frameRateForEditor(int fps);
// A camera in fast mode reports exposure 0; the editor's floor is 6.
int exposureForEditor(int us);
// Fast mode is what a camera reporting exposure 0 is running.
bool isFastModeExposure(int us);

// "1 7": enable flag as 1/0, a blank, the value in its shortest form.
QString filterLogText(bool enable, float value);

// The fixed second value the panel puts into every filter parameter.
constexpr float kFilterValue2 = 100.0f;

}  // namespace PanelRules
