// 3D point cloud view: points coloured by depth (or by their own colour),
// three camera presets, an axes marker in the corner. Frames arrive on the
// GUI thread; while the view is hidden they are dropped at once.
//
// Hosted in QVTKOpenGLStereoWidget (a QOpenGLWindow in a window container),
// not QVTKOpenGLNativeWidget: under software GL the native widget's extra
// composition of the full window costs about a third to a half of the frame
// rate of a full-window cloud (bench/views/cloud_bench). The price is that
// nothing can be drawn over the view, so the preset buttons sit above it.
#pragma once

#include <QVTKOpenGLStereoWidget.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "cloudcamera.h"
#include "cloudframe.h"

class CloudPipeline;
class QPushButton;
class vtkOrientationMarkerWidget;

class CloudPoint : public QVTKOpenGLStereoWidget {
    Q_OBJECT
public:
    explicit CloudPoint(QWidget* parent = nullptr);
    ~CloudPoint() override;

    // Coloured mode and grid dimensions in one call, as the main window sets
    // them at start and on every registration switch.
    void configurePoints(bool coloured, int pointCount, int width, int height);
    // Points with a valid depth in the last drawn frame.
    int pointcloudeNum() const;
    CameraPosType cameraType() const { return cameraType_; }
    // False while an update is under way.
    bool idle() const { return idle_; }
    // Set by clearWindow: the next drawn frame puts the camera back to the main view.
    bool firstFrame() const { return firstFrame_; }
    bool rgbPoint() const { return coloured_; }
    QSize dataDimensions() const { return QSize(width_, height_); }
    CloudPipeline& pipeline() { return *pipeline_; }

signals:
    void showNorm(CloudPoint* myself);
    void showFul(CloudPoint* myself);

public slots:
    // 307,200 points of x, y, z, read during the call only.
    void paintCpDat(float* cDat);
    // Coloured points, sampled onto a grid by the frame's width.
    void paintCpDat(RgbPointcloudData* rgbcDat);
    // Adds a row of camera preset buttons above the view (once).
    void addButton();
    void SetCamera(CameraPosType type);
    void setRange(double min, double max);
    // Puts every point at the origin; the next frame resets the camera.
    void clearWindow();
    void setDataDimensions(int width, int height);
    void setRgbPoint(bool is);

protected:
    void mouseDoubleClickEvent(QMouseEvent* ev) override;
    void showEvent(QShowEvent* ev) override;
    void hideEvent(QHideEvent* ev) override;

private:
    // Shared tail of both paint slots, with cloudMutex held.
    void finishFrame();
    void render();

    std::unique_ptr<CloudPipeline> pipeline_;
    vtkOrientationMarkerWidget* marker_ = nullptr;
    std::mutex cloudMutex;
    std::atomic<bool> idle_{true};
    bool firstFrame_ = true;
    bool visible_ = false;
    bool coloured_ = false;
    int width_ = kCloudWidth;
    int height_ = kCloudHeight;
    int validPoints_ = 0;
    CameraPosType cameraType_ = CAMERA_MAIN_VIEW;
    QPushButton* buttons_[3] = {nullptr, nullptr, nullptr};
};
