// 3D point cloud view.
#pragma once

#include <QVTKOpenGLNativeWidget.h>

class CloudPoint : public QVTKOpenGLNativeWidget {
    Q_OBJECT
public:
    explicit CloudPoint(QWidget* parent = nullptr);

signals:
    void showNorm(CloudPoint* myself);
    void showFul(CloudPoint* myself);
};
