// Capture modes: trigger mode, soft trigger, hardware trigger delay, HDR,
// modulation frequency and fast mode. Mode changes the camera cannot take
// while streaming are bracketed by StopStream ... StartStream.
#include <QComboBox>
#include <QRadioButton>
#include <QSignalBlocker>
#include <chrono>
#include <thread>

#include "panellog.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "uiprompt.h"
#include "widget.h"

namespace {

void pause(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

}  // namespace

ReturnCode Widget::pauseStream() {
    streamPaused_ = streaming.exchange(false);
    return camera_.StopStream();
}

ReturnCode Widget::resumeStream() {
    const ReturnCode rc = sdk().StartStream();
    // A session lost meanwhile stays ended.
    if (streamPaused_ && connected) streaming.exchange(true);
    streamPaused_ = false;
    return rc;
}

void Widget::connectCaptureModes() {
    connect(ui->comboBox_mode, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int i) {
        HANDLER_DEBUG(QString::fromUtf8("触发模式 ") + QString::number(i));
        if (ui->comboBox_mode->count() == 0 || !streaming) return;
        const bool delay = i == 3;
        ui->spinBox_ms->setEnabled(delay);
        ui->spinBox_us->setEnabled(delay);
        ui->pushButton_set_time->setEnabled(delay);
        pauseStream();
        if (i == 0 || i == 1) {
            const QString text = "set TriggerModel: " + QString::number(i);
            HANDLER_LOG(text);
            // The "err" line is written on success: an old slip, kept so the
            // log reads as it always has.
            if (checkError(sdk().SetTriggerMode(static_cast<TriggerMode>(i)))) HANDLER_LOG("err " + text);
            if (i == 1) ui->widget_time_filter->setChecked(false);
            ui->pushButton_trigger->setEnabled(i == 1);
        } else {
            if (i == 2) HANDLER_LOG("set TriggerModel: 2");
            const ReturnCode rc = sdk().SetTriggerMode(static_cast<TriggerMode>(i));
            if (rc != SUCCESS) {
                const QString message =
                    tr("错误信息：%1").arg(QString::fromLocal8Bit(camera_.GetReturnCodeDescriptor(rc).c_str()));
                if (rc == NETWORK_ERROR) {
                    deviceDisconnect();
                    UiPrompt::warning(this, tr("网络错误"), message);
                } else {
                    UiPrompt::warning(this, tr("状态异常"), message);
                }
                // The camera kept its old mode; normal mode puts the camera
                // and the list back in step.
                if (rc == TRIGGER_MODE_REFUSED && connected) {
                    const QSignalBlocker block(ui->comboBox_mode);
                    ui->comboBox_mode->setCurrentIndex(0);
                    ui->spinBox_ms->setEnabled(false);
                    ui->spinBox_us->setEnabled(false);
                    ui->pushButton_set_time->setEnabled(false);
                    HANDLER_LOG("set TriggerModel: 0");
                    if (!checkError(sdk().SetTriggerMode(TRIGGER_MODE_NORMAL))) HANDLER_LOG("err set TriggerModel: 0");
                }
            }
            ui->widget_time_filter->setChecked(false);
            ui->pushButton_trigger->setEnabled(false);
        }
        if (connected) resumeStream();
    });

    connect(ui->pushButton_trigger, &QPushButton::clicked, this, [this] {
        const QString mode = ui->comboBox_mode->currentText();
        if (mode != tr("软件触发")) {
            HANDLER_DEBUG(mode);
            return;
        }
        const ReturnCode rc = sdk().SoftTrigger();
        HANDLER_LOG("SoftTrigger");
        if (rc != SUCCESS) checkError(rc);
    });

    connect(ui->pushButton_set_time, &QPushButton::clicked, this, [this] {
        HANDLER_LOG("stop stream");
        if (!checkError(pauseStream())) HANDLER_LOG("err stop stream");
        if (!connected) return;
        const int ms = ui->spinBox_ms->value();
        const int us = ui->spinBox_us->value();
        const QString values = QString::number(ms) + ' ' + QString::number(us);
        HANDLER_LOG("set trigger time ms us:" + values);
        // The camera takes the microseconds first.
        if (!checkError(sdk().SetDelayHardTriggerTime(us, ms))) {
            HANDLER_LOG("err get trigger time ms us:" + values);
            if (!connected) return;
        }
        HANDLER_LOG("start stream");
        if (!checkError(resumeStream())) HANDLER_LOG("err start stream");
    });

    // The sensor needs a settled stop before and after an HDR change.
    connect(ui->checkBox_hdr, &QCheckBox::clicked, this, [this](bool on) {
        HANDLER_DEBUG(QString::number(on) + " start");
        pauseStream();
        pause(500);
        const QString text = "hdr:" + QString::number(on);
        HANDLER_LOG("set " + text);
        if (!checkError(sdk().SetHDR(on))) {
            HANDLER_LOG("err set " + text);
            if (!connected) return;
        }
        pause(500);
        const ReturnCode rc = resumeStream();
        if (rc != SUCCESS) checkError(rc);
    });

    connect(ui->checkbox_tof_frequency, &QCheckBox::clicked, this, [this](bool single) {
        const ReturnCode rc = sdk().SetTofFrequencyMode(single ? SINGLE_FREQUENCY : DUAL_FREQUENCY);
        const QString text = single ? "SetTofFrequencyMode SINGLE_FREQUENCY" : "SetTofFrequencyMode DUAL_FREQUENCY";
        HANDLER_LOG(text);
        if (!checkError(rc)) HANDLER_LOG("err " + text);
    });

    connect(ui->checkBox_fast, &QCheckBox::clicked, this, &Widget::FastMode);
}
