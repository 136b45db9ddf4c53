// Fast mode: the camera runs at the 25 fps row of the limit table with single
// integration and no filtering; leaving it restores the panel's settings.
// The panel changes at once; the camera calls run as one script.
#include <QComboBox>
#include <QRadioButton>

#include "compatibility.h"
#include "controlpanel.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

namespace {

constexpr int kFastModeFps = 25;
constexpr const char* kFile = "controlpanel";

// Every line of fast mode is reported from FastMode.
#define FAST_ORIGIN LOG_AS("FastMode")

CameraStep& fastStep(CameraScript& script, LogOrigin origin, const QString& text, const QString& failure,
                     CameraScript::Call call) {
    return script.call(origin, text, std::move(call), failure);
}

}  // namespace

void ControlPanel::FastMode(bool on) {
    DEBUG_LINE(kFile, "fast mode " + QString::number(on));
    submitHolding(on ? fastModeOn() : fastModeOff());
    emit fastModeChanged(on);
}

CameraScript ControlPanel::fastModeOn() {
    CameraScript script(tr("正在切换快速模式..."));
    const int rgbMax = PanelRules::exposureLimits(frameRateMap, kFastModeFps).rgbMax;
    const QString rgb = QString::number(rgbMax);
    if (ui->widget_rgb_manual_exposure->value() > rgbMax || ui->radioButton_rgb_manual->isChecked())
        fastStep(script, FAST_ORIGIN, "Set RGB exposure " + rgb, "err Set RGB exposure " + rgb,
                 [rgbMax](CameraInterface& c) { return c.SetRgbCameraExposureTime(rgbMax); });
    ui->widget_rgb_manual_exposure->setRange(0, rgbMax);
    ui->pushButton_save_config->setEnabled(false);

    // With the stream running the mode change is bracketed by stop and start.
    if (status_.state == SessionState::Streaming) ui->checkBox_hdr->setChecked(false);
    CameraStep& stop = fastStep(script, FAST_ORIGIN, "stop stream", "err stop stream",
                                [](CameraInterface& c) { return c.StopStream(); });
    stop.when = StepWhen::Streaming;
    stop.stream = StreamEffect::Stop;
    fastStep(script, FAST_ORIGIN, "set hdr:0", "err set hdr:0", [](CameraInterface& c) {
        return c.SetHDR(false);
    }).when = StepWhen::Streaming;
    fastStep(script, FAST_ORIGIN, "set SingleIntegralModel", "err set SingleIntegralModel",
             [](CameraInterface& c) { return c.SetSingleIntegralMode(); });
    CameraStep& start = fastStep(script, FAST_ORIGIN, "start stream", "err start stream",
                                 [](CameraInterface& c) { return c.StartStream(); });
    start.when = StepWhen::Streaming;
    start.stream = StreamEffect::Start;

    fastStep(script, FAST_ORIGIN, "set Spatialval:0", "err set Spatialval:0",
             [](CameraInterface& c) { return c.SetSpatialFilter(false); });
    fastStep(script, FAST_ORIGIN, "set Timeval:0", "err set Timeval:0",
             [](CameraInterface& c) { return c.SetTimeMedianFilter(false); });
    fastStep(script, FAST_ORIGIN, Compatibility::kFastConfidenceSet + "0", Compatibility::kFastConfidenceFailure + "0",
             [](CameraInterface& c) { return c.SetConfidenceFilter(false); });
    fastStep(script, FAST_ORIGIN, "set Flyval:0", "err set Flyval:0",
             [](CameraInterface& c) { return c.SetFlyPixeFilter(false); });

    for (SliderEditer* editor : {ui->widget_confidence_filter, ui->widget_time_filter, ui->widget_fly_filter,
                                 ui->widget_kalman_filter, ui->widget_exposure_time, ui->widget_fps}) {
        editor->setEnabled(false);
        editor->setEnable(false);
    }
    for (QWidget* w : std::initializer_list<QWidget*>{ui->checkBox_hdr, ui->checkBox_space_filter, ui->radioButton_auto,
                                                      ui->radioButton_manual, ui->comboBox_median_filtering})
        w->setEnabled(false);
    DEBUG_LINE(kFile, "fast mode start");
    script.log(FAST_ORIGIN, "fast mode start");
    return script;
}

