#include "frameitem.h"

#include <QPainter>
#include <algorithm>
#include <cstring>
#include <utility>

namespace {
// Room for the read-out text next to a marker at the right or bottom edge.
constexpr qreal kTextMargin = 160.0;
const QColor kRegionColour(255, 214, 0);
}  // namespace

// Figures of the region on a dark plate, in screen pixels at any zoom.
class RegionLabel : public QGraphicsItem {
public:
    explicit RegionLabel(QGraphicsItem* parent) : QGraphicsItem(parent) {
        setFlag(ItemIgnoresTransformations);
        setZValue(1);
    }
    void setText(const QString& text) {
        if (text == text_) return;
        prepareGeometryChange();
        text_ = text;
        // The painter's device may measure the font a little wider than the
        // screen does: the plate is sized when painted, within this room.
        const QFontMetrics m(font_);
        size_ =
            m.boundingRect(QRect(0, 0, 2000, 1000), Qt::AlignLeft | Qt::AlignTop, text_).size() * 1.5 + QSize(40, 20);
    }
    QString text() const { return text_; }
    QRectF boundingRect() const override { return QRectF(QPointF(0, 0), QSizeF(size_)); }
    void paint(QPainter* p, const QStyleOptionGraphicsItem*, QWidget*) override {
        p->setFont(font_);
        const QRectF text = p->boundingRect(QRectF(6, 4, 2000, 1000), Qt::AlignLeft | Qt::AlignTop, text_);
        p->setPen(Qt::NoPen);
        p->setBrush(QColor(0, 0, 0, 180));
        p->drawRoundedRect(text.adjusted(-6, -4, 6, 4), 4, 4);
        p->setPen(kRegionColour);
        p->drawText(text, Qt::AlignLeft | Qt::AlignTop, text_);
    }

private:
    QString text_;
    QSize size_;
    QFont font_{QStringLiteral("微软雅黑"), 9};
};

FrameItem::FrameItem(QGraphicsItem* parent) : QGraphicsObject(parent) {
    rects_.reserve(16);
    regionPen_.setColor(kRegionColour);
    regionPen_.setCosmetic(true);
    regionPen_.setWidth(2);
}

void FrameItem::setRegion(const QRect& region, const QString& text) {
    if (!regionLabel_) regionLabel_ = new RegionLabel(this);
    region_ = region;
    regionLabel_->setText(text);
    regionLabel_->setPos(region.right() + 1, region.top());
    regionLabel_->show();
    update();
}

void FrameItem::clearRegion() {
    region_ = QRect();
    if (regionLabel_) regionLabel_->hide();
    update();
}

QString FrameItem::regionText() const { return regionLabel_ && hasRegion() ? regionLabel_->text() : QString(); }

void FrameItem::setFrame(const QImage& frame) {
    if (frame_.size() != frame.size() || frame_.format() != frame.format()) {
        prepareGeometryChange();
        frame_ = QImage(frame.size(), frame.format());
    }
    // Row by row: the two images may differ in padding. bits() does not
    // detach here because nothing else shares frame_.
    const int bytes = std::min(frame.bytesPerLine(), frame_.bytesPerLine());
    for (int y = 0; y < frame.height(); ++y) std::memcpy(frame_.scanLine(y), frame.constScanLine(y), size_t(bytes));
    update();
}

QImage FrameItem::takeFrame() {
    prepareGeometryChange();
    QImage taken = std::move(frame_);
    frame_ = QImage();
    return taken;
}

void FrameItem::reuseStorage(QImage storage) {
    if (!frame_.isNull()) return;
    prepareGeometryChange();
    frame_ = std::move(storage);
}

void FrameItem::setMarker(QPointF pos, const QColor& colour, const QString& text) {
    marker_ = pos;
    if (markerPen_.color() != colour) markerPen_.setColor(colour);
    if (markerText_ != text) markerText_ = text;
}

void FrameItem::clearRects() { rects_.clear(); }

void FrameItem::addRect(int id, const PalletArea& rect) { rects_.push_back({id, rect}); }

QRectF FrameItem::boundingRect() const {
    return QRectF(QPointF(0, 0), QSizeF(frame_.size())).adjusted(-8, -8, kTextMargin, kTextMargin);
}

void FrameItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    if (!frame_.isNull()) painter->drawImage(QPointF(0, 0), frame_);
    const QPointF& m = marker_;
    painter->setPen(markerPen_);
    painter->drawLine(QPointF(m.x() - 7, m.y()), QPointF(m.x() + 7, m.y()));
    painter->drawLine(QPointF(m.x(), m.y() - 7), QPointF(m.x(), m.y() + 7));
    const QFontMetricsF metrics(painter->font());
    // Text items are placed by their top-left corner.
    painter->drawText(QPointF(m.x(), m.y() + metrics.ascent()), markerText_);
    if (hasRegion()) {
        painter->setPen(regionPen_);
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(QRectF(region_.left(), region_.top(), region_.width(), region_.height()));
    }
    if (rects_.empty()) return;
    painter->setPen(rectPen_);
    for (const Rect& r : rects_) {
        const PalletArea& a = r.area;
        painter->drawLine(a.left, a.top, a.right, a.top);
        painter->drawLine(a.left, a.top, a.left, a.bottom);
        painter->drawLine(a.left, a.bottom, a.right, a.bottom);
        painter->drawLine(a.right, a.top, a.right, a.bottom);
        painter->drawText(QPointF(a.left, a.top + metrics.ascent()), QStringLiteral("ID:") + QString::number(r.id));
    }
}
