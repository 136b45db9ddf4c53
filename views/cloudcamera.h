// Camera presets of the 3D view, as plain numbers.
#pragma once

#include <array>

enum CameraPosType : int {
    CAMERA_MAIN_VIEW = 0,
    CAMERA_NEAR_MAIN_VIEW = 1,
    CAMERA_TOP_VIEW = 2,
    CAMERA_LEFT_VIEW = 3,
};

// Height/width ratio at which the main view just shows the whole ToF frame.
constexpr double kBestProportion = 0.7780979827089337;

struct CameraPreset {
    double sproportion;   // widget height / width
    double cameraAddDis;  // how far the camera moves back for a taller window
    std::array<double, 3> position;
    std::array<double, 3> focalPoint;
    std::array<double, 3> viewUp;
};

// Preset for a camera type in a widget of the given size. Unknown types give
// the main view; a widget with no width yet is treated as not tall.
CameraPreset cameraPreset(int type, int widgetWidth, int widgetHeight);
