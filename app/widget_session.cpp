// The camera session as the user drives it: search, start/stop, disconnect
// and device change.
#include <QCheckBox>
#include <QComboBox>
#include <QDebug>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <iostream>

#include "cloudpoint.h"
#include "debug.h"
#include "graphicsview.h"
#include "sessionrules.h"
#include "slidereditor.h"
#include "tcporudp.h"
#include "ui_widget.h"
#include "uiprompt.h"
#include "widget.h"
#include "widgetlog.h"

namespace {

QString fromLocal(const std::string& s) { return QString::fromLocal8Bit(s.c_str()); }

}  // namespace

void Widget::connectSessionSignals() {
    connect(ui->comboBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int) {
        // Clearing the list also changes the index; only a real choice counts.
        if (ui->comboBox->count() > 0) onDeviceChanged();
    });
}

void Widget::resetView() {
    for (QLabel* label : {ui->label_IP, ui->label_SN, ui->label_FW, ui->label_Model, ui->label_DV}) label->clear();
    ui->label_statusBar->setText(tr(" 等待搜索..."));
    for (QWidget* pane : {ui->widget_DEP, ui->widget_IR, ui->widget_CP, ui->widget_RGB}) pane->hide();
    for (QCheckBox* box : {ui->checkBoxDep, ui->checkBoxIr, ui->checkBoxCp, ui->checkBoxRgb}) box->setChecked(false);
}

void Widget::on_pushButton_clicked() {
    ui->comboBox->clear();
    qDebug() << "widget" << __func__ << __LINE__ << "this combobox " << ui->comboBox;
    for (QLabel* label : {ui->label_Model, ui->label_SN, ui->label_IP, ui->label_FW, ui->label_DV}) label->clear();
    deviceList.clear();
    repaint();

    if (streaming) {
        const ReturnCode ret = camera_.StopStream();
        if (ret == SUCCESS) {
            streaming.exchange(false);
            connected.exchange(false);
            ui->pushButton_2->setText(tr("开始"));
        } else {
            // The search still runs: the user asked for a fresh list.
            std::cout << int(ret) << " " << camera_.GetReturnCodeDescriptor(ret) << std::endl;
            ui->pushButton->setEnabled(true);
        }
    }

    deviceList = sdk().FindDevices();
    if (!deviceList.empty()) {
        WIDGET_DEBUG("get device");
        {
            const QSignalBlocker blocker(ui->comboBox);
            for (const std::string& device : deviceList) ui->comboBox->addItem(fromLocal(device));
        }
        ui->pushButton_6->setEnabled(false);
        ui->pushButton_2->setEnabled(true);
        ui->label_statusBar->setText(tr("已搜索到设备"));
        return;
    }
    connected.exchange(false);
    ui->label_statusBar->setText(tr(" 等待搜索..."));
    UiPrompt::information(this, tr("提示"), tr("未找到设备"));
    ui->pushButton->setEnabled(true);
}

