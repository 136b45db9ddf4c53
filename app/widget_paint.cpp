// Drawing of the depth, IR and RGB frames the workers prepared, their value
// read-out and frame rates, and the hand-off of point frames to the 3D view.
// Everything here runs on the GUI thread.
#include <QLabel>
#include <QPointer>
#include <QTableWidget>
#include <chrono>

#include "frameitem.h"
#include "readout.h"
#include "ui_widget.h"
#include "widget.h"
#include "widgetlog.h"

namespace {

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
};

}  // namespace

struct Widget::PaneDisplay {
    PaneState dep, ir, rgb;
    std::vector<TrayArea> trays;
};

namespace {

// Copies the frame into the pane's item (made again if the scene was
// cleared), keeps the scene rectangle on the image and fits the first frame.
FrameItem* showFrame(PaneState& pane, QGraphicsScene* scene, GraphicsView* view, const QImage& image) {
    if (!pane.item || pane.item->scene() != scene) {
        pane.item = new FrameItem;
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

void tickFps(PaneState& pane, QLabel* label) {
    if (pane.meter.tick(monotonicMicroseconds())) pane.fpsShown = fpsText(pane.meter.displayed());
    // The stop code resets the label to "0fps"; it shows the rate again from
    // the next measured window.
    if (!pane.fpsShown.isNull() && label->text() != pane.fpsShown) label->setText(pane.fpsShown);
}

QString rgbText(QRgb c) { return QStringLiteral("rgb(%1,%2,%3)").arg(qRed(c)).arg(qGreen(c)).arg(qBlue(c)); }

}  // namespace

void Widget::connectFrameDisplay() {
    paneDisplay_ = std::make_shared<PaneDisplay>();
    qRegisterMetaType<float*>("float*");
    qRegisterMetaType<RgbPointcloudData*>("RgbPointcloudData*");

    // Emitted by the workers; queued to the GUI thread.
    connect(this, &Widget::paintDep, this, &Widget::paintDepSlots);
    connect(this, &Widget::paintIR, this, &Widget::paintIRSlots);
    connect(this, &Widget::paintRgb, this, &Widget::paintRgbSlots);
    // The relay clears cloudPending_ once the view is done with the buffer,
    // which is what lets the worker write the next frame into it.
    connect(this, QOverload<float*>::of(&Widget::paintCp), this, [this](float* dat) {
        ++paintedFrames_[3];
        ui->widgetCp->paintCpDat(dat);
        cloudPending_.store(false, std::memory_order_release);
    });
    connect(this, QOverload<RgbPointcloudData*>::of(&Widget::paintCp), this, [this](RgbPointcloudData* dat) {
        ++paintedFrames_[3];
        ui->widgetCp->paintCpDat(dat);
        cloudPending_.store(false, std::memory_order_release);
    });

    cloudWanted_ = ui->checkBoxCp->isChecked();
    connect(ui->checkBoxCp, &QCheckBox::toggled, this, [this](bool on) { cloudWanted_ = on; });
    syncColorMapping();
    connect(ui->widget_min_color_mapping, &SliderEditer::ValChanged, this, [this] { syncColorMapping(); });
    connect(ui->widget_max_color_mapping, &SliderEditer::ValChanged, this, [this] { syncColorMapping(); });
}

void Widget::syncColorMapping() {
    // Also called at every depth paint: the editors' silent setters (import,
    // read-back) emit nothing, and the worker must still follow them.
    minColorMapping_ = ui->widget_min_color_mapping->value();
    maxColorMapping_ = ui->widget_max_color_mapping->value();
}

void Widget::paintDepSlots() {
    paintPending_[1] = false;
    syncColorMapping();
    if (ui->widget_DEP->isHidden()) return;
    std::lock_guard<std::mutex> lock(depthImageMutex);
    const ValueMatrix<double>& values = frames_->currentDepthValues();
    // A resolution switch is under way: the view is not ready for this size.
    if (values.rows() != ui->graphicsViewDep->imageSize().height()) return;
    ++paintedFrames_[1];
    PaneState& pane = paneDisplay_->dep;
    const QImage& image = frames_->currentDepthImage();
    FrameItem* item = showFrame(pane, sceneDep, ui->graphicsViewDep, image);
    const QPoint px = readoutPixel(image.size(), GraphicsView::normalisedPosition());
    const double value = values[px.y()][px.x()];
    const bool changed = !pane.haveValue || value != pane.value;
    item->setMarker(markerPosition(image.size()), Qt::white,
                    changed ? QString::number(int(value)) : item->markerText());
    if (changed) ui->label_dep->setText(QString::number(value, 'g', 6) + QStringLiteral("mm"));
    pane.value = value;
    pane.haveValue = true;
    tickFps(pane, ui->label_dep_fps);
}

void Widget::paintIRSlots() {
    paintPending_[2] = false;
    if (ui->widget_IR->isHidden()) return;
    std::lock_guard<std::mutex> lock(irImageMutex);
    ++paintedFrames_[2];
    PaneState& pane = paneDisplay_->ir;
    const QImage& image = frames_->irImage;
    FrameItem* item = showFrame(pane, sceneIR, ui->graphicsViewIR, image);
    const QPoint px = readoutPixel(image.size(), GraphicsView::normalisedPosition());
    const double value = frames_->irValues[px.y()][px.x()];
    const bool changed = !pane.haveValue || value != pane.value;
    item->setMarker(markerPosition(image.size()), Qt::red, changed ? QString::number(int(value)) : item->markerText());
    if (changed) ui->label_ir->setText(QString::number(value));
    pane.value = value;
    pane.haveValue = true;

    // Trays: outlined on the image and listed in the table, in list order.
    item->clearRects();
    if (!paneDisplay_->trays.empty() || ui->tableWidget->rowCount() > 0) {
        while (ui->tableWidget->rowCount() > 0) ui->tableWidget->removeRow(0);
        for (int i = 0; i < int(paneDisplay_->trays.size()); ++i) {
            const TrayArea& t = paneDisplay_->trays[size_t(i)];
            drawRect(i, t.area);
            const QString position = QStringLiteral("%1, %2, %3")
                                         .arg(double(t.measurements[0]), 0, 'f', 0)
                                         .arg(double(t.measurements[1]), 0, 'f', 0)
                                         .arg(double(t.measurements[2]), 0, 'f', 0);
            const QString pose = QString::number(double(t.measurements[3]), 'f', 2);
            ui->tableWidget->insertRow(i);
            ui->tableWidget->setItem(i, 0, new QTableWidgetItem(QString::number(i)));
            ui->tableWidget->setItem(i, 1, new QTableWidgetItem(position));
            ui->tableWidget->setItem(i, 2, new QTableWidgetItem(pose));
            WIDGET_DEBUG(QStringLiteral("paintIRSlots %1 %2 %3").arg(i).arg(position, pose));
        }
    }
    tickFps(pane, ui->label_ir_fps);
}

void Widget::paintRgbSlots() {
    paintPending_[0] = false;
    if (ui->widget_RGB->isHidden()) return;
    std::lock_guard<std::mutex> lock(rgbImageMutex);
    const ValueMatrix<QRgb>& values = frames_->currentRgbValues();
    if (values.rows() != ui->graphicsViewRgb->imageSize().height()) return;
    ++paintedFrames_[0];
    PaneState& pane = paneDisplay_->rgb;
    const QImage& image = frames_->currentRgbImage();
    FrameItem* item = showFrame(pane, sceneRgb, ui->graphicsViewRgb, image);
    const QPoint px = readoutPixel(image.size(), GraphicsView::normalisedPosition());
    const QRgb value = values[px.y()][px.x()];
    const bool changed = !pane.haveValue || double(value) != pane.value;
    const QString text = changed ? rgbText(value) : item->markerText();
    item->setMarker(markerPosition(image.size()), Qt::red, text);
    if (changed) ui->label_rgb->setText(text);
    pane.value = double(value);
    pane.haveValue = true;
    tickFps(pane, ui->label_rgb_fps);
}

void Widget::drawRect(int id, PalletArea rect) {
    PaneState& pane = paneDisplay_->ir;
    if (!pane.item || pane.item->scene() != sceneIR) {
        pane.item = new FrameItem;
        sceneIR->addItem(pane.item);
    }
    pane.item->addRect(id, rect);
    pane.item->update();
}

void Widget::setTrayAreas(const std::vector<TrayArea>& areas) { paneDisplay_->trays = areas; }
