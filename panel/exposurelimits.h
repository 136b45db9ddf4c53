// Longest exposures the camera can take at each frame rate.
#pragma once

#include <QHash>
#include <QPair>

// Frame rate -> (maximum ToF exposure in us, maximum RGB exposure in us).
using FrameRateLimits = QHash<int, QPair<int, int>>;

// Replaces the contents of map with the limits for 1..25 fps.
void fillFrameRateLimits(FrameRateLimits& map);