void Widget::on_pushButton_2_clicked() {
    if (ui->pushButton_2->text() != tr("开始")) {
        streaming.exchange(false);
        WIDGET_DEBUG("guanbi");
        for (QLabel* label : {ui->label_ir_fps, ui->label_dep_fps, ui->label_rgb_fps}) label->setText("0fps");
        const ReturnCode ret = camera_.StopStream();
        if (ret == SUCCESS || ret == NOT_STREAMING || ret == NOT_CONNECTED) {
            // Not streaming any more is what stop wanted, whoever stopped it.
            // While a lost link is being recovered the SDK holds no session
            // at all; stop must still win over the recovery attempts.
            streaming.exchange(false);
            ui->pushButton_2->setText(tr("开始"));
            setControlIsEnable(false);
            WIDGET_DEBUG(QStringLiteral("正常关闭"));
        } else if (ret == NETWORK_ERROR) {
            deviceDisconnect();
        } else {
            UiPrompt::warning(this, tr("状态异常"),
                              tr("错误信息：%1").arg(fromLocal(camera_.GetReturnCodeDescriptor(ret))));
        }
        return;
    }

    const int row = ui->comboBox->currentIndex();
    if (deviceList.empty() || row < 0 || row >= int(deviceList.size())) {
        UiPrompt::warning(this, tr("提示"), tr("请选中设备后再开始！"));
        return;
    }
    const std::string& device = deviceList[size_t(row)];
    ReturnCode initResult = sdk().InitDevice(device, transportIsTcp.load());
    if (initResult == ALREADY_CONNECTED) {
        // A stop or a search leaves the previous session open in the SDK.
        // Start always opens the chosen device with the chosen transport.
        camera_.DisconnectFromDevice();
        initResult = sdk().InitDevice(device, transportIsTcp.load());
    }
    WIDGET_DEBUG(fromLocal(device) + " " + QString::number(int(initResult)));
    if (initResult != SUCCESS) {
        const QString message = tr("错误信息：%1").arg(fromLocal(camera_.GetReturnCodeDescriptor(initResult)));
        if (initResult == INIT_NETWORK_FAILED || initResult == NETWORK_ERROR) {
            UiPrompt::warning(this, tr("网络错误"), message);
            on_pushButton_6_clicked();
        } else {
            UiPrompt::warning(this, tr("错误"), message);
            if (initResult == INIT_FAILED) on_pushButton_6_clicked();
        }
        return;
    }

    connected.exchange(true);
    ui->pushButton_6->setEnabled(true);
    ui->pushButton->setEnabled(false);
    ui->widget_kz->setEnabled(true);
    for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_max_color_mapping, ui->widget_min_color_mapping,
                                 ui->widget_rgb_manual_exposure, ui->widget_rgb_maximum_exposure_time,
                                 ui->widget_brightness, ui->widget_contrast, ui->widget_gamma_value, ui->widget_fps})
        editor->setEnable(true);
    ui->groupBox_4->setEnabled(true);
    ui->pushButton_end_save->setEnabled(false);
    ui->pushButton_start_save->setEnabled(true);

    serialNumber.clear();
    firmwareVersion.clear();
    deviceVersion.clear();
    sdk().GetDeviceSN(serialNumber);
    sdk().GetVersion(firmwareVersion, deviceVersion);

    if (!ui->checkBox_dep2rgb->isChecked() && !ui->checkBox_rgb2dep->isChecked()) {
        ui->checkBox_rgb2pointcloud->setEnabled(false);
        int width = 0;
        int height = 0;
        if (sdk().GetImageInfo(width, height) == SUCCESS && width > 0 && height > 0) {
            rgbWidth = width;
            rgbHeight = height;
            ui->graphicsViewRgb->setImageSize(QSize(width, height));
        }
        // The workers are idle until streaming is set below.
        frames_->selectForTof(unsigned(rgbWidth));
        WIDGET_DEBUG(QString("%1 %2").arg(rgbHeight).arg(rgbWidth));
    }

    sdk().ConvertDepthToRgbEnable(true);
    sdk().ConvertRgbToDepthEnable(true);

    // A failed read-back has shown its box; the session stays open.
    if (!readConfigurationFromDevice()) return;

    for (QWidget* pane : {ui->widget_DEP, ui->widget_CP, ui->widget_IR, ui->widget_RGB}) pane->show();
    for (QCheckBox* box : {ui->checkBoxDep, ui->checkBoxCp, ui->checkBoxIr, ui->checkBoxRgb}) box->setChecked(true);
    WIDGET_DEBUG("ready start");
    WIDGET_LOG("ready start");

    if (!checkError(sdk().StartStream())) {
        WIDGET_LOG("start err");
        return;
    }

    CameraIntrinsicParam intrinsics{};
    intrinsics.fx = 640;
    intrinsics.fy = 480;
    intrinsics.cx = 320;
    intrinsics.cy = 240;
    WIDGET_LOG("GetTofCameraIntrinsicParam");
    checkError(sdk().GetTofCameraIntrinsicParam(intrinsics));
    WIDGET_LOG(QString("GetTofCameraIntrinsicParam fx:%1 fy:%2 cx:%3 cy:%4 k1:%5 k2:%6 k3:%7")
                   .arg(intrinsics.fx, 0, 'g', 6)
                   .arg(intrinsics.fy, 0, 'g', 6)
                   .arg(intrinsics.cx, 0, 'g', 6)
                   .arg(intrinsics.cy, 0, 'g', 6)
                   .arg(intrinsics.k1, 0, 'g', 6)
                   .arg(intrinsics.k2, 0, 'g', 6)
                   .arg(intrinsics.k3, 0, 'g', 6));

    ui->widgetCp->setRange(ui->widget_min_color_mapping->value(), ui->widget_max_color_mapping->value());

    ui->label_SN->setText(": " + fromLocal(serialNumber));
    ui->label_FW->setText(": " + fromLocal(firmwareVersion));
    ui->label_DV->setText(": " + fromLocal(deviceVersion));
    ui->label_IP->setText(": " + addressFromDeviceText(ui->comboBox->currentText()));

    bool rgbLayout = false;
    bool rgbFrames = false;
    if (!serialNumber.empty()) {
        const CameraModel model = cameraModelFromSerial(serialNumber);
        ui->label_Model->setText(": " + model.name);
        if (model.known) setCaptureMode(model.triggerControls);
        rgbLayout = model.rgbLayout;
        rgbFrames = model.rgbFrames;
    }
    rgbCamera_.exchange(rgbFrames);
    switchUi(rgbLayout);
    // The panes were shown directly above; share the space among those the
    // model actually has.
    setProportion();
    resetMinSzie();

    streaming.exchange(true);
    ui->pushButton_2->setText(tr("停止"));
    ui->pushButton->setEnabled(false);
}

