// The two default slots: filter defaults (the panel button) and the whole
// panel's defaults. The panel changes at once; the camera gets each value in
// turn, with the stream stopped around the mode changes.
#include <QComboBox>
#include <QRadioButton>
#include <QSignalBlocker>

#include "controlpanel.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

using PanelRules::filterLogText;
using PanelRules::kFilterValue2;

namespace {

constexpr int kDefaultTimeFilter = 3;  // kernel 7, switched off
constexpr int kDefaultFlyFilter = 15;
constexpr int kDefaultConfidenceFilter = 15;
constexpr float kDefaultSpatialKernel = 3.0f;

CameraStep& setStep(CameraScript& script, LogOrigin origin, const QString& text, CameraScript::Call call) {
    return script.call(origin, "set " + text, std::move(call), "err set " + text);
}

CameraStep& streamStep(CameraScript& script, LogOrigin origin, bool start) {
    CameraStep& step =
        start ? script.call(
                    origin, QString(), [](CameraInterface& c) { return c.StartStream(); }, "err start stream")
              : script.call(
                    origin, QString(), [](CameraInterface& c) { return c.StopStream(); }, QString(),
                    ResultCheck::Ignored);
    step.stream = start ? StreamEffect::Start : StreamEffect::Stop;
    return step;
}

}  // namespace

void ControlPanel::appendFilterDefaults(CameraScript& script, const char* slot) {
    const LogOrigin origin = LOG_AS(slot);
    // Outside normal mode the time filter belongs to the trigger mode.
    if (ui->comboBox_mode->currentIndex() == 0) {
        const float time = PanelRules::kernelSize(kDefaultTimeFilter);
        setStep(script, origin, "timeval:" + filterLogText(false, time), [time](CameraInterface& c) {
            return c.SetTimeMedianFilter(FilterParam{false, time, kFilterValue2});
        });
    }
    setStep(script, origin, "flyval:" + filterLogText(true, kDefaultFlyFilter), [](CameraInterface& c) {
        return c.SetFlyPixeFilter(FilterParam{true, float(kDefaultFlyFilter), kFilterValue2});
    });
    setStep(script, origin, "confidenceval:" + filterLogText(true, kDefaultConfidenceFilter), [](CameraInterface& c) {
        return c.SetConfidenceFilter(FilterParam{true, float(kDefaultConfidenceFilter), kFilterValue2});
    });
    setStep(script, origin, "Spatialval:" + filterLogText(true, kDefaultSpatialKernel), [](CameraInterface& c) {
        return c.SetSpatialFilter(FilterParam{true, kDefaultSpatialKernel, kFilterValue2});
    });
    showSpatialFilter(true, 0);
}

void ControlPanel::filteringDefaultConfiguration() {
    if (!controlsOn_) return;
    ui->widget_time_filter->setValue(kDefaultTimeFilter);
    ui->widget_time_filter->setChecked(false);
    for (SliderEditer* editor : {ui->widget_fly_filter, ui->widget_confidence_filter}) editor->setChecked(true);
    ui->widget_fly_filter->setValue(kDefaultFlyFilter);
    ui->widget_confidence_filter->setValue(kDefaultConfidenceFilter);
    CameraScript script;
    appendFilterDefaults(script, "filteringDefaultConfiguration");
    submit(script);
}

void ControlPanel::DefaultConfigurationSlots() {
    if (!controlsOn_) return;
    const LogOrigin origin = LOG_HERE;
    ui->widget_max_color_mapping->setValue(5000);
    ui->widget_min_color_mapping->setValue(200);
    emitColourRange(false);
    ui->widget_time_filter->setValue(kDefaultTimeFilter);
    ui->widget_time_filter->setChecked(false);
    for (SliderEditer* editor : {ui->widget_fly_filter, ui->widget_confidence_filter}) {
        editor->setChecked(true);
        editor->setValue(editor == ui->widget_fly_filter ? kDefaultFlyFilter : kDefaultConfidenceFilter);
    }

    CameraScript script(tr("正在应用默认配置..."));
    streamStep(script, origin, false);
    script.pause(500);
    setStep(script, origin, "hdr:0", [](CameraInterface& c) { return c.SetHDR(false); });
    ui->checkBox_hdr->setChecked(false);
    script.pause(500);
    streamStep(script, origin, true);
    appendFilterDefaults(script, "DefaultConfigurationSlots");

    ui->radioButton_manual->setChecked(true);
    ui->checkBox_hdr->setEnabled(true);
    for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
        editor->setEnabled(true);
        editor->setEnable(true);
    }
    script.append(exposureLimitScript(10));
    ui->widget_fps->setValue(10);
    ui->widget_exposure_time->setValue(2000);
    const int exposure = ui->widget_exposure_time->value();
    setStep(script, origin, "TofCameraExposureTime:" + QString::number(exposure),
            [exposure](CameraInterface& c) { return c.SetTofCameraExposureTime(exposure); });

    ui->checkBox_fast->setChecked(false);

    ui->radioButton_rgb_manual->setChecked(true);
    ui->widget_rgb_manual_exposure->setEnabled(true);
    ui->widget_rgb_manual_exposure->setValue(150);
    script.call(
        origin, "set rgb MANUAL_EXPOSURE",
        [](CameraInterface& c) { return c.SetRgbCameraExposureMode(MANUAL_EXPOSURE); }, "err set rgb MANUAL_EXPOSURE",
        ResultCheck::ZeroFails);
    const int rgbExposure = ui->widget_rgb_manual_exposure->value();
    setStep(script, origin, "RgbCameraExposureTime:" + QString::number(rgbExposure),
            [rgbExposure](CameraInterface& c) { return c.SetRgbCameraExposureTime(rgbExposure); });
    ui->widget_brightness->setValue(30);
    ui->widget_contrast->setValue(100);
    const int gain = ui->widget_brightness->value();
    const int contrast = ui->widget_contrast->value();
    setStep(script, origin, "RgbCameraGain:" + QString::number(gain),
            [gain](CameraInterface& c) { return c.SetRgbCameraGain(gain); });
    setStep(script, origin, "RgbCameraContrastRatio:" + QString::number(contrast),
            [contrast](CameraInterface& c) { return c.SetRgbCameraContrastRatio(contrast); });
    ui->widget_rgb_manual_exposure->setEnable(true);

    streamStep(script, origin, false);
    setStep(script, origin, "TriggerModel: 0",
            [](CameraInterface& c) { return c.SetTriggerMode(TRIGGER_MODE_NORMAL); });
    {
        const QSignalBlocker block(ui->comboBox_mode);
        ui->comboBox_mode->setCurrentIndex(0);
    }
    for (QWidget* w : std::initializer_list<QWidget*>{ui->pushButton_trigger, ui->spinBox_ms, ui->spinBox_us})
        w->setEnabled(false);

    script.call(
        origin, "SetTofFrequencyMode DUAL_FREQUENCY",
        [](CameraInterface& c) { return c.SetTofFrequencyMode(DUAL_FREQUENCY); },
        "err SetTofFrequencyMode DUAL_FREQUENCY");
    ui->checkbox_tof_frequency->setChecked(false);
    streamStep(script, origin, true);
    submitHolding(script);
}
