#include "panegrid.h"

std::optional<GridStretch> proportionFor(bool ir, bool cp, bool dep) {
    if (ir && cp && dep) return GridStretch{1, 1, 1, 1};
    if (!ir && cp && dep) return GridStretch{1, 1, 0, 0};
    if (!ir && cp && !dep) return GridStretch{0, 0, 0, 0};
    if (dep) {
        // Depth without the point cloud fills column 0 alone; with IR beside
        // it the two columns share the width evenly.
        return ir ? GridStretch{0, 0, 1, 1} : GridStretch{0, 0, 0, 0};
    }
    return std::nullopt;
}

QSize paneCellSize(QSize area, int horizontalSpacing, int verticalSpacing, const QMargins& margins) {
    const int w = (area.width() - 12 - horizontalSpacing - margins.left() - margins.right()) / 2;
    const int h = (area.height() - 12 - verticalSpacing - margins.top() - margins.bottom()) / 2;
    return QSize(w, h);
}
