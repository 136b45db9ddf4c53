#include "panearea.h"

#include <QCheckBox>
#include <QDebug>

#include "cloudpoint.h"
#include "depthhistogram.h"
#include "graphicsview.h"
#include "logline.h"
#include "readoutlabel.h"
#include "ui_panearea.h"
#include "panegrid.h"

namespace {
constexpr int kPaneCount = 4;
constexpr const char* kFile = "panearea";
}  // namespace

PaneArea::PaneArea(QWidget* parent) : QWidget(parent), ui(new Ui::PaneArea) {
    ui->setupUi(this);
    histogram_ = new DepthHistogramView(ui->widget_DEP);
    ui->verticalLayout_dep->addWidget(histogram_);
    histogram_->hide();
    // The rates change every two seconds and sit right of a stretch.
    for (int x : {1, 2, 4}) fpsLabel(x)->setKeepsRoom(false);
    const std::array<QPushButton*, kPaneCount> maxButtons{ui->pushButton_dep_max, ui->pushButton_ir_max,
                                                          ui->pushButton_cp_max, ui->pushButton_rgb_max};
    const std::array<QPushButton*, kPaneCount> closeButtons{ui->pushButton_dep_close, ui->pushButton_ir_close,
                                                            ui->pushButton_cp_close, ui->pushButton_rgb_close};
    for (int x = 1; x <= kPaneCount; ++x) {
        connect(maxButtons[x - 1], &QPushButton::clicked, this, [this, x] { toggleMaximized(x); });
        connect(closeButtons[x - 1], &QPushButton::clicked, this, [this, x] { onPaneCheckBox(x, false); });
    }
    connect(ui->graphicsViewDep, &GraphicsView::showFul, this, [this] { maximizePane(1); });
    connect(ui->graphicsViewIR, &GraphicsView::showFul, this, [this] { maximizePane(2); });
    connect(ui->widgetCp, &CloudPoint::showFul, this, [this] { maximizePane(3); });
    connect(ui->graphicsViewRgb, &GraphicsView::showFul, this, [this] { maximizePane(4); });
    connect(ui->graphicsViewDep, &GraphicsView::showNorm, this, [this] { toggleMaximized(1); });
    connect(ui->graphicsViewIR, &GraphicsView::showNorm, this, [this] { toggleMaximized(2); });
    connect(ui->widgetCp, &CloudPoint::showNorm, this, [this] { toggleMaximized(3); });
    connect(ui->graphicsViewRgb, &GraphicsView::showNorm, this, [this] { toggleMaximized(4); });

    connect(ui->pushButton_main_view, &QPushButton::clicked, this, [this] {
        DEBUG_HANDLER(kFile, "main view");
        ui->widgetCp->SetCamera(CAMERA_MAIN_VIEW);
    });
    connect(ui->pushButton_top_view, &QPushButton::clicked, this, [this] {
        DEBUG_HANDLER(kFile, "top view");
        ui->widgetCp->SetCamera(CAMERA_TOP_VIEW);
    });
    connect(ui->pushButton_left_view, &QPushButton::clicked, this, [this] {
        DEBUG_HANDLER(kFile, "left view");
        ui->widgetCp->SetCamera(CAMERA_LEFT_VIEW);
    });
}

PaneArea::~PaneArea() { delete ui; }

void PaneArea::setPaneCheckBoxes(const std::array<QCheckBox*, 4>& boxes) {
    boxes_ = boxes;
    for (int x = 1; x <= kPaneCount; ++x) {
        // clicked, not toggled: setHide/setShow change the boxes themselves.
        connect(boxes_[std::size_t(x - 1)], &QCheckBox::clicked, this,
                [this, x](bool checked) { onPaneCheckBox(x, checked); });
    }
    // Start-up: no pane but the colour one (which the full layout has) is
    // shown, and no box is ticked until a camera streams.
    setHide(1);
    setHide(2);
    setHide(3);
    setHide(4);
    setColourPaneAvailable(true);
}

void PaneArea::retranslate() {
    ui->retranslateUi(this);
    // The captions just set may be wider than the room the read-outs kept.
    for (int x : {1, 2, 4}) {
        valueLabel(x)->freeSize();
        fpsLabel(x)->freeSize();
    }
    histogram_->retranslate();
}

GraphicsView* PaneArea::depthView() const { return ui->graphicsViewDep; }
GraphicsView* PaneArea::irView() const { return ui->graphicsViewIR; }
GraphicsView* PaneArea::rgbView() const { return ui->graphicsViewRgb; }
CloudPoint* PaneArea::cloudView() const { return ui->widgetCp; }

ReadoutLabel* PaneArea::valueLabel(int pane) const {
    switch (pane) {
        case 1:
            return ui->label_dep;
        case 2:
            return ui->label_ir;
        case 4:
            return ui->label_rgb;
        default:
            return nullptr;
    }
}

