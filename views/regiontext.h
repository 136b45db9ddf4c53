// The figures of a region as its label shows them: millimetres on depth,
// grey levels on IR, one line per channel on colour.
#pragma once

#include <QString>

#include "frameanalysis.h"

QString regionStatsText(const FrameFigures& figures);
