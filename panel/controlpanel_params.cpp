// Handlers of the panel's editors, exposure modes and filters. Each writes
// what it is about to send, sends it, and writes a failure; the session shows
// the box. The editor keeps the user's value either way, so panel and camera
// can disagree until the next read-back.
#include <QComboBox>
#include <QRadioButton>

#include "controlpanel.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

using PanelRules::filterLogText;
using PanelRules::kernelSize;
using PanelRules::kFilterValue2;

namespace {

using IntSetter = ReturnCode (CameraInterface::*)(int);
using FilterSetter = ReturnCode (CameraInterface::*)(FilterParam);

constexpr const char* kFile = "controlpanel";

// "set <text>" before the call, "err set <text>" after a failure.
CameraStep& setStep(CameraScript& script, LogOrigin origin, const QString& text, CameraScript::Call call) {
    return script.call(origin, "set " + text, std::move(call), "err set " + text);
}

}  // namespace

CameraScript ControlPanel::exposureLimitScript(int fps) {
    const PanelRules::ExposureLimits limits = PanelRules::exposureLimits(frameRateMap, fps);
    CameraScript script;
    const LogOrigin origin = LOG_AS("setExposureTime");
    if (ui->widget_exposure_time->value() > limits.tofMax) {
        ui->widget_exposure_time->setValue(limits.tofMax);
        const int v = limits.tofMax;
        setStep(script, origin, "TofCameraExposureTime:" + QString::number(v),
                [v](CameraInterface& c) { return c.SetTofCameraExposureTime(v); });
    }
    // Also for cameras without an RGB sensor: the editor must not offer
    // exposures the rate cannot take should the session change model.
    if (ui->widget_rgb_manual_exposure->value() > limits.rgbMax) {
        ui->widget_rgb_manual_exposure->setValue(limits.rgbMax);
        const int v = limits.rgbMax;
        setStep(script, origin, "RgbCameraExposureTime:" + QString::number(v),
                [v](CameraInterface& c) { return c.SetRgbCameraExposureTime(v); });
    }
    ui->widget_exposure_time->setRange(6, limits.tofMax);
    ui->widget_rgb_manual_exposure->setRange(0, limits.rgbMax);
    setStep(script, origin, "fps:" + QString::number(fps), [fps](CameraInterface& c) { return c.SetFrameRate(fps); });
    return script;
}

void ControlPanel::setExposureTime(int fps) { submit(exposureLimitScript(fps)); }

void ControlPanel::showSpatialFilter(bool on, int comboIndex) {
    QComboBox* combo = ui->comboBox_median_filtering;
    combo->blockSignals(true);
    combo->setCurrentIndex(comboIndex);
    combo->setEnabled(on);
    ui->checkBox_space_filter->setChecked(on);
    combo->blockSignals(!on);
}

