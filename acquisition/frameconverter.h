// How a frame becomes a picture. The views provide it; the frame workers call
// it with the image's lock held, so acquisition needs no drawing code.
#pragma once

#include <QImage>

#include "framerecords.h"
#include "valuematrix.h"

class FrameConverter {
public:
    virtual ~FrameConverter() = default;
    // Each fills the image and the value behind every pixel; both are sized
    // once and must not be reallocated.
    virtual void convertDepth(const DistanceData& depth, QImage& image, ValueMatrix<double>& values) = 0;
    virtual void convertIr(const GrayscaleData& ir, QImage& image, ValueMatrix<double>& values) = 0;
    virtual void convertRgb(const RgbImageData& rgb, QImage& image, ValueMatrix<QRgb>& values) = 0;
};
