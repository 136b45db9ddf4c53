// The distribution of the current depth frame under the depth picture, with
// the colour-mapping minimum and maximum as two handles. Dragging a handle
// (or "auto range") only asks for a new range: the control panel commits it
// through its editors and the new limits come back with setRange, so the
// histogram, the editors and the picture always agree.
#pragma once

#include <QWidget>

#include "framestats.h"

class QToolButton;

class DepthHistogramView : public QWidget {
    Q_OBJECT
public:
    // The colour-mapping editors' range.
    static constexpr int kRangeMin = 100;
    static constexpr int kRangeMax = 15000;

    explicit DepthHistogramView(QWidget* parent = nullptr);

    void setHistogram(const DepthHistogram& histogram);
    bool hasHistogram() const { return haveHistogram_; }
    // The limits in force (millimetres); emits nothing.
    void setRange(int minDistance, int maxDistance);
    int rangeMin() const { return min_; }
    int rangeMax() const { return max_; }
    // Millimetres at the right edge of the plot.
    int span() const { return span_; }
    // Widget x of the minimum (0) or maximum (1) handle, and the depth at x.
    int handleX(int which) const;
    int depthAt(int x) const;
    QToolButton* autoRangeButton() const { return autoButton_; }
    void retranslate();

    // The right edge of the plot: the far percentile or the range's maximum,
    // whichever is further, with some room, in whole metres up to 16 m.
    static int spanFor(int highPercentile, int rangeMax);

signals:
    void rangeRequested(int minDistance, int maxDistance);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QRect plotRect() const;
    int xFor(int depth) const;
    void requestAutoRange();

    QToolButton* autoButton_ = nullptr;
    DepthHistogram histogram_;
    bool haveHistogram_ = false;
    int min_ = 100;
    int max_ = 5000;
    int span_ = 8000;
    int dragging_ = -1;  // handle being dragged: 0 min, 1 max
    int dragValue_ = 0;
};
