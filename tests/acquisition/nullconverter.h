// A frame converter that draws nothing, for tests that do not look at pictures.
#pragma once

#include "frameconverter.h"

class NullConverter final : public FrameConverter {
public:
    void convertDepth(const DistanceData&, QImage&, ValueMatrix<double>&) override {}
    void convertIr(const GrayscaleData&, QImage&, ValueMatrix<double>&) override {}
    void convertRgb(const RgbImageData&, QImage&, ValueMatrix<QRgb>&) override {}
};
