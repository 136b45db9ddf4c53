#include "cloudpoint.h"

#include <QVTKOpenGLWindow.h>
#include <vtkAxesActor.h>
#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkInteractorStyleTrackballCamera.h>
#include <vtkNew.h>
#include <vtkOrientationMarkerWidget.h>
#include <vtkRenderWindowInteractor.h>
#include <vtkRenderer.h>

#include <QBoxLayout>
#include <QDebug>
#include <QMouseEvent>
#include <QPushButton>
#include <QSurfaceFormat>

#include "cloudpipeline.h"

namespace {

// Clears the idle flag for the length of an update, whichever way it ends.
class BusyScope {
public:
    explicit BusyScope(std::atomic<bool>& idle) : idle_(idle) { idle_ = false; }
    ~BusyScope() { idle_ = true; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    std::atomic<bool>& idle_;
};

}  // namespace

CloudPoint::CloudPoint(QWidget* parent) : QVTKOpenGLStereoWidget(parent), pipeline_(std::make_unique<CloudPipeline>()) {
    // Multisampling costs hundreds of milliseconds a frame at full-window
    // size under software GL and adds little to single-pixel points.
    QSurfaceFormat format = QVTKOpenGLStereoWidget::defaultFormat();
    format.setSamples(0);
    embeddedOpenGLWindow()->setFormat(format);
    vtkNew<vtkGenericOpenGLRenderWindow> window;
    window->SetMultiSamples(0);
    setRenderWindow(window);
    renderWindow()->AddRenderer(pipeline_->renderer());

    vtkRenderWindowInteractor* interactor = renderWindow()->GetInteractor();
    vtkNew<vtkInteractorStyleTrackballCamera> style;
    interactor->SetInteractorStyle(style);

    vtkNew<vtkAxesActor> axes;
    axes->SetTotalLength(1, 1, 1);
    marker_ = vtkOrientationMarkerWidget::New();
    marker_->SetOrientationMarker(axes);
    marker_->SetInteractor(interactor);
    marker_->SetDefaultRenderer(pipeline_->renderer());
    marker_->SetViewport(0.0, 0.0, 0.2, 0.2);
    marker_->SetEnabled(1);
    marker_->InteractiveOff();

    pipeline_->resize(width_ * height_);
    pipeline_->applyCamera(cameraPreset(CAMERA_MAIN_VIEW, width(), height()));
}

CloudPoint::~CloudPoint() {
    marker_->SetEnabled(0);
    marker_->Delete();
}

void CloudPoint::configurePoints(bool coloured, int pointCount, int width, int height) {
    setRgbPoint(coloured);
    setDataDimensions(width, height);
    std::lock_guard<std::mutex> lock(cloudMutex);
    pipeline_->resize(pointCount);
}

int CloudPoint::pointcloudeNum() const { return validPoints_; }

void CloudPoint::paintCpDat(float* cDat) {
    std::lock_guard<std::mutex> lock(cloudMutex);
    BusyScope busy(idle_);
    if (!visible_ || !cDat) return;
    pipeline_->resize(kCloudPoints);
    pipeline_->useColours(false);
    validPoints_ = copyCloudPoints(cDat, kCloudPoints, pipeline_->points(), pipeline_->depth());
    finishFrame();
}

void CloudPoint::paintCpDat(RgbPointcloudData* rgbcDat) {
    std::lock_guard<std::mutex> lock(cloudMutex);
    BusyScope busy(idle_);
    if (!visible_ || !rgbcDat) return;
    const CloudGrid grid = cloudGridFor(rgbcDat->cols());
    pipeline_->resize(grid.points());
    pipeline_->useColours(coloured_);
    validPoints_ = copyRgbCloudPoints(*rgbcDat, grid, pipeline_->points(), pipeline_->depth(),
                                      coloured_ ? pipeline_->colours() : nullptr);
    finishFrame();
}

void CloudPoint::finishFrame() {
    pipeline_->markModified();
    render();
    if (firstFrame_) {
        // Twice: the first render after a clear sets the clipping range from
        // an empty cloud, the second puts the camera right for the new one.
        SetCamera(CAMERA_MAIN_VIEW);
        firstFrame_ = false;
        SetCamera(CAMERA_MAIN_VIEW);
        qDebug() << "firstPCDat" << firstFrame_;
    }
}

void CloudPoint::render() {
    if (visible_) renderWindow()->Render();
}

void CloudPoint::clearWindow() {
    std::lock_guard<std::mutex> lock(cloudMutex);
    firstFrame_ = true;
    pipeline_->resize(cloudGridFor(unsigned(width_)).points());
    pipeline_->useColours(false);
    std::fill_n(pipeline_->points(), std::size_t(pipeline_->size()) * 3, 0.0f);
    std::fill_n(pipeline_->depth(), std::size_t(pipeline_->size()), 0.0f);
    validPoints_ = 0;
    pipeline_->markModified();
    render();
    qDebug() << "firstPCDat" << firstFrame_;
}

void CloudPoint::SetCamera(CameraPosType type) {
    // The drawing area, which is smaller than the widget once the buttons are in.
    const QWindow* area = embeddedOpenGLWindow();
    const CameraPreset preset = cameraPreset(type, area->width(), area->height());
    qDebug() << "sproportion" << preset.sproportion << "best" << kBestProportion;
    qDebug() << "cameraAddDis" << preset.cameraAddDis;
    pipeline_->applyCamera(preset);
    render();
    cameraType_ = type;
}

void CloudPoint::setRange(double min, double max) {
    pipeline_->setScalarRange(min, max);
    qDebug() << "setRange" << min << max;
    render();
}

void CloudPoint::setDataDimensions(int width, int height) {
    width_ = width;
    height_ = height;
    qDebug() << "setDataDimensions" << width << height;
}

void CloudPoint::setRgbPoint(bool is) { coloured_ = is; }

void CloudPoint::addButton() {
    if (buttons_[0]) return;
    const struct {
        QString text;
        CameraPosType type;
    } presets[] = {{tr("主视图"), CAMERA_MAIN_VIEW}, {tr("俯视图"), CAMERA_TOP_VIEW}, {tr("左视图"), CAMERA_LEFT_VIEW}};
    auto* row = new QHBoxLayout;
    for (int i = 0; i < 3; ++i) {
        buttons_[i] = new QPushButton(presets[i].text, this);
        const CameraPosType type = presets[i].type;
        connect(buttons_[i], &QPushButton::clicked, this, [this, type] { SetCamera(type); });
        row->addWidget(buttons_[i]);
    }
    row->addStretch();
    // The base class lays the embedded window out in a vertical box.
    if (auto* box = qobject_cast<QBoxLayout*>(layout())) box->insertLayout(0, row);
}

void CloudPoint::mouseDoubleClickEvent(QMouseEvent* ev) {
    emit showNorm(this);
    QVTKOpenGLStereoWidget::mouseDoubleClickEvent(ev);
}

void CloudPoint::showEvent(QShowEvent* ev) {
    visible_ = true;
    QVTKOpenGLStereoWidget::showEvent(ev);
}

void CloudPoint::hideEvent(QHideEvent* ev) {
    visible_ = false;
    QVTKOpenGLStereoWidget::hideEvent(ev);
}
