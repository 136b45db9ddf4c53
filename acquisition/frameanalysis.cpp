#include "frameanalysis.h"

#include "framebuffers.h"

FrameAnalysis::FrameAnalysis(QObject* parent) : QObject(parent) { counts_.assign(65536, 0); }

void FrameAnalysis::setRegion(RegionSource source, int x1, int y1, int x2, int y2) {
    std::lock_guard<std::mutex> lock(regionMutex_);
    regionSource_ = source;
    corners_[0] = x1;
    corners_[1] = y1;
    corners_[2] = x2;
    corners_[3] = y2;
}

void FrameAnalysis::take(FrameFigures& out) {
    std::lock_guard<std::mutex> lock(resultMutex_);
    out = result_;
    pending_ = false;
}

void FrameAnalysis::analyse(FrameBuffers& frames) {
    RegionSource source;
    int c[4];
    {
        std::lock_guard<std::mutex> lock(regionMutex_);
        source = regionSource_;
        std::copy(std::begin(corners_), std::end(corners_), c);
    }
    const bool histogram = histogramWanted_;
    if (!histogram && source == RegionSource::None) return;

    work_.histogramValid = histogram;
    if (histogram) {
        countDepths(frames.depth.data(), size_t(frames.depth.rows()) * frames.depth.cols(), counts_);
        fillHistogram(counts_, work_.histogram);
    }
    work_.regionSource = source;
    work_.channels = 0;
    switch (source) {
        case RegionSource::Depth:
        case RegionSource::Ir: {
            const ValueMatrix<double>& m =
                source == RegionSource::Depth ? frames.currentDepthValues() : frames.irValues;
            work_.region = regionInImage(c[0], c[1], c[2], c[3], m.cols(), m.rows());
            work_.stats[0] = regionStats(m.data(), m.cols(), work_.region, source == RegionSource::Depth);
            work_.channels = 1;
            break;
        }
        case RegionSource::Rgb: {
            const ValueMatrix<QRgb>& m = frames.currentRgbValues();
            work_.region = regionInImage(c[0], c[1], c[2], c[3], m.cols(), m.rows());
            work_.stats = regionStatsRgb(m.data(), m.cols(), work_.region);
            work_.channels = 3;
            break;
        }
        case RegionSource::None:
            break;
    }
    {
        std::lock_guard<std::mutex> lock(resultMutex_);
        result_ = work_;
    }
    if (!pending_.exchange(true)) emit figuresReady();
}
