// Rules of a camera session that need no window: what a serial number says
// about the camera model, and the address part of a device-list entry.
#pragma once

#include <QString>
#include <string>

struct CameraModel {
    bool known = false;            // false: "Unrecognized device"
    QString name;                  // text of the model label
    bool triggerControls = false;  // the camera takes trigger modes
    bool rgbLayout = false;        // the window shows the colour pane and its controls
    bool rgbFrames = false;        // frames come through the combined depth + colour read
};

// The model digit is the serial number's ninth character. A serial too short
// to hold it selects nothing, like an unknown digit.
CameraModel cameraModelFromSerial(const std::string& serial);

// Everything after the last ':' of a device-list entry ("serial:ip"); the
// whole text when it holds no ':'.
QString addressFromDeviceText(const QString& text);
