// Names for the SDK containers as the viewer uses them, and the two small
// records that travel beside them.
#pragma once

#include <d3_sdk/DeviceManager.h>

#include <cstdint>

using GrayscaleData = DataContainer<uint8_t>;     // IR amplitude, one byte per pixel
using DistanceData = DataContainer<uint16_t>;     // depth in mm, 0 = no measurement
using RgbImageData = DataContainer<RGB888Pixel>;  // colour, bytes R, G, B
using PointcloudData = DataContainer<PointXYZ>;   // x, y, z in mm
using RgbPointcloudData = DataContainer<PointXYZRGBI>;

// Which stream a record handed to the frame writers came from; the writers
// pick their file names from it.
enum dataType : int {
    DATA_TYPE_IR = 0,
    DATA_TYPE_RGB = 1,
    DATA_TYPE_DEPTH = 2,
    DATA_TYPE_POINTCLOUD = 3,
};

// A detected tray area in IR image pixels.
struct PalletArea {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;
};

// A detected tray: four measurements shown beside it and its rectangle on
// the IR image.
struct TrayArea {
    float measurements[4] = {0, 0, 0, 0};
    PalletArea area;
};
