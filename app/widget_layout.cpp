// Menus, the four view panes and the RGB-dependent parts of the panel.
#include <QDebug>
#include <QFile>
#include <QMenuBar>

#include "debug.h"
#include "netsetting.h"
#include "tcporudp.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "uiprompt.h"
#include "viewlayout.h"
#include "widget.h"

namespace {
constexpr int kPaneCount = 4;
}

QWidget* Widget::paneAt(int x) const {
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

QCheckBox* Widget::paneCheckBox(int x) const {
    switch (x) {
        case 1:
            return ui->checkBoxDep;
        case 2:
            return ui->checkBoxIr;
        case 3:
            return ui->checkBoxCp;
        case 4:
            return ui->checkBoxRgb;
        default:
            return nullptr;
    }
}

void Widget::initMenu() {
    menuBar_ = new QMenuBar(this);
    QFile style(":/source/style/menubar.qss");
    if (style.open(QIODevice::ReadOnly)) menuBar_->setStyleSheet(QString::fromUtf8(style.readAll()));
    layout()->setMenuBar(menuBar_);

    menuNetwork_ = menuBar_->addMenu(tr("网络"));
    actionNetworkSettings_ = menuNetwork_->addAction(tr("设备网络设置"));

    menuView_ = menuBar_->addMenu(tr("视图"));
    actionControlPanel_ = menuView_->addAction(tr("控制面板"));
    actionManagementPanel_ = menuView_->addAction(tr("管理面板"));
    for (QAction* action : {actionControlPanel_, actionManagementPanel_}) {
        action->setCheckable(true);
        action->setChecked(true);
    }

    menuConfig_ = menuBar_->addMenu(tr("配置"));
    actionUpdate_ = menuConfig_->addAction(tr("更新"));
    actionImportConfig_ = menuConfig_->addAction(tr("导入配置"));
    actionExportConfig_ = menuConfig_->addAction(tr("导出配置"));
    actionResetConfig_ = menuConfig_->addAction(tr("设备配置初始化"));
    actionResetDevice_ = menuConfig_->addAction(tr("设备初始化"));
    actionDefaultLayout_ = menuConfig_->addAction(tr("界面默认配置"));
    actionSwitchProtocol_ = menuConfig_->addAction(tr("切换网络协议"));

    menuLanguage_ = menuBar_->addMenu(tr("切换语言"));
    actionChinese_ = menuLanguage_->addAction(tr("中文"));
    actionEnglish_ = menuLanguage_->addAction(tr("English"));

    actionDebug_ = menuBar_->addAction(tr("调试信息"));

    connect(actionNetworkSettings_, &QAction::triggered, netDialog_, &QWidget::show);
    connect(actionControlPanel_, &QAction::toggled, ui->widget_kz, &QWidget::setVisible);
    connect(actionManagementPanel_, &QAction::toggled, ui->widget_gl, &QWidget::setVisible);
    connect(actionDefaultLayout_, &QAction::triggered, this, &Widget::restoreDefaultLayout);
    connect(actionSwitchProtocol_, &QAction::triggered, this, [this] {
        if (streaming) {
            UiPrompt::warning(this, tr("警告"), tr("请先停止设备数据输出！"));
            return;
        }
        tcpDialog_->setWindowTitle(tr("net"));
        tcpDialog_->show();
    });
    connect(actionChinese_, &QAction::triggered, this, [this] { switchLanguage(0); });
    connect(actionEnglish_, &QAction::triggered, this, [this] { switchLanguage(1); });
    connect(actionDebug_, &QAction::triggered, this, [this] {
        debugWindow_->show();
        debugWindow_->raise();
        debugWindow_->activateWindow();
    });
}

void Widget::connectViewSwitching() {
    const std::array<QPushButton*, kPaneCount> maxButtons{ui->pushButton_dep_max, ui->pushButton_ir_max,
                                                          ui->pushButton_cp_max, ui->pushButton_rgb_max};
    const std::array<QPushButton*, kPaneCount> closeButtons{ui->pushButton_dep_close, ui->pushButton_ir_close,
                                                            ui->pushButton_cp_close, ui->pushButton_rgb_close};
    for (int x = 1; x <= kPaneCount; ++x) {
        // clicked, not toggled: setHide/setShow change the boxes themselves.
        connect(paneCheckBox(x), &QCheckBox::clicked, this, [this, x](bool checked) { onPaneCheckBox(x, checked); });
        connect(maxButtons[x - 1], &QPushButton::clicked, this, [this, x] {
            if (maximizedPane_ == x)
                restorePanes();
            else
                maximizePane(x);
        });
        connect(closeButtons[x - 1], &QPushButton::clicked, this, [this, x] { onPaneCheckBox(x, false); });
    }
    connect(ui->graphicsViewDep, &GraphicsView::showFul, this, [this] { maximizePane(1); });
    connect(ui->graphicsViewIR, &GraphicsView::showFul, this, [this] { maximizePane(2); });
    connect(ui->widgetCp, &CloudPoint::showFul, this, [this] { maximizePane(3); });
    connect(ui->graphicsViewRgb, &GraphicsView::showFul, this, [this] { maximizePane(4); });
    for (GraphicsView* view : {ui->graphicsViewDep, ui->graphicsViewIR, ui->graphicsViewRgb})
        connect(view, &GraphicsView::showNorm, this, &Widget::restorePanes);
    connect(ui->widgetCp, &CloudPoint::showNorm, this, &Widget::restorePanes);
}

void Widget::onPaneCheckBox(int x, bool checked) {
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

void Widget::setHide(int x) {
    QWidget* pane = paneAt(x);
    if (!pane) return;
    pane->hide();
    paneCheckBox(x)->setChecked(false);
}

void Widget::setShow(int x) {
    QWidget* pane = paneAt(x);
    if (!pane) return;
    pane->show();
    paneCheckBox(x)->setChecked(true);
}

void Widget::setProportion() {
    const auto stretch =
        proportionFor(ui->checkBoxIr->isChecked(), ui->checkBoxCp->isChecked(), ui->checkBoxDep->isChecked());
    if (!stretch) return;
    ui->gridLayout_show->setRowStretch(0, stretch->row0);
    ui->gridLayout_show->setRowStretch(1, stretch->row1);
    ui->gridLayout_show->setColumnStretch(0, stretch->col0);
    ui->gridLayout_show->setColumnStretch(1, stretch->col1);
}

void Widget::swapAction() {
    QGridLayout* grid = ui->gridLayout_show;
    // Inserted twice on purpose: whatever the order before, the second pass
    // leaves IR above RGB in column 1.
    ui->widget_RGB->setParent(nullptr);
    ui->widget_IR->setParent(nullptr);
    grid->addWidget(ui->widget_IR, 1, 1);
    grid->addWidget(ui->widget_RGB, 0, 1);
    ui->widget_RGB->setParent(nullptr);
    ui->widget_IR->setParent(nullptr);
    grid->addWidget(ui->widget_IR, 0, 1);
    grid->addWidget(ui->widget_RGB, 1, 1);
}

void Widget::resetMinSzie() {
    const QGridLayout* grid = ui->gridLayout_show;
    const QSize cell = paneCellSize(ui->widget_show->size(), grid->horizontalSpacing(), grid->verticalSpacing(),
                                    grid->contentsMargins());
    for (int x = 1; x <= kPaneCount; ++x) paneAt(x)->resize(cell);
    qDebug() << "widget"
             << "resetMinSzie" << __LINE__ << cell.width() << cell.height();
}

void Widget::switchUi(bool isRGB) {
    const QList<QWidget*> rgbOnly{ui->checkBox_dep2rgb,     ui->checkBox_rgb2dep,       ui->checkBox_rgb2pointcloud,
                                  ui->checkBoxRgb,          ui->widget_brightness,      ui->widget_rgb_manual_exposure,
                                  ui->radioButton_rgb_auto, ui->radioButton_rgb_manual, ui->widget_RGB};
    for (QWidget* w : rgbOnly) w->setVisible(isRGB);
    // The contrast editor and the mapping caption are never shown.
    ui->label_14->hide();
    ui->widget_contrast->hide();
    if (!isRGB) {
        ui->checkBoxRgb->setChecked(false);
        ui->checkBox_rgb2pointcloud->setChecked(false);
        ui->checkBox_dep2rgb->setChecked(false);
    }
}

void Widget::setControlIsEnable(bool on) {
    ui->widget_kz->setEnabled(on);
    const QList<SliderEditer*> editors{ui->widget_exposure_time,
                                       ui->widget_fps,
                                       ui->widget_max_color_mapping,
                                       ui->widget_min_color_mapping,
                                       ui->widget_rgb_manual_exposure,
                                       ui->widget_rgb_maximum_exposure_time,
                                       ui->widget_brightness,
                                       ui->widget_contrast,
                                       ui->widget_gamma_value,
                                       ui->widget_fly_filter,
                                       ui->widget_kalman_filter,
                                       ui->widget_time_filter,
                                       ui->widget_confidence_filter};
    for (SliderEditer* e : editors) e->setEnable(on);
    ui->groupBox_4->setEnabled(on);
}

void Widget::maximizePane(int x) {
    if (!paneAt(x)) return;
    for (int i = 1; i <= kPaneCount; ++i) paneAt(i)->setVisible(i == x);
    maximizedPane_ = x;
}

void Widget::restorePanes() {
    for (int i = 1; i <= kPaneCount; ++i) paneAt(i)->setVisible(paneCheckBox(i)->isChecked());
    maximizedPane_ = 0;
    setProportion();
    resetMinSzie();
}

void Widget::restoreDefaultLayout() {
    actionControlPanel_->setChecked(true);
    actionManagementPanel_->setChecked(true);
    ui->widget_kz->show();
    ui->widget_gl->show();
    swapAction();
    for (int x = 1; x <= 3; ++x) setShow(x);
    // The colour pane belongs to the default only on a camera with colour.
    if (!ui->checkBoxRgb->isHidden())
        setShow(4);
    else
        setHide(4);
    restorePanes();
}
