// Camera intrinsics for tests that project, register or compare against a
// reference: the four numbers that matter, the rest zero.
#pragma once

#include "d3_sdk/DeviceManager.h"

inline CameraIntrinsicParam intrinsics(float fx, float fy, float cx, float cy) {
    CameraIntrinsicParam k{};
    k.fx = fx;
    k.fy = fy;
    k.cx = cx;
    k.cy = cy;
    return k;
}

// Square pixels: one focal length for both axes.
inline CameraIntrinsicParam intrinsics(float f, float cx, float cy) { return intrinsics(f, f, cx, cy); }