CameraScript ControlPanel::fastModeOff() {
    CameraScript script(tr("正在切换快速模式..."));
    script.append(exposureLimitScript(ui->widget_fps->value()));
    ui->pushButton_save_config->setEnabled(true);

    CameraStep& stop = fastStep(script, FAST_ORIGIN, "stop stream", "err stop stream",
                                [](CameraInterface& c) { return c.StopStream(); });
    stop.when = StepWhen::Streaming;
    stop.stream = StreamEffect::Stop;
    // HDR is switched on and straight off again whatever its box shows: that
    // takes the sensor out of single integration.
    fastStep(script, FAST_ORIGIN, "set hdr:1", "err set hdr:1", [](CameraInterface& c) { return c.SetHDR(true); });
    script.pause(100);
    fastStep(script, FAST_ORIGIN, "set hdr:0", "err set hdr:0", [](CameraInterface& c) { return c.SetHDR(false); });
    const int exposure = ui->widget_exposure_time->value();
    fastStep(script, FAST_ORIGIN, "set TofCameraExposureTime:" + QString::number(exposure),
             "err set TofCameraExposureTime:" + QString::number(exposure),
             [exposure](CameraInterface& c) { return c.SetTofCameraExposureTime(exposure); });
    CameraStep& start = fastStep(script, FAST_ORIGIN, "start stream", "err start stream",
                                 [](CameraInterface& c) { return c.StartStream(); });
    start.when = StepWhen::Streaming;
    start.stream = StreamEffect::Start;
    const int fps = ui->widget_fps->value();
    fastStep(script, FAST_ORIGIN, "set fps:" + QString::number(fps), "err set fps:" + QString::number(fps),
             [fps](CameraInterface& c) { return c.SetFrameRate(fps); });

    struct Filter {
        SliderEditer* editor;
        ReturnCode (CameraInterface::*setter)(bool);
        QString text;
        QString errText;
    };
    const Filter filters[] = {
        {ui->widget_confidence_filter, &CameraInterface::SetConfidenceFilter, Compatibility::kFastConfidenceSet + "1",
         Compatibility::kFastConfidenceFailure + "1"},
        {ui->widget_time_filter, &CameraInterface::SetTimeMedianFilter, "set Timeval:1", "err set Timeval:1"},
        {ui->widget_fly_filter, &CameraInterface::SetFlyPixeFilter, "set Flyval:1", "err set Flyval:1"},
    };
    for (const Filter& f : filters) {
        f.editor->setEnabled(true);
        if (!f.editor->isChecked()) continue;
        f.editor->setEnable(true);
        const auto setter = f.setter;
        fastStep(script, FAST_ORIGIN, f.text, f.errText, [setter](CameraInterface& c) { return (c.*setter)(true); });
    }

    ui->widget_kalman_filter->setEnabled(true);
    ui->widget_kalman_filter->setEnable(ui->widget_kalman_filter->isChecked());
    if (ui->radioButton_manual->isChecked()) {
        ui->checkBox_hdr->setEnabled(true);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnabled(true);
            editor->setEnable(true);
        }
    } else {
        script.call(
            FAST_ORIGIN, "set TofCameraAutoExposure", [](CameraInterface& c) { return c.SetTofCameraAutoExposure(); },
            "err set TofCameraAutoExposure", ResultCheck::ZeroFails);
    }
    ui->checkBox_space_filter->setEnabled(true);
    if (ui->checkBox_space_filter->isChecked()) ui->comboBox_median_filtering->setEnabled(true);
    ui->radioButton_auto->setEnabled(true);
    ui->radioButton_manual->setEnabled(true);
    DEBUG_LINE(kFile, "fast mode stop");
    script.log(FAST_ORIGIN, "fast mode stop");
    return script;
}