ReadoutLabel* PaneArea::fpsLabel(int pane) const {
    switch (pane) {
        case 1:
            return ui->label_dep_fps;
        case 2:
            return ui->label_ir_fps;
        case 4:
            return ui->label_rgb_fps;
        default:
            return nullptr;
    }
}

QWidget* PaneArea::pane(int x) const {
    switch (x) {
        case 1:
            return ui->widget_DEP;
        case 2:
            return ui->widget_IR;
        case 3:
            return ui->widget_CP;
        case 4:
            return ui->widget_RGB;
        default:
            return nullptr;
    }
}

QCheckBox* PaneArea::paneCheckBox(int x) const {
    return x >= 1 && x <= kPaneCount ? boxes_[std::size_t(x - 1)] : nullptr;
}

void PaneArea::onPaneCheckBox(int x, bool checked) {
    if (checked)
        setShow(x);
    else
        setHide(x);
    if (maximizedPane_ != 0) {
        restorePanes();
        return;
    }
    setProportion();
    resetMinSzie();
}

void PaneArea::setHide(int x) {
    QWidget* p = pane(x);
    if (!p) return;
    p->hide();
    if (QCheckBox* box = paneCheckBox(x)) box->setChecked(false);
    emit paneChecked(x, false);
}

void PaneArea::setShow(int x) {
    QWidget* p = pane(x);
    if (!p) return;
    p->show();
    if (QCheckBox* box = paneCheckBox(x)) box->setChecked(true);
    emit paneChecked(x, true);
}

void PaneArea::setProportion() {
    auto checked = [this](int x) { return paneCheckBox(x) && paneCheckBox(x)->isChecked(); };
    const auto stretch = proportionFor(checked(2), checked(3), checked(1));
    if (!stretch) return;
    ui->gridLayout_show->setRowStretch(0, stretch->row0);
    ui->gridLayout_show->setRowStretch(1, stretch->row1);
    ui->gridLayout_show->setColumnStretch(0, stretch->col0);
    ui->gridLayout_show->setColumnStretch(1, stretch->col1);
}

void PaneArea::swapAction() {
    QGridLayout* grid = ui->gridLayout_show;
    // Inserted twice on purpose: whatever the order before, the second pass
    // leaves IR above colour in column 1.
    ui->widget_RGB->setParent(nullptr);
    ui->widget_IR->setParent(nullptr);
    grid->addWidget(ui->widget_IR, 1, 1);
    grid->addWidget(ui->widget_RGB, 0, 1);
    ui->widget_RGB->setParent(nullptr);
    ui->widget_IR->setParent(nullptr);
    grid->addWidget(ui->widget_IR, 0, 1);
    grid->addWidget(ui->widget_RGB, 1, 1);
}

void PaneArea::resetMinSzie() {
    const QGridLayout* grid = ui->gridLayout_show;
    const QSize cell =
        paneCellSize(size(), grid->horizontalSpacing(), grid->verticalSpacing(), grid->contentsMargins());
    for (int x = 1; x <= kPaneCount; ++x) pane(x)->resize(cell);
    qDebug() << "widget"
             << "resetMinSzie" << __LINE__ << cell.width() << cell.height();
}

void PaneArea::maximizePane(int x) {
    if (!pane(x)) return;
    for (int i = 1; i <= kPaneCount; ++i) pane(i)->setVisible(i == x);
    maximizedPane_ = x;
}

void PaneArea::toggleMaximized(int x) {
    if (maximizedPane_ == x)
        restorePanes();
    else
        maximizePane(x);
}

void PaneArea::restorePanes() {
    for (int i = 1; i <= kPaneCount; ++i) pane(i)->setVisible(paneCheckBox(i) && paneCheckBox(i)->isChecked());
    maximizedPane_ = 0;
    setProportion();
    resetMinSzie();
}

void PaneArea::restoreDefaultLayout() {
    swapAction();
    for (int x = 1; x <= 3; ++x) setShow(x);
    // The colour pane belongs to the default only on a camera with colour.
    if (colourPane_)
        setShow(4);
    else
        setHide(4);
    restorePanes();
}

void PaneArea::setColourPaneAvailable(bool available) {
    colourPane_ = available;
    ui->widget_RGB->setVisible(available);
    if (!available && paneCheckBox(4)) {
        paneCheckBox(4)->setChecked(false);
        emit paneChecked(4, false);
    }
}

void PaneArea::applySessionEvent(SessionEvent event, const SessionStatus& status) {
    switch (event) {
        case SessionEvent::ShowPanes:
            for (int x = 1; x <= kPaneCount; ++x) setShow(x);
            break;
        case SessionEvent::ResetView:
            maximizedPane_ = 0;
            for (int x = 1; x <= kPaneCount; ++x) setHide(x);
            break;
        case SessionEvent::StreamStarted:
            if (status.device.model) {
                setColourPaneAvailable(status.device.model->rgbLayout);
                // The panes were shown for the start; share the space among
                // those the model has.
                setProportion();
                resetMinSzie();
            }
            break;
        default:
            break;
    }
}
