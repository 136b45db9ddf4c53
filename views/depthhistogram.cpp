#include "depthhistogram.h"

#include <QMouseEvent>
#include <QPainter>
#include <QToolButton>
#include <algorithm>
#include <cmath>

#include "colormap.h"

namespace {
constexpr int kMargin = 6;
constexpr int kAxisHeight = 16;
constexpr int kGrab = 6;  // pixels either side of a handle that pick it up
const QColor kBackground(53, 53, 53);
const QColor kText(0xDC, 0xDC, 0xDC);
}  // namespace

DepthHistogramView::DepthHistogramView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("depthHistogram"));
    setFixedHeight(96);
    setMouseTracking(true);
    autoButton_ = new QToolButton(this);
    autoButton_->setObjectName(QStringLiteral("pushButton_auto_range"));
    autoButton_->setStyleSheet(QStringLiteral(
        "QToolButton{color:#DCDCDC;background:#484848;border:1px solid #5A5A5A;border-radius:3px;padding:1px 6px;"
        "font:9pt \"微软雅黑\";} QToolButton:hover{background:rgb(0,103,193);}"));
    connect(autoButton_, &QToolButton::clicked, this, &DepthHistogramView::requestAutoRange);
    retranslate();
}

void DepthHistogramView::retranslate() {
    autoButton_->setText(tr("自动范围"));
    autoButton_->setToolTip(tr("把色彩映射范围设为当前帧深度的1%到99%分位"));
    autoButton_->adjustSize();
    resizeEvent(nullptr);
}

int DepthHistogramView::spanFor(int highPercentile, int rangeMax) {
    const double far = std::max(highPercentile * 1.15, rangeMax * 1.1);
    const int metres = int(std::ceil(far / 1000.0));
    return std::clamp(metres, 1, 16) * 1000;
}

void DepthHistogramView::setHistogram(const DepthHistogram& histogram) {
    histogram_ = histogram;
    haveHistogram_ = true;
    // The scale stays put under a handle being dragged.
    if (dragging_ < 0) span_ = spanFor(histogram_.high, max_);
    update();
}

void DepthHistogramView::setRange(int minDistance, int maxDistance) {
    min_ = minDistance;
    max_ = maxDistance;
    if (dragging_ < 0) span_ = spanFor(haveHistogram_ ? histogram_.high : -1, max_);
    update();
}

QRect DepthHistogramView::plotRect() const {
    return QRect(kMargin, kMargin, std::max(1, width() - 2 * kMargin), std::max(1, height() - kMargin - kAxisHeight));
}

int DepthHistogramView::xFor(int depth) const {
    const QRect p = plotRect();
    return p.left() + int(std::lround(double(depth) / span_ * (p.width() - 1)));
}

int DepthHistogramView::depthAt(int x) const {
    const QRect p = plotRect();
    const double share = double(x - p.left()) / std::max(1, p.width() - 1);
    return int(std::lround(share * span_));
}

int DepthHistogramView::handleX(int which) const { return xFor(which == 0 ? min_ : max_); }

void DepthHistogramView::resizeEvent(QResizeEvent*) {
    autoButton_->move(width() - kMargin - autoButton_->width(), kMargin);
}

