// The panel and configuration files: what an export reads from the panel,
// how an import reaches the camera, and storing the camera's settings.
//
// An import runs while the stream is stopped, as one script in a fixed
// order, every step going on after a failed one. The panel shows the file's
// values at once; a setting the camera refused goes back to what the panel
// showed before, so panel and camera agree once the script has run.
#include <QComboBox>
#include <QRadioButton>
#include <QSignalBlocker>
#include <memory>

#include "compatibility.h"
#include "controlpanel.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

namespace {

constexpr const char* kFile = "controlpanel";

// Every line of an import is reported from the function that applies the file.
#define IMPORT_ORIGIN LOG_AS("readConfigFromFil")

CameraStep& boxedStep(CameraScript& script, const QString& title, CameraScript::Call call) {
    CameraStep& step = script.call(IMPORT_ORIGIN, QString(), std::move(call), QString(), ResultCheck::Box);
    step.boxTitle = title;
    return step;
}

CameraStep& uncheckedStep(CameraScript& script, CameraScript::Call call) {
    return script.call(IMPORT_ORIGIN, QString(), std::move(call), QString(), ResultCheck::Ignored);
}

}  // namespace

void ControlPanel::fillConfiguration(PanelConfig& c) const {
    c.triggerMode = ui->comboBox_mode->currentIndex();
    c.irGamma = ui->widget_gamma_value->value();
    c.minColorMap = ui->widget_min_color_mapping->value();
    c.maxColorMap = ui->widget_max_color_mapping->value();
    c.autoExposure = ui->radioButton_auto->isChecked();
    c.hdr = ui->checkBox_hdr->isChecked();
    c.exposureTime = ui->widget_exposure_time->value();
    c.spatialFilter = ui->checkBox_space_filter->isChecked();
    c.timeFilter = ui->widget_time_filter->value();
    c.confidenceFilter = ui->widget_confidence_filter->value();
    c.flyFilter = ui->widget_fly_filter->value();
    c.timeFilterOn = ui->widget_time_filter->isChecked();
    c.confidenceFilterOn = ui->widget_confidence_filter->isChecked();
    c.flyFilterOn = ui->widget_fly_filter->isChecked();
    c.fps = ui->widget_fps->value();
    c.fastMode = ui->checkBox_fast->isChecked();
    c.rgbManual = ui->radioButton_rgb_manual->isChecked();
    c.rgbExposureTime = ui->widget_rgb_manual_exposure->value();
    c.rgbBrightness = ui->widget_brightness->value();
    c.rgbContrast = ui->widget_contrast->value();
    c.spatialIndex = ui->comboBox_median_filtering->currentIndex();
    c.hardDelayMs = ui->spinBox_ms->value();
    c.hardDelayUs = ui->spinBox_us->value();
    c.tofFrequency = ui->checkbox_tof_frequency->isChecked();
}

