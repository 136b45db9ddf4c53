#include "imageconverter.h"

void ImageConverter::convertDepth(const DistanceData& depth, QImage& image, ValueMatrix<double>& values) {
    ::convertDepth(depth.data(), std::size_t(depth.rows()) * depth.cols(), min_, max_, depthColors_, image, values);
}

void ImageConverter::convertIr(const GrayscaleData& ir, QImage& image, ValueMatrix<double>& values) {
    ::convertIr(ir.data(), std::size_t(ir.rows()) * ir.cols(), image, values);
}

void ImageConverter::convertRgb(const RgbImageData& rgb, QImage& image, ValueMatrix<QRgb>& values) {
    ::convertRgb(rgb.data(), std::size_t(rgb.rows()) * rgb.cols(), image, values);
}
