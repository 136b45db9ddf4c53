// Depth, IR and colour frames into the pictures the panes show: depth
// coloured between the colour-mapping limits, IR in grey, colour as it is.
// Runs on the frame workers; the limits come from the GUI thread.
#pragma once

#include <atomic>

#include "frameconvert.h"
#include "frameconverter.h"

class ImageConverter final : public FrameConverter {
public:
    // Millimetres; the depth colouring reads both once per frame.
    void setColourRange(int minDistance, int maxDistance) {
        min_ = minDistance;
        max_ = maxDistance;
    }
    int minDistance() const { return min_; }
    int maxDistance() const { return max_; }

    void convertDepth(const DistanceData& depth, QImage& image, ValueMatrix<double>& values) override;
    void convertIr(const GrayscaleData& ir, QImage& image, ValueMatrix<double>& values) override;
    void convertRgb(const RgbImageData& rgb, QImage& image, ValueMatrix<QRgb>& values) override;

private:
    std::atomic<int> min_{100};
    std::atomic<int> max_{5000};
    DepthColorTable depthColors_;  // workers only; the frame lock keeps one at a time
};
