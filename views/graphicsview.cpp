#include "graphicsview.h"

#include <QDebug>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QRubberBand>
#include <QScrollBar>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace {

QPointF clicked;
QPointF normalised;
// Shorter drags are clicks with a shaky hand, not regions.
constexpr int kRegionDragPixels = 6;

}  // namespace

GraphicsView::GraphicsView(QWidget* parent) : QGraphicsView(parent) {
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::StrongFocus);
    // The viewport paints every pixel itself (drawBackground), so a new frame
    // repaints the viewport alone instead of the window, the pane and the
    // style sheet's background under it first.
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    // Every item sets the pen, brush and font it draws with, so the scene
    // need not save and restore the painter around each (an allocation each).
    setOptimizationFlags(QGraphicsView::DontSavePainterState);
    // A frame covers the view: repaint it whole rather than collect regions.
    setViewportUpdateMode(QGraphicsView::FullViewportUpdate);
    setImageSize(QSize(640, 480));
    image_ = QImage(imageSize_, QImage::Format_RGB32);
    image_.fill(Qt::black);
    zoom_ = 1.0f * 0.5f;
    scale(0.5, 0.5);
    fitScene();
}

void GraphicsView::setImageSize(QSize size) { imageSize_ = size; }
QSize GraphicsView::imageSize() const { return imageSize_; }

void GraphicsView::fitScene() { fitInView(sceneRect(), Qt::KeepAspectRatio); }

void GraphicsView::setRectangleCallback(RectangleCallback callback) {
    rectangleCallback_ = callback ? std::move(callback) : [](int, int, int, int) {};
}

QPointF GraphicsView::clickedPosition() { return clicked; }
QPointF GraphicsView::normalisedPosition() { return normalised; }

void GraphicsView::wheelEvent(QWheelEvent* event) {
    // No limit either way: the user can always wheel back.
    const float factor = event->angleDelta().y() > 0 ? 1.2f : 0.8333333f;
    zoom_ *= factor;
    scale(factor, factor);
}

void GraphicsView::mousePressEvent(QMouseEvent* event) {
    qDebug() << "press event";
    if (event->button() == Qt::RightButton) {
        // The right button belongs to panning; the scene never sees it.
        lastDragPosition_ = event->pos();
        dragging_ = true;
        return;
    }
    const QPointF scenePos = mapToScene(event->pos());
    pressPoint_ = scenePos;
    if (event->button() == Qt::LeftButton) {
        leftDown_ = true;
        leftPressPos_ = event->pos();
    }
    const double maxX = imageSize_.width() - 1;
    const double maxY = imageSize_.height() - 1;
    clicked =
        QPointF(std::clamp(scenePos.x(), 0.0, std::max(0.0, maxX)), std::clamp(scenePos.y(), 0.0, std::max(0.0, maxY)));
    qDebug() << "mouse pos:" << clicked.x() << clicked.y();
    // A one-pixel image has only position 0 on that axis.
    normalised = QPointF(maxX > 0 ? clicked.x() / maxX : 0.0, maxY > 0 ? clicked.y() / maxY : 0.0);
    qDebug() << "mouse pos:" << normalised.x() << normalised.y();
    emit renderOnce();
    QGraphicsView::mousePressEvent(event);
}

void GraphicsView::mouseMoveEvent(QMouseEvent* event) {
    if (dragging_) {
        const QPoint pos = event->pos();
        verticalScrollBar()->setValue(verticalScrollBar()->value() + (lastDragPosition_.y() - pos.y()));
        horizontalScrollBar()->setValue(horizontalScrollBar()->value() + (lastDragPosition_.x() - pos.x()));
        lastDragPosition_ = pos;
    }
    if (leftDown_ && (event->pos() - leftPressPos_).manhattanLength() > kRegionDragPixels) {
        if (!band_) band_ = new QRubberBand(QRubberBand::Rectangle, viewport());
        band_->setGeometry(QRect(leftPressPos_, event->pos()).normalized());
        band_->show();
    }
    QGraphicsView::mouseMoveEvent(event);
}

void GraphicsView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::RightButton) {
        dragging_ = false;
        return;
    }
    const QPointF releasePos = mapToScene(event->pos());
    rectangleCallback_(int(pressPoint_.x()), int(pressPoint_.y()), int(releasePos.x()), int(releasePos.y()));
    if (event->button() == Qt::LeftButton && leftDown_) {
        leftDown_ = false;
        if (band_ && band_->isVisible()) {
            band_->hide();
            const int maxX = imageSize_.width() - 1, maxY = imageSize_.height() - 1;
            auto cx = [maxX](double x) { return std::clamp(int(std::floor(x)), 0, std::max(0, maxX)); };
            auto cy = [maxY](double y) { return std::clamp(int(std::floor(y)), 0, std::max(0, maxY)); };
            emit regionSelected(cx(pressPoint_.x()), cy(pressPoint_.y()), cx(releasePos.x()), cy(releasePos.y()));
        }
    }
    QGraphicsView::mouseReleaseEvent(event);
}

void GraphicsView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) emit showNorm(this);
}

void GraphicsView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        emit regionCleared();
        return;
    }
    QGraphicsView::keyPressEvent(event);
}

void GraphicsView::drawBackground(QPainter* painter, const QRectF& rect) {
    // The colour the style sheet gives the view's background.
    painter->fillRect(rect, viewport()->palette().brush(viewport()->backgroundRole()));
}

void GraphicsView::resizeEvent(QResizeEvent* event) {
    fitScene();
    QGraphicsView::resizeEvent(event);
}