void ControlPanel::connectParameterHandlers() {
    // Editors whose value goes to the camera unchanged.
    struct IntEditor {
        SliderEditer* editor;
        IntSetter setter;
        const char* item;
        const char* debugLine;  // nullptr: none
    };
    const IntEditor intEditors[] = {
        {ui->widget_exposure_time, &CameraInterface::SetTofCameraExposureTime, "TofCameraExposureTime", nullptr},
        {ui->widget_gamma_value, &CameraInterface::SetIRGMMGain, "IRGMMGain", nullptr},
        {ui->widget_rgb_manual_exposure, &CameraInterface::SetRgbCameraExposureTime, "RgbCameraExposureTime",
         "set rgb ExposureTime"},
        {ui->widget_brightness, &CameraInterface::SetRgbCameraGain, "RgbCameraGain", "set brightness"},
        {ui->widget_contrast, &CameraInterface::SetRgbCameraContrastRatio, "RgbCameraContrastRatio", "set contrast"},
    };
    for (const IntEditor& e : intEditors) {
        connect(e.editor, &SliderEditer::ValChanged, this, [this, e](int v) {
            if (e.debugLine) DEBUG_HANDLER(kFile, e.debugLine);
            CameraScript script;
            const IntSetter setter = e.setter;
            setStep(script, LOG_HANDLER, QString::fromLatin1(e.item) + ':' + QString::number(v),
                    [setter, v](CameraInterface& c) { return (c.*setter)(v); });
            submit(script);
        });
    }

    // Filters: the value handler switches the filter on with the new value,
    // the check box handler sends the editor's value with the new state.
    struct FilterEditor {
        SliderEditer* editor;
        FilterSetter setter;
        const char* item;
        bool kernel;  // the editor holds v of the kernel size 2v+1
    };
    const FilterEditor filterEditors[] = {
        {ui->widget_time_filter, &CameraInterface::SetTimeMedianFilter, "timeval", true},
        {ui->widget_fly_filter, &CameraInterface::SetFlyPixeFilter, "flyval", false},
        {ui->widget_confidence_filter, &CameraInterface::SetConfidenceFilter, "confidenceval", false},
    };
    for (const FilterEditor& f : filterEditors) {
        auto send = [this, f](bool on, int v) {
            const float value = f.kernel ? kernelSize(v) : static_cast<float>(v);
            CameraScript script;
            const FilterSetter setter = f.setter;
            setStep(script, LOG_HANDLER, QString::fromLatin1(f.item) + ':' + filterLogText(on, value),
                    [setter, on, value](CameraInterface& c) {
                        return (c.*setter)(FilterParam{on, value, kFilterValue2});
                    });
            submit(script);
        };
        connect(f.editor, &SliderEditer::ValChanged, this, [send](int v) { send(true, v); });
        connect(f.editor, &SliderEditer::IsCheck, this, [f, send](bool checked) {
            DEBUG_HANDLER(kFile, QString::number(checked) + " kaishi");
            send(checked, f.editor->value());
        });
    }
    // The Kalman editor and the RGB maximum auto exposure editor are shown
    // but have nothing to send: the camera has no such settings.

    // Colour range of the depth image and the point cloud; nothing is sent.
    auto applyColourRange = [this](int v) {
        emitColourRange();
        DEBUG_HANDLER(kFile, QString::number(v));
    };
    connect(ui->widget_min_color_mapping, &SliderEditer::ValChanged, this, [this, applyColourRange](int v) {
        if (v > ui->widget_max_color_mapping->value()) {
            emit prompt(PromptKind::Warning, tr("范围错误"), tr("最小映射值大于最大映射值"));
            ui->widget_min_color_mapping->setValue(ui->widget_max_color_mapping->value());
        }
        applyColourRange(v);
    });
    connect(ui->widget_max_color_mapping, &SliderEditer::ValChanged, this, [this, applyColourRange](int v) {
        if (v < ui->widget_min_color_mapping->value()) {
            emit prompt(PromptKind::Warning, tr("范围错误"), tr("最小映射值大于最大映射值"));
            ui->widget_max_color_mapping->setValue(ui->widget_min_color_mapping->value());
        }
        applyColourRange(v);
    });

    connect(ui->widget_fps, &SliderEditer::ValChanged, this, &ControlPanel::setExposureTime);

    // ToF exposure modes. HDR needs manual exposure, so auto leaves it first.
    connect(ui->radioButton_manual, &QRadioButton::clicked, this, [this] {
        DEBUG_HANDLER(kFile, "xuan zhong");
        ui->checkBox_hdr->setEnabled(true);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnabled(true);
            editor->setEnable(true);
        }
        const int fps = ui->widget_fps->value();
        const int exposure = ui->widget_exposure_time->value();
        CameraScript script;
        setStep(script, LOG_HANDLER, "fps:" + QString::number(fps),
                [fps](CameraInterface& c) { return c.SetFrameRate(fps); });
        setStep(script, LOG_HANDLER, "TofCameraExposureTime:" + QString::number(exposure),
                [exposure](CameraInterface& c) { return c.SetTofCameraExposureTime(exposure); });
        submit(script);
    });
    connect(ui->radioButton_auto, &QRadioButton::clicked, this, [this] {
        DEBUG_HANDLER(kFile, "xuan zhong");
        CameraScript script(tr("正在切换曝光模式..."));
        if (ui->checkBox_hdr->isChecked()) {
            script
                .call(
                    LOG_HANDLER, QString(), [](CameraInterface& c) { return c.StopStream(); }, QString(),
                    ResultCheck::Ignored)
                .stream = StreamEffect::Stop;
            setStep(script, LOG_HANDLER, "hdr:0", [](CameraInterface& c) { return c.SetHDR(false); });
            script
                .call(
                    LOG_HANDLER, QString(), [](CameraInterface& c) { return c.StartStream(); }, QString(),
                    ResultCheck::Ignored)
                .stream = StreamEffect::Start;
        }
        ui->checkBox_hdr->setChecked(false);
        ui->checkBox_hdr->setEnabled(false);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnable(false);
            editor->setEnabled(false);
        }
        // Judged by a zero result rather than like the other calls, as the
        // exposure-mode calls always have been.
        script.call(
            LOG_HANDLER, "set TofCameraAutoExposure", [](CameraInterface& c) { return c.SetTofCameraAutoExposure(); },
            "err set TofCameraAutoExposure", ResultCheck::ZeroFails);
        submitHolding(script);
    });

    // Spatial filter. The check box sends 3 for the item "1" and 5 for any
    // other, while the combo sends 2n+1 (7 for "3"): both kept as they are.
    connect(ui->checkBox_space_filter, &QCheckBox::clicked, this, [this](bool checked) {
        DEBUG_HANDLER(kFile, QString::number(checked) + " start");
        QComboBox* combo = ui->comboBox_median_filtering;
        CameraScript script;
        if (!checked) {
            combo->setEnabled(false);
            combo->blockSignals(true);
            setStep(script, LOG_HANDLER, "Spatialval:0", [](CameraInterface& c) { return c.SetSpatialFilter(false); });
            submit(script);
            return;
        }
        combo->setEnabled(true);
        combo->blockSignals(false);
        const float value = PanelRules::spatialKernelForCheckBox(combo->currentText());
        setStep(script, LOG_HANDLER, "Spatialval:" + filterLogText(true, value), [value](CameraInterface& c) {
            return c.SetSpatialFilter(FilterParam{true, value, kFilterValue2});
        });
        submit(script);
    });
    connect(ui->comboBox_median_filtering, &QComboBox::currentTextChanged, this, [this](const QString& item) {
        const float value = kernelSize(item.toInt());
        CameraScript script;
        setStep(script, LOG_HANDLER, "Spatialval:" + filterLogText(true, value), [value](CameraInterface& c) {
            return c.SetSpatialFilter(FilterParam{true, value, kFilterValue2});
        });
        submit(script);
    });
    connect(ui->checkBox_mean_filter, &QCheckBox::clicked, this,
            [](bool checked) { DEBUG_HANDLER(kFile, QString::number(checked) + " start"); });

    // RGB exposure modes, judged by a zero result like the ToF auto call.
    connect(ui->radioButton_rgb_manual, &QRadioButton::clicked, this, [this] {
        if (!ui->radioButton_rgb_manual->isChecked()) return;
        DEBUG_HANDLER(kFile, "rgb manual clicked");
        ui->widget_rgb_manual_exposure->setEnable(true);
        ui->widget_rgb_manual_exposure->setEnabled(true);
        ui->widget_rgb_maximum_exposure_time->setEnable(false);
        const int v = ui->widget_rgb_manual_exposure->value();
        CameraScript script;
        script.log(LOG_HANDLER, "rgb manual clicked");
        script.call(
            LOG_HANDLER, "set rgb MANUAL_EXPOSURE",
            [](CameraInterface& c) { return c.SetRgbCameraExposureMode(MANUAL_EXPOSURE); },
            "err set rgb MANUAL_EXPOSURE", ResultCheck::ZeroFails);
        setStep(script, LOG_HANDLER, "RgbCameraExposureTime:" + QString::number(v),
                [v](CameraInterface& c) { return c.SetRgbCameraExposureTime(v); });
        submit(script);
    });
    connect(ui->radioButton_rgb_auto, &QRadioButton::clicked, this, [this] {
        if (!ui->radioButton_rgb_auto->isChecked()) return;
        ui->widget_rgb_manual_exposure->setEnable(false);
        ui->widget_rgb_manual_exposure->setEnabled(false);
        ui->widget_rgb_maximum_exposure_time->setEnable(true);
        CameraScript script;
        script.log(LOG_HANDLER, "rgb auto clicked");
        script.call(
            LOG_HANDLER, "set rgb AUTO_EXPOSURE",
            [](CameraInterface& c) { return c.SetRgbCameraExposureMode(AUTO_EXPOSURE); }, "err set rgb AUTO_EXPOSURE",
            ResultCheck::ZeroFails);
        submit(script);
    });
}
