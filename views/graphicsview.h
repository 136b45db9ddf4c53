// Zoomable, pannable 2D image view used for the depth, IR and RGB panes.
#pragma once

#include <QGraphicsView>
#include <QImage>
#include <QPointF>
#include <QSize>
#include <functional>

class GraphicsView : public QGraphicsView {
    Q_OBJECT
public:
    explicit GraphicsView(QWidget* parent = nullptr);

    void setImageSize(QSize size);
    QSize imageSize() const;
    void fitScene();

signals:
    void showFul(GraphicsView* myself);
    void showNorm(GraphicsView* myself);
    void renderOnce();

private:
    QSize imageSize_{640, 480};
};