void DepthHistogramView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), kBackground);
    const QRect plot = plotRect();
    p.fillRect(plot, QColor(40, 40, 40));
    const int shownMin = dragging_ == 0 ? dragValue_ : min_;
    const int shownMax = dragging_ == 1 ? dragValue_ : max_;

    if (haveHistogram_ && histogram_.valid > 0) {
        // One column per pixel: the 10 mm bins it covers, scaled by square
        // root to the fullest column (so a wall filling half the picture
        // leaves the rest visible); coloured as the picture colours that depth.
        const int columns = plot.width();
        uint32_t fullest = 1;
        auto columnCount = [&](int c) {
            const int from = int(double(c) / columns * span_) / DepthHistogram::kBinMm;
            const int to = std::max(from + 1, int(double(c + 1) / columns * span_) / DepthHistogram::kBinMm);
            uint32_t n = 0;
            for (int b = from; b < to && b < DepthHistogram::kBins; ++b) n += histogram_.bins[size_t(b)];
            return n;
        };
        for (int c = 0; c < columns; ++c) fullest = std::max(fullest, columnCount(c));
        for (int c = 0; c < columns; ++c) {
            const uint32_t n = columnCount(c);
            if (n == 0) continue;
            const int h = std::max(1, int(std::sqrt(double(n) / fullest) * plot.height()));
            const double depth = (c + 0.5) / columns * span_;
            const QColor colour = depth >= shownMin && depth <= shownMax
                                      ? QColor::fromRgb(mapDistanceToColor(depth, shownMin, shownMax))
                                      : QColor(110, 110, 110);
            p.fillRect(QRect(plot.left() + c, plot.bottom() - h + 1, 1, h), colour);
        }
    } else {
        p.setPen(kText);
        p.drawText(plot, Qt::AlignCenter, tr("没有深度数据"));
    }

    // Axis: 0, the middle and the span.
    p.setPen(kText);
    QFont small = font();
    small.setPointSize(8);
    p.setFont(small);
    const int axisY = plot.bottom() + 2;
    p.drawText(QRect(plot.left(), axisY, 60, kAxisHeight - 2), Qt::AlignLeft | Qt::AlignVCenter, QStringLiteral("0"));
    p.drawText(QRect(plot.center().x() - 40, axisY, 80, kAxisHeight - 2), Qt::AlignCenter,
               QString::number(span_ / 2) + QStringLiteral(" mm"));
    p.drawText(QRect(plot.right() - 80, axisY, 80, kAxisHeight - 2), Qt::AlignRight | Qt::AlignVCenter,
               QString::number(span_) + QStringLiteral(" mm"));
    if (haveHistogram_ && histogram_.low > 0)
        p.drawText(QRect(plot.left() + 14, plot.top() + 2, plot.width() / 2, 14), Qt::AlignLeft | Qt::AlignTop,
                   tr("1%-99%: %1-%2 mm").arg(histogram_.low).arg(histogram_.high));

    // Handles: a line over the plot and a grip at its foot.
    for (int which = 0; which < 2; ++which) {
        const int value = which == 0 ? shownMin : shownMax;
        const int x = std::clamp(xFor(value), plot.left(), plot.right());
        const QColor colour = dragging_ == which ? QColor(0, 160, 255) : QColor(255, 255, 255);
        p.setPen(QPen(colour, 2));
        p.drawLine(x, plot.top(), x, plot.bottom());
        const QPoint grip[3] = {QPoint(x, plot.bottom() - 8), QPoint(x - 5, plot.bottom() + 1),
                                QPoint(x + 5, plot.bottom() + 1)};
        p.setBrush(colour);
        p.drawPolygon(grip, 3);
        if (dragging_ == which) {
            p.setPen(kText);
            const QString text = QString::number(value) + QStringLiteral(" mm");
            const int textX = std::clamp(x + 4, plot.left(), plot.right() - 70);
            p.drawText(QRect(textX, plot.top() + 16, 70, 14), Qt::AlignLeft, text);
        }
    }
}

void DepthHistogramView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    const int x = event->pos().x();
    const int dMin = std::abs(x - handleX(0)), dMax = std::abs(x - handleX(1));
    if (std::min(dMin, dMax) > kGrab) return;
    // Handles on top of each other: the one that can move that way.
    dragging_ = dMin < dMax || (dMin == dMax && depthAt(x) < min_) ? 0 : 1;
    dragValue_ = dragging_ == 0 ? min_ : max_;
    update();
}

void DepthHistogramView::mouseMoveEvent(QMouseEvent* event) {
    if (dragging_ < 0) {
        const int x = event->pos().x();
        const bool near = std::min(std::abs(x - handleX(0)), std::abs(x - handleX(1))) <= kGrab;
        setCursor(near ? Qt::SizeHorCursor : Qt::ArrowCursor);
        return;
    }
    const int v = std::clamp(depthAt(event->pos().x()), kRangeMin, kRangeMax);
    // A handle stops at the other one: the minimum never passes the maximum.
    dragValue_ = dragging_ == 0 ? std::min(v, max_) : std::max(v, min_);
    update();
}

void DepthHistogramView::mouseReleaseEvent(QMouseEvent* event) {
    if (dragging_ < 0 || event->button() != Qt::LeftButton) return;
    mouseMoveEvent(event);
    const int which = dragging_;
    dragging_ = -1;
    const int newMin = which == 0 ? dragValue_ : min_;
    const int newMax = which == 1 ? dragValue_ : max_;
    update();
    if (newMin != min_ || newMax != max_) emit rangeRequested(newMin, newMax);
}

void DepthHistogramView::requestAutoRange() {
    if (!haveHistogram_ || histogram_.low <= 0) return;
    const int low = std::clamp(histogram_.low, kRangeMin, kRangeMax);
    const int high = std::clamp(histogram_.high, low, kRangeMax);
    emit rangeRequested(low, high);
}
