// Zoomable, pannable 2D image view used for the depth, IR and RGB panes.
// Wheel zooms, the right button pans, a left click picks the pixel whose
// value the panes read out, a left double-click asks to be maximised. A left
// drag outlines a region (its statistics are shown live); Esc clears it.
#pragma once

#include <QGraphicsView>
#include <QImage>
#include <QPoint>
#include <QPointF>
#include <QSize>
#include <functional>

class QRubberBand;

class GraphicsView : public QGraphicsView {
    Q_OBJECT
public:
    using RectangleCallback = std::function<void(int, int, int, int)>;

    explicit GraphicsView(QWidget* parent = nullptr);

    void setImageSize(QSize size);
    QSize imageSize() const;
    void fitScene();

    // Called on every left-button release with the press and release points
    // in scene coordinates (x1, y1, x2, y2).
    void setRectangleCallback(RectangleCallback callback);
    float zoom() const { return zoom_; }
    QImage& image() { return image_; }

    // Last left click in any view, in scene pixels clamped to the image, and
    // the same point as a fraction of the image size. Shared by all views so
    // each marks the same relative spot; GUI thread only.
    static QPointF clickedPosition();
    static QPointF normalisedPosition();

signals:
    void showFul(GraphicsView* myself);
    void showNorm(GraphicsView* myself);
    void renderOnce();
    // A left drag ended: its corners in scene (image) pixels, cut to the image.
    void regionSelected(int x1, int y1, int x2, int y2);
    void regionCleared();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void drawBackground(QPainter* painter, const QRectF& rect) override;

private:
    RectangleCallback rectangleCallback_ = [](int, int, int, int) {};
    QPointF pressPoint_;
    bool dragging_ = false;
    QPoint lastDragPosition_;
    float zoom_ = 1.0f;
    QSize imageSize_{640, 480};
    QImage image_;
    // Left drag: where it started (widget pixels) and the outline shown.
    bool leftDown_ = false;
    QPoint leftPressPos_;
    QRubberBand* band_ = nullptr;
};