void ControlPanel::applyConfiguration(const PanelConfig& c, bool colourSensor, const CameraScript& tail,
                                      std::function<void(const ScriptOutcome&)> done) {
    DEBUG_LINE(kFile, "apply configuration");
    CameraScript script(tr("正在导入配置..."));
    // Panel changes to take back when the camera refuses the setting made
    // by the step at the given index.
    auto reverts = std::make_shared<std::vector<std::pair<std::size_t, std::function<void()>>>>();
    auto revertIfRefused = [&script, reverts](std::function<void()> revert) {
        reverts->emplace_back(script.size() - 1, std::move(revert));
    };

    // Colour sensor and trigger-delay controls, shown straight from the file.
    {
        const QSignalBlocker blockCombo(ui->comboBox_median_filtering);
        ui->radioButton_rgb_manual->setChecked(c.rgbManual);
        ui->radioButton_rgb_auto->setChecked(!c.rgbManual);
        ui->widget_rgb_manual_exposure->setValue(c.rgbExposureTime);
        ui->widget_brightness->setValue(c.rgbBrightness);
        ui->widget_contrast->setValue(c.rgbContrast);
        ui->comboBox_median_filtering->setCurrentIndex(c.spatialIndex);
        ui->spinBox_ms->setValue(c.hardDelayMs);
        ui->spinBox_us->setValue(c.hardDelayUs);
    }

    // Modulation frequency: the line after the call shows the negated value.
    {
        const bool single = c.tofFrequency;
        ui->checkbox_tof_frequency->setChecked(single);
        CameraStep& step = script.call(IMPORT_ORIGIN, QString(), [single](CameraInterface& c) {
            return c.SetTofFrequencyMode(single ? SINGLE_FREQUENCY : DUAL_FREQUENCY);
        });
        const QString line = IMPORT_ORIGIN.text(Compatibility::importFrequencyLine(single));
        step.after = [line] { return line; };
        step.failure << line << IMPORT_ORIGIN.text("err SetTofFrequencyMode");
    }

    // Trigger mode. The delay fields and the soft trigger follow the file's
    // mode; the list only once the camera took it.
    {
        const int mode = c.triggerMode;
        const bool delay = mode == int(TRIGGER_MODE_HARDWARE_DELAY);
        ui->spinBox_ms->setEnabled(delay);
        ui->spinBox_us->setEnabled(delay);
        ui->pushButton_set_time->setEnabled(delay);
        if (mode == int(TRIGGER_MODE_SOFTWARE)) ui->pushButton_trigger->setEnabled(true);
        boxedStep(script, tr("状态异常"),
                  [mode](CameraInterface& c) { return c.SetTriggerMode(static_cast<TriggerMode>(mode)); });
        const int before = ui->comboBox_mode->currentIndex();
        {
            const QSignalBlocker block(ui->comboBox_mode);
            ui->comboBox_mode->setCurrentIndex(mode);
        }
        revertIfRefused([this, before] {
            const QSignalBlocker block(ui->comboBox_mode);
            ui->comboBox_mode->setCurrentIndex(before);
        });
    }

    // IR gamma.
    {
        const int gamma = c.irGamma;
        boxedStep(script, tr("状态异常"), [gamma](CameraInterface& c) { return c.SetIRGMMGain(gamma); });
        const int before = ui->widget_gamma_value->value();
        ui->widget_gamma_value->setValue(gamma);
        revertIfRefused([this, before] { ui->widget_gamma_value->setValue(before); });
    }

    // ToF exposure. Auto exposure leaves HDR first, with the sensor's pauses.
    if (c.autoExposure) {
        ui->radioButton_auto->setChecked(true);
        if (ui->checkBox_hdr->isChecked()) {
            script.pause(500);
            uncheckedStep(script, [](CameraInterface& c) { return c.SetHDR(false); });
            script.pause(500);
            ui->checkBox_hdr->setChecked(false);
        }
        boxedStep(script, tr("状态异常"), [](CameraInterface& c) { return c.SetTofCameraAutoExposure(); });
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) editor->setEnabled(false);
        revertIfRefused([this] {
            for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) editor->setEnabled(true);
        });
    } else {
        const int exposure = c.exposureTime;
        boxedStep(script, tr("操作失败"),
                  [exposure](CameraInterface& c) { return c.SetTofCameraExposureTime(exposure); });
        const int before = ui->widget_exposure_time->value();
        ui->widget_exposure_time->setValue(exposure);
        revertIfRefused([this, before] { ui->widget_exposure_time->setValue(before); });
    }

    // HDR, between the sensor's pauses.
    {
        const bool hdr = c.hdr;
        script.pause(500);
        boxedStep(script, tr("操作失败"), [hdr](CameraInterface& c) { return c.SetHDR(hdr); });
        script.last().pauseMs = 500;
        const bool before = ui->checkBox_hdr->isChecked();
        ui->checkBox_hdr->setChecked(hdr);
        revertIfRefused([this, before] { ui->checkBox_hdr->setChecked(before); });
    }

    // Spatial filter on or off; its kernel follows once the frame rate is set.
    {
        const bool on = c.spatialFilter;
        showSpatialFilter(on, ui->comboBox_median_filtering->currentIndex());
        boxedStep(script, tr("操作失败"), [on](CameraInterface& c) { return c.SetSpatialFilter(on); });
    }

    // Confidence, time and fly-pixel filters.
    {
        ui->widget_confidence_filter->setValue(c.confidenceFilter);
        ui->widget_time_filter->setValue(c.timeFilter);
        ui->widget_fly_filter->setValue(c.flyFilter);
        ui->widget_time_filter->setChecked(c.timeFilterOn);
        ui->widget_confidence_filter->setChecked(c.confidenceFilterOn);
        ui->widget_fly_filter->setChecked(c.flyFilterOn);
        const FilterParam confidence{c.confidenceFilterOn, float(c.confidenceFilter), PanelRules::kFilterValue2};
        const FilterParam time{c.timeFilterOn, PanelRules::kernelSize(c.timeFilter), PanelRules::kFilterValue2};
        const FilterParam fly{c.flyFilterOn, float(c.flyFilter), PanelRules::kFilterValue2};
        script.call(IMPORT_ORIGIN, QString(),
                    [confidence](CameraInterface& c) { return c.SetConfidenceFilter(confidence); });
        script.call(IMPORT_ORIGIN, QString(), [time](CameraInterface& c) { return c.SetTimeMedianFilter(time); });
        script.call(IMPORT_ORIGIN, QString(), [fly](CameraInterface& c) { return c.SetFlyPixeFilter(fly); });
    }

    // Colour range, frame rate (with the exposures it allows) and fast mode.
    ui->widget_min_color_mapping->setValue(c.minColorMap);
    ui->widget_max_color_mapping->setValue(c.maxColorMap);
    emitColourRange(false);
    ui->widget_fps->setValue(c.fps);
    script.append(exposureLimitScript(c.fps));
    ui->checkBox_fast->setChecked(c.fastMode);
    DEBUG_LINE(kFile, "fast mode " + QString::number(c.fastMode));
    script.append(c.fastMode ? fastModeOn() : fastModeOff());
    emit fastModeChanged(c.fastMode);

    if (ui->checkBox_space_filter->isChecked()) {
        const float kernel = PanelRules::kernelSize(ui->comboBox_median_filtering->currentText().toInt());
        uncheckedStep(script, [kernel](CameraInterface& c) {
            return c.SetSpatialFilter(FilterParam{true, kernel, PanelRules::kFilterValue2});
        });
    }

    // Colour sensor: exposure mode and time, gain, contrast.
    if (colourSensor) {
        const bool manual = ui->radioButton_rgb_manual->isChecked();
        const int exposure = ui->widget_rgb_manual_exposure->value();
        const int gain = ui->widget_brightness->value();
        const int contrast = ui->widget_contrast->value();
        if (manual) {
            uncheckedStep(script, [](CameraInterface& c) { return c.SetRgbCameraExposureMode(MANUAL_EXPOSURE); });
            uncheckedStep(script, [exposure](CameraInterface& c) { return c.SetRgbCameraExposureTime(exposure); });
        } else {
            uncheckedStep(script, [](CameraInterface& c) { return c.SetRgbCameraExposureMode(AUTO_EXPOSURE); });
        }
        ui->widget_rgb_manual_exposure->setEnabled(manual);
        ui->widget_rgb_manual_exposure->setEnable(manual);
        uncheckedStep(script, [gain](CameraInterface& c) { return c.SetRgbCameraGain(gain); });
        uncheckedStep(script, [contrast](CameraInterface& c) { return c.SetRgbCameraContrastRatio(contrast); });
    }
    script.append(tail);

    script.onFinished(this, [reverts, done = std::move(done)](const ScriptOutcome& outcome) {
        for (const auto& [step, revert] : *reverts) {
            const std::optional<ReturnCode> rc = outcome.result(step);
            if (rc && *rc != SUCCESS) revert();
        }
        if (done) done(outcome);
    });
    submitHolding(script);
}

void ControlPanel::saveTheConfigurationToDevice() {
    CameraScript script;
    script.call(LOG_HERE, QString(), [](CameraInterface& c) { return c.SaveConfigureInfo(); });
    script.onFinished(this, [this](const ScriptOutcome& outcome) {
        if (!outcome.ok()) return;
        // The import's text, said for a store as well.
        emit prompt(PromptKind::Information, tr("完成"), Compatibility::storedConfigurationText());
    });
    submit(script);
}
