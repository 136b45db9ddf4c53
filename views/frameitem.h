// What an image pane shows: a copy of the last frame, the read-out cross with
// its value, and tray rectangles. One item per scene, kept for the life of
// the scene, so a frame costs a copy into a buffer sized once instead of new
// pixmap, line and text items.
#pragma once

#include <QColor>
#include <QGraphicsObject>
#include <QImage>
#include <QPen>
#include <QString>
#include <vector>

#include "framerecords.h"

class FrameItem : public QGraphicsObject {
    Q_OBJECT
public:
    explicit FrameItem(QGraphicsItem* parent = nullptr);

    // Copies the frame's pixels; allocates only when the size changes.
    void setFrame(const QImage& frame);
    // Hands the picture's storage over, so it can outlive the item: a scene
    // cleared on every disconnect would otherwise free megabytes and take
    // them again for the next stream, leaving a hole in the heap each time
    // that the renderer's small blocks fill. The item shows nothing after.
    QImage takeFrame();
    // Takes storage an earlier item gave up; the next frame of its size is
    // copied into it. Only for an item without a picture of its own yet.
    void reuseStorage(QImage storage);
    const QImage& frame() const { return frame_; }
    bool hasFrame() const { return !frame_.isNull(); }

    // Cross of +-7 px centred on `pos` (image pixels) and `text` drawn from it.
    void setMarker(QPointF pos, const QColor& colour, const QString& text);
    QPointF markerPosition() const { return marker_; }
    QString markerText() const { return markerText_; }

    // Tray rectangles drawn in red with "ID:<id>" at their top-left corner.
    void clearRects();
    void addRect(int id, const PalletArea& rect);
    int rectCount() const { return int(rects_.size()); }

    // The region whose statistics are shown: its outline (image pixels,
    // inclusive) and the figures beside it, which keep their size whatever
    // the zoom.
    void setRegion(const QRect& region, const QString& text);
    void clearRegion();
    bool hasRegion() const { return !region_.isNull(); }
    QRect region() const { return region_; }
    QString regionText() const;

    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

private:
    struct Rect {
        int id;
        PalletArea area;
    };
    QImage frame_;
    QPointF marker_;
    // Pens made once: a QPen built in paint() allocates on every frame.
    QPen markerPen_{QColor(Qt::red)};
    QPen regionPen_;
    QPen rectPen_{QColor(Qt::red)};
    QString markerText_;
    std::vector<Rect> rects_;
    QRect region_;
    class RegionLabel* regionLabel_ = nullptr;
};