void Widget::on_pushButton_6_clicked() {
    if (streaming) {
        streaming.exchange(false);
        connected.exchange(false);
        on_pushButton_2_clicked();
    }
    ui->widget_kz->setEnabled(false);
    for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_max_color_mapping, ui->widget_min_color_mapping,
                                 ui->widget_rgb_manual_exposure, ui->widget_rgb_maximum_exposure_time,
                                 ui->widget_brightness, ui->widget_contrast, ui->widget_gamma_value, ui->widget_fps})
        editor->setEnable(false);
    for (SliderEditer* filter :
         {ui->widget_fly_filter, ui->widget_kalman_filter, ui->widget_time_filter, ui->widget_confidence_filter}) {
        filter->setChecked(false);
        filter->setEnable(false);
    }

    camera_.DisconnectFromDevice();
    resetView();
    {
        const QSignalBlocker blocker(ui->comboBox);
        ui->comboBox->clear();
    }
    // The list and the combo stay one and the same: a start needs a new search.
    deviceList.clear();
    for (QGraphicsScene* scene : {sceneIR, sceneRgb, sceneDep}) scene->clear();
    ui->widgetCp->clearWindow();

    ui->pushButton_2->setEnabled(false);
    ui->pushButton_6->setEnabled(false);
    connected.exchange(false);
    ui->pushButton->setEnabled(true);
    WIDGET_DEBUG(QStringLiteral("正常断开"));
}

void Widget::onDeviceChanged() {
    WIDGET_DEBUG("change");
    if (streaming) on_pushButton_2_clicked();
    WIDGET_DEBUG("change1");
    const QList<SliderEditer*> editors{ui->widget_exposure_time,       ui->widget_fps,
                                       ui->widget_max_color_mapping,   ui->widget_min_color_mapping,
                                       ui->widget_rgb_manual_exposure, ui->widget_rgb_maximum_exposure_time,
                                       ui->widget_brightness,          ui->widget_contrast,
                                       ui->widget_gamma_value,         ui->widget_fly_filter,
                                       ui->widget_kalman_filter,       ui->widget_time_filter,
                                       ui->widget_confidence_filter};
    {
        // Nothing of this may reach the camera that is being left.
        std::vector<std::unique_ptr<QSignalBlocker>> blockers;
        blockers.push_back(std::make_unique<QSignalBlocker>(ui->widget_kz));
        for (SliderEditer* e : editors) blockers.push_back(std::make_unique<QSignalBlocker>(e));
        ui->widget_kz->setEnabled(false);
        for (SliderEditer* e : editors) e->setEnable(false);
        for (SliderEditer* filter :
             {ui->widget_fly_filter, ui->widget_kalman_filter, ui->widget_time_filter, ui->widget_confidence_filter})
            filter->setChecked(false);
    }
    camera_.DisconnectFromDevice();
    connected.exchange(false);
    WIDGET_DEBUG("change2");
    resetView();
    ui->label_statusBar->setText(tr("已搜索到设备"));
}

void Widget::setCaptureMode(bool on) {
    // Models without trigger input run free: their trigger and delay
    // controls are hidden rather than shown disabled.
    for (QWidget* w : {static_cast<QWidget*>(ui->label_capture_mode), static_cast<QWidget*>(ui->comboBox_mode),
                       static_cast<QWidget*>(ui->pushButton_trigger), static_cast<QWidget*>(ui->label_delay),
                       static_cast<QWidget*>(ui->spinBox_ms), static_cast<QWidget*>(ui->label_ms),
                       static_cast<QWidget*>(ui->spinBox_us), static_cast<QWidget*>(ui->label_us),
                       static_cast<QWidget*>(ui->pushButton_set_time)})
        w->setVisible(on);
}
