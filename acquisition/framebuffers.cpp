#include "framebuffers.h"

#include <algorithm>
#include <cstring>

namespace {

QImage blankImage(QSize size) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::black);
    return image;
}

int indexOfSize(const QSize* first, std::size_t count, QSize size) {
    return int(std::find(first, first + count, size) - first);
}

}  // namespace

FrameBuffers::FrameBuffers()
    : ir(kTofHeight, kTofWidth),
      depth(kTofHeight, kTofWidth),
      rgb(kTofHeight, kTofWidth),
      points(kTofHeight, kTofWidth),
      rgbPoints(kTofHeight, kTofWidth),
      rgbPointsCopy(kTofHeight, kTofWidth),
      amplitude(kTofHeight, kTofWidth),
      rgbToDepth(kTofHeight, kTofWidth),
      cloudBuffer(kCloudFloats, 0.0f),
      irImage(blankImage(QSize(kTofWidth, kTofHeight))),
      irValues(kTofHeight, kTofWidth) {
    for (std::size_t i = 0; i < kRgbSizes.size(); ++i) {
        rgbImages[i] = blankImage(kRgbSizes[i]);
        rgbValues[i] = ValueMatrix<QRgb>(kRgbSizes[i].height(), kRgbSizes[i].width());
    }
    for (std::size_t i = 0; i < kDepthSizes.size(); ++i) {
        depthImages[i] = blankImage(kDepthSizes[i]);
        depthValues[i] = ValueMatrix<double>(kDepthSizes[i].height(), kDepthSizes[i].width());
    }
    selectInitial();
}

void FrameBuffers::selectInitial() {
    rgbIndex_ = indexOfSize(kRgbSizes.data(), kRgbSizes.size(), QSize(1920, 1080));
    depthIndex_ = indexOfSize(kDepthSizes.data(), kDepthSizes.size(), QSize(640, 480));
}

void FrameBuffers::select(Selection s) {
    rgbIndex_ = s.rgb;
    depthIndex_ = s.depth;
}

FrameBuffers::Selection FrameBuffers::tofSelection(unsigned rgbStreamWidth) {
    const QSize rgbSize = rgbStreamWidth == 1920 ? QSize(1920, 1080) : QSize(1600, 1200);
    return {indexOfSize(kRgbSizes.data(), kRgbSizes.size(), rgbSize),
            indexOfSize(kDepthSizes.data(), kDepthSizes.size(), QSize(640, 480))};
}

FrameBuffers::Selection FrameBuffers::rgbToDepthSelection() {
    return {indexOfSize(kRgbSizes.data(), kRgbSizes.size(), QSize(640, 480)),
            indexOfSize(kDepthSizes.data(), kDepthSizes.size(), QSize(640, 480))};
}

FrameBuffers::Selection FrameBuffers::depthToRgbSelection(unsigned rgbStreamWidth) {
    // Depth is projected into the colour camera, so both share its size.
    const QSize size = rgbStreamWidth == 1920 ? QSize(1920, 1080) : QSize(1600, 1200);
    return {indexOfSize(kRgbSizes.data(), kRgbSizes.size(), size),
            indexOfSize(kDepthSizes.data(), kDepthSizes.size(), size)};
}

void FrameBuffers::selectForTof(unsigned rgbStreamWidth) { select(tofSelection(rgbStreamWidth)); }

void FrameBuffers::selectForRgbToDepth() { select(rgbToDepthSelection()); }

void FrameBuffers::selectForDepthToRgb(unsigned rgbStreamWidth) { select(depthToRgbSelection(rgbStreamWidth)); }

int FrameBuffers::copyPointsToCloud() {
    const std::size_t available = std::size_t(points.rows()) * points.cols();
    const int count = int(std::min<std::size_t>(available, kCloudPoints));
    static_assert(sizeof(PointXYZ) == 3 * sizeof(float), "PointXYZ must be three packed floats");
    if (count > 0) std::memcpy(cloudBuffer.data(), points.data(), std::size_t(count) * sizeof(PointXYZ));
    return count;
}
