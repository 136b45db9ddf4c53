// Arithmetic of the four-pane view grid, kept apart from the widgets so the
// rules can be checked directly.
#pragma once

#include <QMargins>
#include <QSize>
#include <optional>

// Stretch factors of the 2 x 2 view grid: depth and point cloud in column 0,
// IR and RGB in column 1.
struct GridStretch {
    int row0;
    int row1;
    int col0;
    int col1;
    bool operator==(const GridStretch& o) const {
        return row0 == o.row0 && row1 == o.row1 && col0 == o.col0 && col1 == o.col1;
    }
};

// Factors for the visible IR, point cloud and depth panes; nullopt means
// "leave the grid as it is".
std::optional<GridStretch> proportionFor(bool ir, bool cp, bool dep);

// Size of one grid cell inside an area of the given size: half of what is
// left after a 12 px frame, the spacing and the margins.
QSize paneCellSize(QSize area, int horizontalSpacing, int verticalSpacing, const QMargins& margins);
