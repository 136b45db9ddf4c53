// The camera's depth filters. Each works in place on a 640x480 depth image
// where 0 means "no measurement"; filtered-out pixels become 0.
#pragma once

#include <cstdint>
#include <vector>

namespace d3sim {

// Median over the last `kernel` frames, per pixel, ignoring missing values.
// Keeps its own history of the unfiltered frames it was fed.
class TimeMedianFilter {
public:
    static constexpr int kMaxKernel = 9;

    // Records `depth` in the history; when `apply`, replaces it by the median
    // over the newest `kernel` frames (fewer at start-up).
    void process(uint16_t* depth, int kernel, bool apply);
    void reset();
    int historySize() const { return count_; }

private:
    std::vector<uint16_t> ring_;  // kMaxKernel frames, allocated on first use
    int next_ = 0;
    int count_ = 0;
};

// Median over a kernel x kernel window (3, 5 or 7) of valid neighbours; a
// missing pixel stays missing. `scratch` is reused between frames.
void spatialMedian(uint16_t* depth, int kernel, std::vector<uint16_t>& scratch);

// Removes pixels whose depth jumps by more than `thresholdPercent` of their
// depth: a pixel lying behind a neighbour (a blend of a foreground and the
// background, floating off the object's silhouette) or differing from both
// neighbours along a row or column (a lone spike). The nearest pixel of an
// object's silhouette stays, so objects keep their size.
void flyingPixelFilter(uint16_t* depth, float thresholdPercent, std::vector<uint16_t>& scratch);

// Removes pixels whose amplitude is below the threshold.
void confidenceFilter(uint16_t* depth, const uint16_t* amplitude, float threshold);

// Kernel size the camera uses for a requested filter value.
int spatialKernelFor(float value);
int timeKernelFor(float value);

}  // namespace d3sim
