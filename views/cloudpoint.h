// 3D point cloud view: points coloured by depth (or by their own colour),
// three camera presets, an axes marker in the corner. Frames arrive on the
// GUI thread; while the view is hidden they are dropped at once.
//
// The cloud is drawn on a thread of its own (CloudRenderer) and shown here as
// a picture, so a render never holds up the 2D panes. State the window reads
// (point count, camera type, first-frame flag) is kept here, as values.
#pragma once

#include <QImage>
#include <QWidget>

#include <functional>
#include <memory>
#include <mutex>

#include "cloudcamera.h"
#include "cloudframe.h"
#include "handover.h"

class CloudPipeline;
class CloudRenderer;
class QPushButton;
class vtkRenderWindow;

class CloudPoint : public QWidget {
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
    bool idle() const;
    // Set by clearWindow: the next drawn frame puts the camera back to the main view.
    bool firstFrame() const { return firstFrame_; }
    bool rgbPoint() const { return coloured_; }
    QSize dataDimensions() const { return QSize(width_, height_); }
    // The drawing area, below the preset buttons once they are in.
    QWidget* canvas() const { return canvas_; }
    // Pictures of the cloud drawn so far, and those put on screen.
    uint64_t renders() const;
    uint64_t picturesShown() const { return shown_; }
    // Runs `fn` where the cloud is drawn, after everything asked so far has
    // been drawn, and waits for it. For tests and benchmarks.
    void inspect(const std::function<void(CloudPipeline&, vtkRenderWindow&)>& fn);

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
    bool eventFilter(QObject* watched, QEvent* ev) override;

private:
    // Shared tail of both paint slots, with cloudMutex held.
    void finishFrame();
    void forwardPointer(QEvent* ev);

    QWidget* canvas_ = nullptr;
    Handover handover_;
    std::unique_ptr<CloudRenderer> renderer_;
    // The newest picture from the render thread, and whether a hand-over of
    // it is already on its way.
    std::mutex pictureMutex_;
    QImage picture_;
    bool picturePosted_ = false;
    QImage shownPicture_;
    qint64 lastShownKey_ = 0;
    uint64_t shown_ = 0;
    std::mutex cloudMutex;
    bool firstFrame_ = true;
    bool visible_ = false;
    bool coloured_ = false;
    int width_ = kCloudWidth;
    int height_ = kCloudHeight;
    int validPoints_ = 0;
    CameraPosType cameraType_ = CAMERA_MAIN_VIEW;
    QPushButton* buttons_[3] = {nullptr, nullptr, nullptr};
};
