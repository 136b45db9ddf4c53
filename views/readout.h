// Value read-out position and the frame-rate label, shared by the three image views.
#pragma once

#include <QPoint>
#include <QPointF>
#include <QSize>
#include <QString>
#include <cstdint>

// Pixel under a normalised click position (0..1 on both axes) in an image of
// the given size: (size - 1) x position, truncated toward zero.
QPoint readoutPixel(QSize imageSize, QPointF normalised);

// Whole frames per second as shown: the integer part, plus one when the
// fractional part is above 0.3.
int displayedFps(double rate);

// "<n>fps".
QString fpsText(int fps);

// Frame rate measured over windows of a little more than two seconds.
// The clock is passed in (monotonic microseconds) so the rule can be tested.
class FrameRateMeter {
public:
    // Counts one painted frame; returns true when a new rate was computed.
    bool tick(int64_t nowMicroseconds);
    // Last computed rate; 0 until the first window closes.
    double rate() const { return rate_; }
    int displayed() const { return displayedFps(rate_); }

private:
    bool started_ = false;
    int64_t lastStamp_ = 0;
    int counter_ = 0;
    double rate_ = 0.0;
};
