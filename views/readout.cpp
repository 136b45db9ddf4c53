#include "readout.h"

#include <cmath>

QPoint readoutPixel(QSize imageSize, QPointF normalised) {
    const int column = int((imageSize.width() - 1) * normalised.x());
    const int row = int((imageSize.height() - 1) * normalised.y());
    return QPoint(column, row);
}

int displayedFps(double rate) {
    const double whole = std::floor(rate);
    return int(whole) + (rate - whole > 0.3 ? 1 : 0);
}

QString fpsText(int fps) { return QString::number(fps) + QStringLiteral("fps"); }

bool FrameRateMeter::tick(int64_t nowMicroseconds) {
    // The window opens at the first frame, which counts as the first of it.
    if (!started_) {
        started_ = true;
        lastStamp_ = nowMicroseconds;
    }
    const double elapsed = double(nowMicroseconds - lastStamp_) / 1.0e6;
    if (elapsed > 2.0) {
        rate_ = counter_ / elapsed;
        lastStamp_ = nowMicroseconds;
        counter_ = 1;
        return true;
    }
    ++counter_;
    return false;
}
