#include "cloudcamera.h"

CameraPreset cameraPreset(int type, int widgetWidth, int widgetHeight) {
    CameraPreset p{};
    p.sproportion = widgetWidth > 0 ? double(widgetHeight) / double(widgetWidth) : 0.0;
    // A window taller than the frame's own shape would cut the cloud's top
    // and bottom, so the camera backs off in proportion.
    p.cameraAddDis = p.sproportion > kBestProportion ? (p.sproportion - kBestProportion) * 3000.0 : 0.0;
    const double add = p.cameraAddDis;
    switch (type) {
        case CAMERA_NEAR_MAIN_VIEW:
            p.position = {0, 0, -1600 - add};
            p.focalPoint = {0, 0, 800};
            p.viewUp = {0, -1, 0};
            break;
        case CAMERA_TOP_VIEW:
            p.position = {0, -8000 - add, 1000};
            p.focalPoint = {0, 0, 1000};
            p.viewUp = {0, 0, 1};
            break;
        case CAMERA_LEFT_VIEW:
            p.position = {-6000 - add, 0, 1000};
            p.focalPoint = {0, 0, 1000};
            p.viewUp = {0, -1, 0};
            break;
        default:
            p.position = {0, 0, -1200 - add};
            p.focalPoint = {0, 0, 800};
            p.viewUp = {0, -1, 0};
            break;
    }
    return p;
}
