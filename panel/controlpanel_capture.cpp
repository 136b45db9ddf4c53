// Capture modes: trigger mode, soft trigger, hardware trigger delay, HDR and
// modulation frequency. Mode changes the camera cannot take while streaming
// are bracketed by StopStream ... StartStream; the session runs them while
// the panel waits, disabled.
#include <QComboBox>
#include <QSignalBlocker>

#include "compatibility.h"
#include "controlpanel.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

namespace {

constexpr const char* kFile = "controlpanel";

CameraStep& stopStream(CameraScript& script, LogOrigin origin, ResultCheck check, const QString& before = QString(),
                       const QString& failure = QString()) {
    CameraStep& step = script.call(
        origin, before, [](CameraInterface& c) { return c.StopStream(); }, failure, check);
    step.stream = StreamEffect::Stop;
    return step;
}

CameraStep& startStream(CameraScript& script, LogOrigin origin, ResultCheck check, const QString& before = QString(),
                        const QString& failure = QString()) {
    CameraStep& step = script.call(
        origin, before, [](CameraInterface& c) { return c.StartStream(); }, failure, check);
    step.stream = StreamEffect::Start;
    return step;
}

}  // namespace

void ControlPanel::connectCaptureModes() {
    connect(ui->comboBox_mode, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &ControlPanel::onTriggerMode);

    connect(ui->pushButton_trigger, &QPushButton::clicked, this, [this] {
        if (ui->comboBox_mode->currentIndex() != int(TRIGGER_MODE_SOFTWARE)) {
            DEBUG_HANDLER(kFile, ui->comboBox_mode->currentText());
            return;
        }
        CameraScript script;
        CameraStep& step = script.call(LOG_HANDLER, QString(), [](CameraInterface& c) { return c.SoftTrigger(); });
        // Written once the call returned, whatever it returned.
        step.after = [line = LOG_HANDLER.text("SoftTrigger")] { return line; };
        step.failure << LOG_HANDLER.text("SoftTrigger");
        submit(script);
    });

    connect(ui->pushButton_set_time, &QPushButton::clicked, this, [this] {
        const int ms = ui->spinBox_ms->value();
        const int us = ui->spinBox_us->value();
        const QString values = QString::number(ms) + ' ' + QString::number(us);
        CameraScript script(tr("正在设置触发延时..."));
        stopStream(script, LOG_HANDLER, ResultCheck::Error, "stop stream", "err stop stream");
        script.call(
            LOG_HANDLER, "set trigger time ms us:" + values,
            [us, ms](CameraInterface& c) { return Compatibility::setHardTriggerDelay(c, ms, us); },
            Compatibility::kHardTriggerDelayFailure + values);
        startStream(script, LOG_HANDLER, ResultCheck::Error, "start stream", "err start stream");
        submitHolding(script);
    });

    // The sensor needs a settled stop before and after an HDR change.
    connect(ui->checkBox_hdr, &QCheckBox::clicked, this, [this](bool on) {
        DEBUG_HANDLER(kFile, QString::number(on) + " start");
        const QString text = "hdr:" + QString::number(on);
        CameraScript script(tr("正在切换HDR..."));
        stopStream(script, LOG_HANDLER, ResultCheck::Ignored);
        script.pause(500);
        script.call(
            LOG_HANDLER, "set " + text, [on](CameraInterface& c) { return c.SetHDR(on); }, "err set " + text);
        script.pause(500);
        startStream(script, LOG_HANDLER, ResultCheck::Error);
        submitHolding(script);
    });

    connect(ui->checkbox_tof_frequency, &QCheckBox::clicked, this, [this](bool single) {
        const QString text = single ? "SetTofFrequencyMode SINGLE_FREQUENCY" : "SetTofFrequencyMode DUAL_FREQUENCY";
        CameraScript script;
        // The line follows the call here.
        CameraStep& step = script.call(LOG_HANDLER, QString(), [single](CameraInterface& c) {
            return c.SetTofFrequencyMode(single ? SINGLE_FREQUENCY : DUAL_FREQUENCY);
        });
        step.after = [line = LOG_HANDLER.text(text)] { return line; };
        step.failure << LOG_HANDLER.text(text) << LOG_HANDLER.text("err " + text);
        submit(script);
    });

    connect(ui->checkBox_fast, &QCheckBox::clicked, this, &ControlPanel::FastMode);
}

void ControlPanel::onTriggerMode(int i) {
    DEBUG_HANDLER(kFile, QString::fromUtf8("触发模式 ") + QString::number(i));
    if (ui->comboBox_mode->count() == 0 || status_.state != SessionState::Streaming) return;
    const bool delay = i == int(TRIGGER_MODE_HARDWARE_DELAY);
    ui->spinBox_ms->setEnabled(delay);
    ui->spinBox_us->setEnabled(delay);
    ui->pushButton_set_time->setEnabled(delay);

    CameraScript script(tr("正在切换触发模式..."));
    script.whileStreaming();
    stopStream(script, LOG_HANDLER, ResultCheck::Ignored);
    const TriggerMode mode = static_cast<TriggerMode>(i);
    const auto setMode = [mode](CameraInterface& c) { return c.SetTriggerMode(mode); };
    std::size_t modeStep = 0;
    if (i == 0 || i == 1) {
        const QString text = "set TriggerModel: " + QString::number(i);
        CameraStep& step = script.call(LOG_HANDLER, text, setMode);
        step.after = [line = LOG_HANDLER.text(Compatibility::triggerModeSuccessLine(text))] { return line; };
        if (i == 1) ui->widget_time_filter->setChecked(false);
        ui->pushButton_trigger->setEnabled(i == 1);
    } else {
        script.call(LOG_HANDLER, i == 2 ? "set TriggerModel: 2" : QString(), setMode);
        modeStep = script.size() - 1;
        // The camera kept its old mode; normal mode puts the camera and the
        // list back in step.
        CameraStep& back = script.call(
            LOG_HANDLER, "set TriggerModel: 0",
            [](CameraInterface& c) { return c.SetTriggerMode(TRIGGER_MODE_NORMAL); }, "err set TriggerModel: 0");
        back.onlyIf = [](const ScriptOutcome& o, std::size_t self) {
            return o.result(self - 1) == TRIGGER_MODE_REFUSED;
        };
        ui->widget_time_filter->setChecked(false);
        ui->pushButton_trigger->setEnabled(false);
    }
    startStream(script, LOG_HANDLER, ResultCheck::Ignored);
    if (modeStep != 0) {
        script.onFinished(this, [this, modeStep](const ScriptOutcome& outcome) {
            if (outcome.result(modeStep) != TRIGGER_MODE_REFUSED || outcome.sessionLost) return;
            const QSignalBlocker block(ui->comboBox_mode);
            ui->comboBox_mode->setCurrentIndex(0);
            ui->spinBox_ms->setEnabled(false);
            ui->spinBox_us->setEnabled(false);
            ui->pushButton_set_time->setEnabled(false);
        });
    }
    submitHolding(script);
}
