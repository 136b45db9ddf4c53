#include "exposurelimits.h"

void fillFrameRateLimits(FrameRateLimits& map) {
    static const int kRgbMax[] = {10000, 5000, 4000, 3000, 2500, 2200, 1900, 1600, 1300, 1250,
                                  1210,  1170, 1130, 1090, 1050, 1010, 970,  930,  890,  625};
    map.clear();
    for (int fps = 1; fps <= 25; ++fps) {
        const int tofMax = fps <= 5 ? 4000 : fps <= 10 ? 2000 : fps <= 15 ? 1300 : 1000;
        // The frame-rate editor stops at 20; 21..25 keep the 20 fps limits so
        // a camera reporting a higher rate still finds a row.
        const int rgbMax = kRgbMax[(fps <= 20 ? fps : 20) - 1];
        map.insert(fps, qMakePair(tofMax, rgbMax));
    }
}
