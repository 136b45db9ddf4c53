// Every frame buffer of the viewer, allocated once when the window is built.
// The SDK fills the containers in place, the acquisition workers convert them
// into the display images and value matrices, the paint slots draw the
// current ones. Nothing here allocates per frame.
#pragma once

#include <QImage>
#include <array>
#include <chrono>
#include <vector>

#include "framerecords.h"
#include "valuematrix.h"

class FrameBuffers {
public:
    static constexpr int kTofWidth = 640;
    static constexpr int kTofHeight = 480;
    static constexpr int kCloudPoints = kTofWidth * kTofHeight;
    static constexpr int kCloudFloats = kCloudPoints * 3;

    // Display image sizes, by index. The RGB list covers every colour stream
    // mode; the depth list covers depth at ToF size and mapped into colour.
    static constexpr std::array<QSize, 4> kRgbSizes{QSize(640, 480), QSize(800, 600), QSize(1600, 1200),
                                                    QSize(1920, 1080)};
    static constexpr std::array<QSize, 3> kDepthSizes{QSize(640, 480), QSize(1600, 1200), QSize(1920, 1080)};

    FrameBuffers();

    // SDK containers, filled by the frame reads.
    GrayscaleData ir;
    DistanceData depth;
    RgbImageData rgb;
    PointcloudData points;
    RgbPointcloudData rgbPoints;
    RgbPointcloudData rgbPointsCopy;  // what the 3D view gets, so the SDK may refill rgbPoints
    DistanceData amplitude;           // filled beside depth by the ToF-only read
    RgbImageData rgbToDepth;          // colour sampled at every depth pixel

    // x, y, z of every ToF pixel, handed to the 3D view by pointer.
    std::vector<float> cloudBuffer;

    QImage irImage;
    std::array<QImage, kRgbSizes.size()> rgbImages;
    // When the frame each picture (depth, IR, colour) was made from was ready
    // in the camera library, as far as it can tell; kept with the picture for
    // latency measures.
    std::array<std::chrono::steady_clock::time_point, 3> frameReady{};
    std::array<QImage, kDepthSizes.size()> depthImages;

    ValueMatrix<double> irValues;
    std::array<ValueMatrix<double>, kDepthSizes.size()> depthValues;
    std::array<ValueMatrix<QRgb>, kRgbSizes.size()> rgbValues;

    int rgbIndex() const { return rgbIndex_; }
    int depthIndex() const { return depthIndex_; }
    QImage& currentRgbImage() { return rgbImages[rgbIndex_]; }
    QImage& currentDepthImage() { return depthImages[depthIndex_]; }
    ValueMatrix<QRgb>& currentRgbValues() { return rgbValues[rgbIndex_]; }
    ValueMatrix<double>& currentDepthValues() { return depthValues[depthIndex_]; }

    // Which RGB and depth image (and matrix) are current, by index.
    struct Selection {
        int rgb;
        int depth;
        bool operator==(const Selection& o) const { return rgb == o.rgb && depth == o.depth; }
        bool operator!=(const Selection& o) const { return !(*this == o); }
    };
    Selection selection() const { return {rgbIndex_, depthIndex_}; }
    void select(Selection s);
    // The choice each read kind needs, so a caller can compare before it
    // switches (the paint side must not see a half-made switch).
    static Selection tofSelection(unsigned rgbStreamWidth);
    static Selection rgbToDepthSelection();
    static Selection depthToRgbSelection(unsigned rgbStreamWidth);

    // Current-buffer choice after a successful read, per read kind.
    void selectForTof(unsigned rgbStreamWidth);
    void selectForRgbToDepth();
    void selectForDepthToRgb(unsigned rgbStreamWidth);
    // Start-up choice: the full-HD colour image and the ToF-size depth image.
    void selectInitial();

    // Copies the point container into cloudBuffer, at most kCloudPoints
    // points; a shorter frame leaves the tail as it was. Returns the count.
    int copyPointsToCloud();

private:
    int rgbIndex_ = 3;
    int depthIndex_ = 0;
};
