#include "cloudpoint.h"

#include <QBoxLayout>
#include <QDebug>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QWheelEvent>

#include "cloudpipeline.h"
#include "cloudrenderer.h"

CloudPoint::CloudPoint(QWidget* parent) : QWidget(parent), canvas_(new QWidget(this)) {
    // The picture covers the whole area; nothing behind it needs painting.
    canvas_->setAttribute(Qt::WA_OpaquePaintEvent);
    canvas_->installEventFilter(this);
    auto* box = new QVBoxLayout(this);
    box->setContentsMargins(0, 0, 0, 0);
    box->setSpacing(0);
    box->addWidget(canvas_);

    renderer_ = std::make_unique<CloudRenderer>([this](const QImage& picture) {
        bool post = false;
        {
            std::lock_guard<std::mutex> lock(pictureMutex_);
            picture_ = picture;
            post = !std::exchange(picturePosted_, true);
        }
        // One hand-over at a time: a picture that is replaced before the
        // window's thread gets to it is never painted.
        if (post)
            handover_.post(this, [this] {
                {
                    std::lock_guard<std::mutex> lock(pictureMutex_);
                    shownPicture_ = std::move(picture_);
                    picture_ = QImage();
                    picturePosted_ = false;
                }
                canvas_->update();
            });
    });
    renderer_->applyCamera(cameraPreset(CAMERA_MAIN_VIEW, canvas_->width(), canvas_->height()));
}

// The render thread is stopped before the hand-over it posts to goes, and the
// drawing area no longer reports to a view without a renderer.
CloudPoint::~CloudPoint() {
    canvas_->removeEventFilter(this);
    renderer_.reset();
}

bool CloudPoint::idle() const { return renderer_->idle(); }

uint64_t CloudPoint::renders() const { return renderer_->renders(); }

void CloudPoint::inspect(const std::function<void(CloudPipeline&, vtkRenderWindow&)>& fn) { renderer_->inspect(fn); }

void CloudPoint::configurePoints(bool coloured, int pointCount, int width, int height) {
    setRgbPoint(coloured);
    setDataDimensions(width, height);
    std::lock_guard<std::mutex> lock(cloudMutex);
    renderer_->resizePoints(pointCount);
}

int CloudPoint::pointcloudeNum() const { return validPoints_; }

void CloudPoint::paintCpDat(float* cDat) {
    std::lock_guard<std::mutex> lock(cloudMutex);
    if (!visible_ || !cDat) return;
    StagedCloud& frame = renderer_->spare();
    frame.prepare(kCloudPoints, false);
    validPoints_ = copyCloudPoints(cDat, kCloudPoints, frame.points.data(), frame.depth.data());
    finishFrame();
}

void CloudPoint::paintCpDat(RgbPointcloudData* rgbcDat) {
    std::lock_guard<std::mutex> lock(cloudMutex);
    if (!visible_ || !rgbcDat) return;
    const CloudGrid grid = cloudGridFor(rgbcDat->cols());
    StagedCloud& frame = renderer_->spare();
    frame.prepare(grid.points(), coloured_);
    validPoints_ = copyRgbCloudPoints(*rgbcDat, grid, frame.points.data(), frame.depth.data(),
                                      coloured_ ? frame.colours.data() : nullptr);
    finishFrame();
}

void CloudPoint::finishFrame() {
    renderer_->submit();
    if (!firstFrame_) return;
    // The camera jobs queue behind the frame, so they place the camera for
    // the cloud that is now in. Set twice, around clearing the flag, as the
    // log has always shown it.
    SetCamera(CAMERA_MAIN_VIEW);
    firstFrame_ = false;
    SetCamera(CAMERA_MAIN_VIEW);
    qDebug() << "firstPCDat" << firstFrame_;
}

