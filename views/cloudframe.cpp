#include "cloudframe.h"

#include <algorithm>
#include <cstring>

int copyCloudPoints(const float* xyz, int count, float* points, float* depth) {
    int valid = 0;
    for (int i = 0; i < count; ++i) {
        const float x = xyz[3 * i], y = xyz[3 * i + 1], z = xyz[3 * i + 2];
        const bool ok = isValidCloudDepth(z);
        // Selects rather than branches keep this loop vectorisable.
        points[3 * i] = ok ? x : 0.0f;
        points[3 * i + 1] = ok ? y : 0.0f;
        points[3 * i + 2] = ok ? z : 0.0f;
        depth[i] = ok ? z : 0.0f;
        valid += ok;
    }
    return valid;
}

CloudGrid cloudGridFor(unsigned sourceCols) {
    if (sourceCols == 1920) return {kFullHdGridWidth, kFullHdGridHeight};
    return {kCloudWidth, kCloudHeight};
}

int copyRgbCloudPoints(const RgbPointcloudData& frame, CloudGrid grid, float* points, float* depth, uint8_t* colours) {
    const std::size_t n = std::size_t(grid.points());
    std::memset(points, 0, n * 3 * sizeof(float));
    std::memset(depth, 0, n * sizeof(float));
    if (colours) std::memset(colours, 0, n * 3);

    const std::size_t cols = frame.cols();
    const std::size_t rows = frame.rows();
    const std::size_t available = std::min<std::size_t>(rows * cols, frame.getNumberSize());
    const PointXYZRGBI* src = frame.data();
    int valid = 0;
    for (int i = 0; i < grid.rows; ++i) {
        const std::size_t srcRow = std::size_t(i) * cols / std::size_t(grid.cols);
        if (srcRow >= rows) break;
        for (int j = 0; j < grid.cols; ++j) {
            const std::size_t srcIndex = srcRow * cols + std::size_t(j) * cols / std::size_t(grid.cols);
            if (srcIndex >= available) break;
            const PointXYZRGBI& p = src[srcIndex];
            if (!isValidCloudDepth(p.z)) continue;
            const std::size_t k = std::size_t(i) * grid.cols + j;
            points[3 * k] = p.x;
            points[3 * k + 1] = p.y;
            points[3 * k + 2] = p.z;
            depth[k] = p.z;
            if (colours) {
                colours[3 * k] = p.r;
                colours[3 * k + 1] = p.g;
                colours[3 * k + 2] = p.b;
            }
            ++valid;
        }
    }
    return valid;
}
