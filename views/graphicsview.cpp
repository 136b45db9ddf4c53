#include "graphicsview.h"

GraphicsView::GraphicsView(QWidget* parent) : QGraphicsView(parent) {
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

void GraphicsView::setImageSize(QSize size) { imageSize_ = size; }
QSize GraphicsView::imageSize() const { return imageSize_; }
void GraphicsView::fitScene() {
    if (scene()) fitInView(sceneRect(), Qt::KeepAspectRatio);
}
