#include "CameraSettings.h"

namespace d3sim {

namespace {
// Longest exposures that still fit in one frame period; rows 20..25 share the
// last entry because the sensor read-out, not the period, limits them.
constexpr ExposureLimit kLimits[] = {
    {4000, 10000}, {4000, 5000}, {4000, 4000}, {4000, 3000}, {4000, 2500},  // 1..5
    {2000, 2200},  {2000, 1900}, {2000, 1600}, {2000, 1300}, {2000, 1250},  // 6..10
    {1300, 1210},  {1300, 1170}, {1300, 1130}, {1300, 1090}, {1300, 1050},  // 11..15
    {1000, 1010},  {1000, 970},  {1000, 930},  {1000, 890},                 // 16..19
    {1000, 625},                                                            // 20..25
};
}  // namespace

ExposureLimit exposureLimitForFps(int fps) {
    if (fps < 1) fps = 1;
    if (fps > 20) fps = 20;
    return kLimits[fps - 1];
}

}  // namespace d3sim