void CloudPoint::clearWindow() {
    std::lock_guard<std::mutex> lock(cloudMutex);
    firstFrame_ = true;
    StagedCloud& frame = renderer_->spare();
    frame.prepare(cloudGridFor(unsigned(width_)).points(), false);
    std::fill(frame.points.begin(), frame.points.end(), 0.0f);
    std::fill(frame.depth.begin(), frame.depth.end(), 0.0f);
    validPoints_ = 0;
    renderer_->submit();
    qDebug() << "firstPCDat" << firstFrame_;
}

void CloudPoint::SetCamera(CameraPosType type) {
    const CameraPreset preset = cameraPreset(type, canvas_->width(), canvas_->height());
    qDebug() << "sproportion" << preset.sproportion << "best" << kBestProportion;
    qDebug() << "cameraAddDis" << preset.cameraAddDis;
    renderer_->applyCamera(preset);
    cameraType_ = type;
}

void CloudPoint::setRange(double min, double max) {
    renderer_->setScalarRange(min, max);
    qDebug() << "setRange" << min << max;
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
    if (auto* box = qobject_cast<QBoxLayout*>(layout())) box->insertLayout(0, row);
}

void CloudPoint::mouseDoubleClickEvent(QMouseEvent* ev) {
    emit showNorm(this);
    QWidget::mouseDoubleClickEvent(ev);
}

void CloudPoint::showEvent(QShowEvent* ev) {
    visible_ = true;
    renderer_->setVisible(true);
    QWidget::showEvent(ev);
}

void CloudPoint::hideEvent(QHideEvent* ev) {
    visible_ = false;
    renderer_->setVisible(false);
    QWidget::hideEvent(ev);
}

bool CloudPoint::eventFilter(QObject* watched, QEvent* ev) {
    if (watched != canvas_) return QWidget::eventFilter(watched, ev);
    switch (ev->type()) {
    case QEvent::Paint: {
        QPainter painter(canvas_);
        // Until the first picture at a new size arrives, the old one is shown
        // as it was and the rest of the area is background.
        painter.fillRect(canvas_->rect(), Qt::black);
        if (!shownPicture_.isNull()) painter.drawImage(0, 0, shownPicture_);
        if (shownPicture_.cacheKey() != lastShownKey_) {
            lastShownKey_ = shownPicture_.cacheKey();
            ++shown_;
        }
        return true;
    }
    case QEvent::Resize:
        renderer_->setSize(canvas_->width(), canvas_->height());
        return false;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseMove:
    case QEvent::Wheel:
        forwardPointer(ev);
        return true;
    default:
        return false;
    }
}

void CloudPoint::forwardPointer(QEvent* ev) {
    using Mouse = CloudRenderer::Mouse;
    if (ev->type() == QEvent::Wheel) {
        auto* wheel = static_cast<QWheelEvent*>(ev);
        const int delta = wheel->angleDelta().y();
        if (delta == 0) return;
        const QPoint at = wheel->position().toPoint();
        renderer_->mouse(delta > 0 ? Mouse::WheelForward : Mouse::WheelBackward, at.x(), at.y(),
                         wheel->modifiers() & Qt::ControlModifier, wheel->modifiers() & Qt::ShiftModifier);
        return;
    }
    auto* m = static_cast<QMouseEvent*>(ev);
    Mouse what = Mouse::Move;
    if (ev->type() != QEvent::MouseMove) {
        const bool down = ev->type() == QEvent::MouseButtonPress;
        switch (m->button()) {
        case Qt::LeftButton:
            what = down ? Mouse::LeftDown : Mouse::LeftUp;
            break;
        case Qt::MiddleButton:
            what = down ? Mouse::MiddleDown : Mouse::MiddleUp;
            break;
        case Qt::RightButton:
            what = down ? Mouse::RightDown : Mouse::RightUp;
            break;
        default:
            return;
        }
    }
    renderer_->mouse(what, m->x(), m->y(), m->modifiers() & Qt::ControlModifier, m->modifiers() & Qt::ShiftModifier);
}
