#include "framedisplay.h"

#include <QCheckBox>
#include <QGraphicsScene>
#include <QLabel>
#include <QPointer>
#include <QTableWidget>
#include <chrono>

#include "acquisition.h"
#include "cloudpoint.h"
#include "depthhistogram.h"
#include "frameitem.h"
#include "graphicsview.h"
#include "imageconverter.h"
#include "logline.h"
#include "panearea.h"
#include "readout.h"
#include "readoutlabel.h"
#include "regiontext.h"

namespace {

constexpr const char* kFile = "framedisplay";

int64_t monotonicMicroseconds() {
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

// Per-pane drawing state; the strings are rebuilt only when their value
// changes, so a steady picture costs no text work.
struct PaneState {
    QPointer<FrameItem> item;
    FrameRateMeter meter;
    QString fpsShown;
    bool firstFit = true;  // never set again, by design
    bool haveValue = false;
    double value = 0;
    QImage storage;  // the picture's buffer while the scene has no item
};

// Copies the frame into the pane's item (made again if the scene was
// cleared), keeps the scene rectangle on the image and fits the first frame.
FrameItem* showFrame(PaneState& pane, QGraphicsScene* scene, GraphicsView* view, const QImage& image) {
    if (!pane.item || pane.item->scene() != scene) {
        pane.item = new FrameItem;
        pane.item->reuseStorage(std::move(pane.storage));
        pane.storage = QImage();
        scene->addItem(pane.item);
    }
    pane.item->setFrame(image);
    if (scene->sceneRect().height() != image.height()) {
        scene->setSceneRect(QRectF(QPointF(0, 0), QSizeF(image.size())));
        view->fitScene();
    }
    if (pane.firstFit) {
        pane.firstFit = false;
        view->fitScene();
    }
    return pane.item;
}

QPointF markerPosition(QSize image) {
    const QPointF n = GraphicsView::normalisedPosition();
    return QPointF((image.width() - 1) * n.x(), (image.height() - 1) * n.y());
}

void tickFps(PaneState& pane, ReadoutLabel* label) {
    if (pane.meter.tick(monotonicMicroseconds())) pane.fpsShown = fpsText(pane.meter.displayed());
    // The stop resets the label to "0fps"; it shows the rate again from the
    // next measured window.
    if (!pane.fpsShown.isNull()) label->setReadout(pane.fpsShown);
}

QString rgbText(QRgb c) { return QStringLiteral("rgb(%1,%2,%3)").arg(qRed(c)).arg(qGreen(c)).arg(qBlue(c)); }

}  // namespace

struct FrameDisplay::Panes {
    PaneState dep, ir, rgb;
    std::vector<TrayArea> trays;
    FrameFigures figures;  // the newest, copied from the workers
    RegionSource region = RegionSource::None;
    int64_t regionTextAt = 0;  // when the region's text was last rebuilt (µs)
};

namespace {
// The region's figures change with every frame's noise; a few readings a
// second are all anyone can read.
constexpr int64_t kRegionTextIntervalUs = 200000;
}  // namespace

FrameDisplay::FrameDisplay(PaneArea& panes, Acquisition& acquisition, ImageConverter& converter,
                           QTableWidget* trayTable, QObject* parent)
    : QObject(parent),
      panes_(panes),
      acquisition_(acquisition),
      converter_(converter),
      trayTable_(trayTable),
      sceneIR_(new QGraphicsScene(this)),
      sceneRgb_(new QGraphicsScene(this)),
      sceneDep_(new QGraphicsScene(this)),
      state_(std::make_unique<Panes>()),
      histogram_(panes.depthHistogram()) {
    panes_.cloudView()->configurePoints(false, 640 * 480, 640, 480);
    // One item per scene: an index would only be kept up to date for nothing.
    for (QGraphicsScene* scene : {sceneIR_, sceneRgb_, sceneDep_}) scene->setItemIndexMethod(QGraphicsScene::NoIndex);
    panes_.irView()->setScene(sceneIR_);
    panes_.rgbView()->setScene(sceneRgb_);
    panes_.depthView()->setScene(sceneDep_);
    panes_.irView()->setImageSize(QSize(640, 480));
    panes_.depthView()->setImageSize(QSize(640, 480));
    panes_.rgbView()->setImageSize(QSize(1920, 1080));

    // Emitted by the workers; queued to the GUI thread.
    connect(&acquisition_, &Acquisition::paintDep, this, &FrameDisplay::paintDepSlots);
    connect(&acquisition_, &Acquisition::paintIR, this, &FrameDisplay::paintIRSlots);
    connect(&acquisition_, &Acquisition::paintRgb, this, &FrameDisplay::paintRgbSlots);
    // Handing the buffer back is what lets the worker write the next frame into it.
    connect(&acquisition_, QOverload<float*>::of(&Acquisition::paintCp), this, [this](float* dat) {
        ++painted_[3];
        panes_.cloudView()->paintCpDat(dat);
        acquisition_.cloudTaken();
    });
    connect(&acquisition_, QOverload<RgbPointcloudData*>::of(&Acquisition::paintCp), this,
            [this](RgbPointcloudData* dat) {
                ++painted_[3];
                panes_.cloudView()->paintCpDat(dat);
                acquisition_.cloudTaken();
            });
    connect(&panes_, &PaneArea::paneChecked, this, [this](int x, bool on) {
        if (x == 3) acquisition_.setCloudWanted(on);
    });

    connect(&acquisition_.analysis(), &FrameAnalysis::figuresReady, this, &FrameDisplay::showFigures);
    const std::pair<GraphicsView*, RegionSource> views[] = {{panes_.depthView(), RegionSource::Depth},
                                                            {panes_.irView(), RegionSource::Ir},
                                                            {panes_.rgbView(), RegionSource::Rgb}};
    for (const auto& [view, source] : views) {
        connect(view, &GraphicsView::regionSelected, this,
                [this, source = source](int x1, int y1, int x2, int y2) { setRegion(source, x1, y1, x2, y2); });
        connect(view, &GraphicsView::regionCleared, this, &FrameDisplay::clearRegion);
    }
    histogram_->setRange(converter_.minDistance(), converter_.maxDistance());
}

FrameDisplay::~FrameDisplay() = default;

void FrameDisplay::paintDepSlots() {
    acquisition_.paintTaken(ImageKind::Depth);
    if (panes_.pane(1)->isHidden()) return;
    std::lock_guard<std::mutex> lock(acquisition_.imageMutex(ImageKind::Depth));
    FrameBuffers& frames = acquisition_.frames();
    const ValueMatrix<double>& values = frames.currentDepthValues();
    // A resolution switch is under way: the view is not ready for this size.
    if (values.rows() != panes_.depthView()->imageSize().height()) return;
    ++painted_[1];
    shownReady_[1] = frames.frameReady[int(ImageKind::Depth)];
    PaneState& pane = state_->dep;
    const QImage& image = frames.currentDepthImage();
    FrameItem* item = showFrame(pane, sceneDep_, panes_.depthView(), image);
    const QPoint px = readoutPixel(image.size(), GraphicsView::normalisedPosition());
    const double value = values[px.y()][px.x()];
    const bool changed = !pane.haveValue || value != pane.value;
    item->setMarker(markerPosition(image.size()), Qt::white,
                    changed ? QString::number(int(value)) : item->markerText());
    if (changed) panes_.valueLabel(1)->setReadout(QString::number(value, 'g', 6) + QStringLiteral("mm"));
    pane.value = value;
    pane.haveValue = true;
    tickFps(pane, panes_.fpsLabel(1));
}

void FrameDisplay::paintIRSlots() {
    acquisition_.paintTaken(ImageKind::Ir);
    if (panes_.pane(2)->isHidden()) return;
    std::lock_guard<std::mutex> lock(acquisition_.imageMutex(ImageKind::Ir));
    FrameBuffers& frames = acquisition_.frames();
    ++painted_[2];
    shownReady_[2] = frames.frameReady[int(ImageKind::Ir)];
    PaneState& pane = state_->ir;
    const QImage& image = frames.irImage;
    FrameItem* item = showFrame(pane, sceneIR_, panes_.irView(), image);
    const QPoint px = readoutPixel(image.size(), GraphicsView::normalisedPosition());
    const double value = frames.irValues[px.y()][px.x()];
    const bool changed = !pane.haveValue || value != pane.value;
    item->setMarker(markerPosition(image.size()), Qt::red, changed ? QString::number(int(value)) : item->markerText());
    if (changed) panes_.valueLabel(2)->setReadout(QString::number(value));
    pane.value = value;
    pane.haveValue = true;

    // Trays: outlined on the image and listed in the table, in list order.
    item->clearRects();
    if (!state_->trays.empty() || trayTable_->rowCount() > 0) {
        while (trayTable_->rowCount() > 0) trayTable_->removeRow(0);
        for (int i = 0; i < int(state_->trays.size()); ++i) {
            const TrayArea& t = state_->trays[size_t(i)];
            drawRect(i, t.area);
            const QString position = QStringLiteral("%1, %2, %3")
                                         .arg(double(t.measurements[0]), 0, 'f', 0)
                                         .arg(double(t.measurements[1]), 0, 'f', 0)
                                         .arg(double(t.measurements[2]), 0, 'f', 0);
            const QString pose = QString::number(double(t.measurements[3]), 'f', 2);
            trayTable_->insertRow(i);
            trayTable_->setItem(i, 0, new QTableWidgetItem(QString::number(i)));
            trayTable_->setItem(i, 1, new QTableWidgetItem(position));
            trayTable_->setItem(i, 2, new QTableWidgetItem(pose));
            DEBUG_LINE(kFile, QStringLiteral("paintIRSlots %1 %2 %3").arg(i).arg(position, pose));
        }
    }
    emit traysShown(state_->trays);
    tickFps(pane, panes_.fpsLabel(2));
}

void FrameDisplay::paintRgbSlots() {
    acquisition_.paintTaken(ImageKind::Rgb);
    if (panes_.pane(4)->isHidden()) return;
    std::lock_guard<std::mutex> lock(acquisition_.imageMutex(ImageKind::Rgb));
    FrameBuffers& frames = acquisition_.frames();
    const ValueMatrix<QRgb>& values = frames.currentRgbValues();
    if (values.rows() != panes_.rgbView()->imageSize().height()) return;
    ++painted_[0];
    shownReady_[0] = frames.frameReady[int(ImageKind::Rgb)];
    PaneState& pane = state_->rgb;
    const QImage& image = frames.currentRgbImage();
    FrameItem* item = showFrame(pane, sceneRgb_, panes_.rgbView(), image);
    const QPoint px = readoutPixel(image.size(), GraphicsView::normalisedPosition());
    const QRgb value = values[px.y()][px.x()];
    const bool changed = !pane.haveValue || double(value) != pane.value;
    const QString text = changed ? rgbText(value) : item->markerText();
    item->setMarker(markerPosition(image.size()), Qt::red, text);
    if (changed) panes_.valueLabel(4)->setReadout(text);
    pane.value = double(value);
    pane.haveValue = true;
    tickFps(pane, panes_.fpsLabel(4));
}

void FrameDisplay::drawRect(int id, PalletArea rect) {
    PaneState& pane = state_->ir;
    if (!pane.item || pane.item->scene() != sceneIR_) {
        pane.item = new FrameItem;
        pane.item->reuseStorage(std::move(pane.storage));
        pane.storage = QImage();
        sceneIR_->addItem(pane.item);
    }
    pane.item->addRect(id, rect);
    pane.item->update();
}

void FrameDisplay::setTrayAreas(const std::vector<TrayArea>& areas) { state_->trays = areas; }

void FrameDisplay::setColourRange(int minDistance, int maxDistance, bool cloud) {
    converter_.setColourRange(minDistance, maxDistance);
    histogram_->setRange(minDistance, maxDistance);
    if (cloud) panes_.cloudView()->setRange(minDistance, maxDistance);
}

void FrameDisplay::applyRegistration(bool rgbToDepth, bool depthToRgb, bool colouredCloud) {
    acquisition_.setRegistration(rgbToDepth, depthToRgb);
    if (rgbToDepth || depthToRgb) {
        // Both conversions on in either mode: the worker picks the read.
        CameraScript script;
        script.call(LOG_HERE, QString(), [](CameraInterface& c) { return c.ConvertRgbToDepthEnable(true); });
        script.call(LOG_HERE, QString(), [](CameraInterface& c) { return c.ConvertDepthToRgbEnable(true); });
        script.pause(200);
        emit cameraScript(script);
    }
    panes_.cloudView()->configurePoints(colouredCloud, 640 * 480, 640, 480);
    resizeImageViewsForMode();
    panes_.cloudView()->setRange(converter_.minDistance(), converter_.maxDistance());
    DEBUG_LINE(kFile, QStringLiteral("Dep2rgb Rgb2dep convertMode:%1 depthToRgbOn:%2 rgbToDepthOn:%3")
                          .arg(acquisition_.registrationActive())
                          .arg(depthToRgb)
                          .arg(rgbToDepth));
}

CameraScript FrameDisplay::importedRegistration(bool rgbToDepth, bool depthToRgb, bool colouredCloud) {
    CameraScript script;
    if (!rgbToDepth && !depthToRgb) {
        acquisition_.setRegistration(false, false);
        panes_.cloudView()->configurePoints(false, 640 * 480, 640, 480);
        return script;
    }
    acquisition_.setRegistration(rgbToDepth, depthToRgb);
    const auto enable = [&script](CameraScript::Call call) {
        script.call(LOG_AS("readConfigFromFil"), QString(), std::move(call), QString(), ResultCheck::Ignored);
    };
    enable([](CameraInterface& c) { return c.ConvertDepthToRgbEnable(true); });
    enable([](CameraInterface& c) { return c.ConvertRgbToDepthEnable(true); });
    resizeImageViewsForMode();
    if (depthToRgb) {
        // Depth registered to a full-HD colour picture comes at half its size.
        const bool fullHd = (colourSize_.isEmpty() ? 1920 : colourSize_.width()) == 1920;
        panes_.cloudView()->configurePoints(colouredCloud, fullHd ? 960 * 540 : 640 * 480, fullHd ? 960 : 640,
                                            fullHd ? 540 : 480);
    } else {
        panes_.cloudView()->configurePoints(colouredCloud, 640 * 480, 640, 480);
    }
    panes_.cloudView()->setRange(converter_.minDistance(), converter_.maxDistance());
    return script;
}

void FrameDisplay::setColouredCloud(bool on) {
    panes_.cloudView()->configurePoints(on, 640 * 480, 640, 480);
    panes_.cloudView()->setRange(converter_.minDistance(), converter_.maxDistance());
    DEBUG_LINE(kFile, QStringLiteral("rgb2pointcloud %1").arg(on));
}

void FrameDisplay::resizeImageViewsForMode() {
    // The paint slots skip frames whose size differs from the view's image
    // size, so the views take the size the worker will produce next.
    const QSize colour = colourSize_.isValid() && !colourSize_.isEmpty() ? colourSize_ : QSize(1920, 1080);
    QSize depth(640, 480), rgb(640, 480);
    if (acquisition_.depthToRgb() && !acquisition_.rgbToDepth()) {
        depth = colour;
        rgb = colour;
    } else if (!acquisition_.registrationActive()) {
        rgb = colour;
    }
    panes_.depthView()->setImageSize(depth);
    panes_.rgbView()->setImageSize(rgb);
}

void FrameDisplay::applySessionEvent(SessionEvent event, const SessionStatus& status) {
    switch (event) {
        case SessionEvent::PreparingStream:
            if (status.colourSize.isValid() && !status.colourSize.isEmpty()) {
                colourSize_ = status.colourSize;
                panes_.rgbView()->setImageSize(colourSize_);
            }
            break;
        case SessionEvent::Stopping:
            for (int pane : {1, 2, 4}) panes_.fpsLabel(pane)->setReadout(QStringLiteral("0fps"));
            break;
        case SessionEvent::ClearScenes:
            clearRegion();
            // The pictures' buffers stay for the next stream (see FrameItem::takeFrame).
            for (PaneState* pane : {&state_->ir, &state_->rgb, &state_->dep})
                if (pane->item) pane->storage = pane->item->takeFrame();
            for (QGraphicsScene* scene : {sceneIR_, sceneRgb_, sceneDep_}) scene->clear();
            panes_.cloudView()->clearWindow();
            break;
        default:
            break;
    }
}

void FrameDisplay::showHistogram(bool on) {
    histogram_->setVisible(on);
    acquisition_.analysis().setHistogramWanted(on);
}

FrameItem* FrameDisplay::regionItem(RegionSource source) {
    switch (source) {
        case RegionSource::Depth:
            return state_->dep.item;
        case RegionSource::Ir:
            return state_->ir.item;
        case RegionSource::Rgb:
            return state_->rgb.item;
        case RegionSource::None:
            break;
    }
    return nullptr;
}

void FrameDisplay::setRegion(RegionSource source, int x1, int y1, int x2, int y2) {
    if (FrameItem* old = regionItem(state_->region)) old->clearRegion();
    state_->region = source;
    state_->regionTextAt = 0;
    acquisition_.analysis().setRegion(source, x1, y1, x2, y2);
}

void FrameDisplay::clearRegion() {
    if (FrameItem* old = regionItem(state_->region)) old->clearRegion();
    state_->region = RegionSource::None;
    acquisition_.analysis().clearRegion();
}

void FrameDisplay::showFigures() {
    FrameFigures& f = state_->figures;
    acquisition_.analysis().take(f);
    ++figuresShown_;
    if (f.histogramValid && !histogram_->isHidden()) histogram_->setHistogram(f.histogram);
    // Figures of a region the user has since moved or cleared are stale.
    if (f.regionSource == RegionSource::None || f.regionSource != state_->region) return;
    FrameItem* item = regionItem(f.regionSource);
    if (!item) return;
    const int64_t now = monotonicMicroseconds();
    const QRect rect(QPoint(f.region.left, f.region.top), QPoint(f.region.right, f.region.bottom));
    if (item->hasRegion() && item->region() == rect && now - state_->regionTextAt < kRegionTextIntervalUs) return;
    state_->regionTextAt = now;
    item->setRegion(rect, regionStatsText(f));
}
