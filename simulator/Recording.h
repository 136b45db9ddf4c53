// A capture written by the viewer's frame saving, read back so a simulated
// camera can serve it in place of its synthetic scene. The layout is a folder
// per frame named by its time stamp ("yyyyMMddhhmmsszzz") holding Depth.csv
// (millimetres), IR.csv (grey levels) and, for colour cameras, Rgb.yuv (planar
// 4:2:0 of the colour picture); continuous saving and a series of single
// saves both produce it. A folder that holds Depth.csv itself is one frame.
// PNG and PLY files are not read: the raw values are all a camera sends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FrameGenerator.h"

namespace d3sim {

// Values of a viewer CSV ("v, v, ...\n" per row, no header) into `out`, with
// its size. False for text that is not a rectangle of unsigned numbers no
// larger than `maxValue`.
bool parseValueCsv(const std::string& text, uint32_t maxValue, int& rows, int& cols, std::vector<uint16_t>& out);

// Planar 4:2:0 (Y plane, then U, then V, each chroma sample covering 2x2
// pixels) to interleaved R,G,B, inverting the viewer's BT.601 studio-range
// conversion; results are rounded and clamped to 0..255.
void i420ToRgb(const uint8_t* yuv, int width, int height, uint8_t* rgb);

// Milliseconds since 1970 (local time taken as UTC) of a "yyyyMMddhhmmsszzz"
// folder name; -1 for any other name.
int64_t parseTimeStamp(const std::string& name);

// The rate the frames were saved at: 1000 / the median gap between
// consecutive time stamps, rounded, within 1..25; 0 when fewer than two
// frames carry a time stamp.
int recordedFrameRate(const std::vector<int64_t>& timesMs);

// Colour sizes of the models with a colour sensor; '\0' for any other size.
char modelForColourSize(int width, int height);

class Recording {
public:
    // Reads every frame folder under `folder` (or `folder` itself). False with
    // a reason when no frame is found or a frame is not a plain 640x480
    // capture (registered views change the saved sizes).
    bool load(const std::string& folder, std::string& error);

    size_t frameCount() const { return frames_.size(); }
    char model() const { return model_; }
    bool colour() const { return rgbWidth_ > 0; }
    int rgbWidth() const { return rgbWidth_; }
    int rgbHeight() const { return rgbHeight_; }
    int frameRate() const { return frameRate_; }
    const std::string& folder() const { return folder_; }
    const std::string& frameFolder(size_t i) const { return frames_.at(i).folder; }

    // Frame `i` (taken modulo the count) into `out`, reusing its storage; the
    // colour picture is read from disk each time, so a long capture does not
    // have to fit in memory. The amplitude image carries the IR values (a
    // capture has no raw amplitude). False when the colour file cannot be
    // read any more; the picture is then black.
    bool frame(uint64_t i, FrameSet& out, std::vector<uint8_t>& yuvScratch) const;

private:
    struct Frame {
        std::string folder;
        int64_t timeMs = -1;
        std::vector<uint16_t> depth;
        std::vector<uint8_t> ir;  // empty: the capture has no IR for this frame (black)
        std::string yuvPath;
    };
    bool loadFrame(const std::string& dir, Frame& frame, std::string& error);

    std::string folder_;
    std::vector<Frame> frames_;
    char model_ = '1';
    int rgbWidth_ = 0;
    int rgbHeight_ = 0;
    int frameRate_ = 0;
};

}  // namespace d3sim
