// The figures the views show about the current frame (the depth histogram,
// the statistics of the region the user dragged out), computed by the frame
// workers right after they converted a frame, so the GUI thread only copies
// the result. Like the paints, a result not yet taken is overwritten by the
// next frame's and announced once; buffers are sized once.
#pragma once

#include <QObject>
#include <atomic>
#include <mutex>
#include <vector>

#include "framestats.h"

class FrameBuffers;

enum class RegionSource { None, Depth, Ir, Rgb };

struct FrameFigures {
    bool histogramValid = false;
    DepthHistogram histogram;
    RegionSource regionSource = RegionSource::None;
    PixelRect region;  // as cut to the picture
    int channels = 0;  // 1, or 3 for colour (red, green, blue)
    std::array<RegionStats, 3> stats;
};

class FrameAnalysis : public QObject {
    Q_OBJECT
public:
    explicit FrameAnalysis(QObject* parent = nullptr);

    // --- GUI side
    void setHistogramWanted(bool on) { histogramWanted_ = on; }
    bool histogramWanted() const { return histogramWanted_; }
    // Corners of a rectangle in the source picture's pixels; None clears it.
    void setRegion(RegionSource source, int x1, int y1, int x2, int y2);
    void clearRegion() { setRegion(RegionSource::None, 0, 0, 0, 0); }
    // Copies the newest figures and lets the next frame announce again.
    void take(FrameFigures& out);

    // --- Frame worker, under the frame lock
    void analyse(FrameBuffers& frames);

signals:
    void figuresReady();

private:
    std::atomic<bool> histogramWanted_{false};
    std::atomic<bool> pending_{false};

    std::mutex regionMutex_;
    RegionSource regionSource_ = RegionSource::None;
    int corners_[4] = {0, 0, 0, 0};

    std::vector<uint32_t> counts_;  // workers only (one at a time under the frame lock)
    FrameFigures work_;             // workers only

    std::mutex resultMutex_;
    FrameFigures result_;
};
