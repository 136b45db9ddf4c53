// Handlers of the control panel's editors, exposure modes and filters. Each
// logs what it is about to send, sends it, and logs a failure; checkError
// shows the box. The editor keeps the user's value either way, so panel and
// camera can disagree until the next read-back.
#include <QComboBox>
#include <QRadioButton>

#include "panellog.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "uiprompt.h"
#include "widget.h"

using PanelRules::filterLogText;
using PanelRules::kernelSize;
using PanelRules::kFilterValue2;

namespace {

using IntSetter = ReturnCode (DeviceManager::*)(int);
using FilterSetter = ReturnCode (DeviceManager::*)(FilterParam);

FilterSetter filterSetter(ReturnCode (DeviceManager::*setter)(FilterParam)) { return setter; }

}  // namespace

void Widget::setExposureTime(int fps) {
    const PanelRules::ExposureLimits limits = PanelRules::exposureLimits(frameRateMap, fps);
    if (ui->widget_exposure_time->value() > limits.tofMax) {
        ui->widget_exposure_time->setValue(limits.tofMax);
        const QString v = QString::number(limits.tofMax);
        WIDGET_LOG("set TofCameraExposureTime:" + v);
        if (!checkError(sdk().SetTofCameraExposureTime(limits.tofMax))) {
            WIDGET_LOG("err set TofCameraExposureTime:" + v);
            if (!connected) return;  // the link is gone; further calls only add boxes
        }
    }
    // Also for cameras without an RGB sensor: the editor must not offer
    // exposures the rate cannot take should the session change model.
    if (ui->widget_rgb_manual_exposure->value() > limits.rgbMax) {
        ui->widget_rgb_manual_exposure->setValue(limits.rgbMax);
        const QString v = QString::number(limits.rgbMax);
        WIDGET_LOG("set RgbCameraExposureTime:" + v);
        if (!checkError(sdk().SetRgbCameraExposureTime(limits.rgbMax))) {
            WIDGET_LOG("err set RgbCameraExposureTime:" + v);
            if (!connected) return;
        }
    }
    ui->widget_exposure_time->setRange(6, limits.tofMax);
    ui->widget_rgb_manual_exposure->setRange(0, limits.rgbMax);
    WIDGET_LOG("set fps:" + QString::number(fps));
    if (!checkError(sdk().SetFrameRate(fps))) WIDGET_LOG("err set fps:" + QString::number(fps));
}

void Widget::showSpatialFilter(bool on, int comboIndex) {
    QComboBox* combo = ui->comboBox_median_filtering;
    combo->blockSignals(true);
    combo->setCurrentIndex(comboIndex);
    combo->setEnabled(on);
    ui->checkBox_space_filter->setChecked(on);
    combo->blockSignals(!on);
}

void Widget::connectParameterHandlers() {
    // Editors whose value goes to the camera unchanged.
    struct IntEditor {
        SliderEditer* editor;
        IntSetter setter;
        const char* item;
        const char* debugLine;  // nullptr: none
    };
    const IntEditor intEditors[] = {
        {ui->widget_exposure_time, &DeviceManager::SetTofCameraExposureTime, "TofCameraExposureTime", nullptr},
        {ui->widget_gamma_value, &DeviceManager::SetIRGMMGain, "IRGMMGain", nullptr},
        {ui->widget_rgb_manual_exposure, &DeviceManager::SetRgbCameraExposureTime, "RgbCameraExposureTime",
         "set rgb ExposureTime"},
        {ui->widget_brightness, &DeviceManager::SetRgbCameraGain, "RgbCameraGain", "set brightness"},
        {ui->widget_contrast, &DeviceManager::SetRgbCameraContrastRatio, "RgbCameraContrastRatio", "set contrast"},
    };
    for (const IntEditor& e : intEditors) {
        connect(e.editor, &SliderEditer::ValChanged, this, [this, e](int v) {
            if (e.debugLine) HANDLER_DEBUG(e.debugLine);
            const QString text = QString::fromLatin1(e.item) + ':' + QString::number(v);
            HANDLER_LOG("set " + text);
            if (!checkError((sdk().*e.setter)(v))) HANDLER_LOG("err set " + text);
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
        {ui->widget_time_filter, filterSetter(&DeviceManager::SetTimeMedianFilter), "timeval", true},
        {ui->widget_fly_filter, filterSetter(&DeviceManager::SetFlyPixeFilter), "flyval", false},
        {ui->widget_confidence_filter, filterSetter(&DeviceManager::SetConfidenceFilter), "confidenceval", false},
    };
    for (const FilterEditor& f : filterEditors) {
        auto send = [this, f](bool on, int v) {
            const float value = f.kernel ? kernelSize(v) : static_cast<float>(v);
            const QString text = QString::fromLatin1(f.item) + ':' + filterLogText(on, value);
            HANDLER_LOG("set " + text);
            if (!checkError((sdk().*f.setter)(FilterParam{on, value, kFilterValue2}))) HANDLER_LOG("err set " + text);
        };
        connect(f.editor, &SliderEditer::ValChanged, this, [send](int v) { send(true, v); });
        connect(f.editor, &SliderEditer::IsCheck, this, [f, send](bool checked) {
            HANDLER_DEBUG(QString::number(checked) + " kaishi");
            send(checked, f.editor->value());
        });
    }
    // The Kalman editor and the RGB maximum auto exposure editor are shown
    // but have nothing to send: the camera has no such settings.

    // Colour range of the depth image and the point cloud; nothing is sent.
    auto applyColourRange = [this](int v) {
        ui->widgetCp->setRange(ui->widget_min_color_mapping->value(), ui->widget_max_color_mapping->value());
        HANDLER_DEBUG(QString::number(v));
    };
    connect(ui->widget_min_color_mapping, &SliderEditer::ValChanged, this, [this, applyColourRange](int v) {
        if (v > ui->widget_max_color_mapping->value()) {
            UiPrompt::warning(this, tr("范围错误"), tr("最小映射值大于最大映射值"));
            ui->widget_min_color_mapping->setValue(ui->widget_max_color_mapping->value());
        }
        applyColourRange(v);
    });
    connect(ui->widget_max_color_mapping, &SliderEditer::ValChanged, this, [this, applyColourRange](int v) {
        if (v < ui->widget_min_color_mapping->value()) {
            UiPrompt::warning(this, tr("范围错误"), tr("最小映射值大于最大映射值"));
            ui->widget_max_color_mapping->setValue(ui->widget_min_color_mapping->value());
        }
        applyColourRange(v);
    });

    connect(ui->widget_fps, &SliderEditer::ValChanged, this, &Widget::setExposureTime);

    // ToF exposure modes. HDR needs manual exposure, so auto leaves it first.
    connect(ui->radioButton_manual, &QRadioButton::clicked, this, [this] {
        HANDLER_DEBUG("xuan zhong");
        ui->checkBox_hdr->setEnabled(true);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnabled(true);
            editor->setEnable(true);
        }
        const QString fps = QString::number(ui->widget_fps->value());
        HANDLER_LOG("set fps:" + fps);
        if (!checkError(sdk().SetFrameRate(ui->widget_fps->value()))) {
            HANDLER_LOG("err set fps:" + fps);
            if (!connected) return;
        }
        const QString exposure = QString::number(ui->widget_exposure_time->value());
        HANDLER_LOG("set TofCameraExposureTime:" + exposure);
        if (!checkError(sdk().SetTofCameraExposureTime(ui->widget_exposure_time->value())))
            HANDLER_LOG("err set TofCameraExposureTime:" + exposure);
    });
    connect(ui->radioButton_auto, &QRadioButton::clicked, this, [this] {
        HANDLER_DEBUG("xuan zhong");
        if (ui->checkBox_hdr->isChecked()) {
            pauseStream();
            HANDLER_LOG("set hdr:0");
            if (!checkError(sdk().SetHDR(false))) HANDLER_LOG("err set hdr:0");
            if (connected) resumeStream();
        }
        ui->checkBox_hdr->setChecked(false);
        ui->checkBox_hdr->setEnabled(false);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnable(false);
            editor->setEnabled(false);
        }
        if (!connected) return;
        HANDLER_LOG("set TofCameraAutoExposure");
        // Judged by a zero result rather than through checkError, as the
        // exposure-mode calls always have been.
        if (static_cast<int>(sdk().SetTofCameraAutoExposure()) == 0) HANDLER_LOG("err set TofCameraAutoExposure");
    });

    // Spatial filter. The check box sends 3 for the item "1" and 5 for any
    // other, while the combo sends 2n+1 (7 for "3"): both kept as they are.
    connect(ui->checkBox_space_filter, &QCheckBox::clicked, this, [this](bool checked) {
        HANDLER_DEBUG(QString::number(checked) + " start");
        QComboBox* combo = ui->comboBox_median_filtering;
        if (!checked) {
            combo->setEnabled(false);
            combo->blockSignals(true);
            HANDLER_LOG("set Spatialval:0");
            if (!checkError(sdk().SetSpatialFilter(false))) HANDLER_LOG("err set Spatialval:0");
            return;
        }
        combo->setEnabled(true);
        combo->blockSignals(false);
        const float value = PanelRules::spatialKernelForCheckBox(combo->currentText());
        const QString text = "Spatialval:" + filterLogText(true, value);
        HANDLER_LOG("set " + text);
        if (!checkError(sdk().SetSpatialFilter(FilterParam{true, value, kFilterValue2})))
            HANDLER_LOG("err set " + text);
    });
    connect(ui->comboBox_median_filtering, &QComboBox::currentTextChanged, this, [this](const QString& item) {
        const float value = kernelSize(item.toInt());
        const QString text = "Spatialval:" + filterLogText(true, value);
        HANDLER_LOG("set " + text);
        if (!checkError(sdk().SetSpatialFilter(FilterParam{true, value, kFilterValue2})))
            HANDLER_LOG("err set " + text);
    });
    connect(ui->checkBox_mean_filter, &QCheckBox::clicked, this,
            [](bool checked) { HANDLER_DEBUG(QString::number(checked) + " start"); });

    // RGB exposure modes, judged by a zero result like the ToF auto call.
    connect(ui->radioButton_rgb_manual, &QRadioButton::clicked, this, [this] {
        if (!ui->radioButton_rgb_manual->isChecked()) return;
        HANDLER_DEBUG("rgb manual clicked");
        HANDLER_LOG("rgb manual clicked");
        ui->widget_rgb_manual_exposure->setEnable(true);
        ui->widget_rgb_manual_exposure->setEnabled(true);
        ui->widget_rgb_maximum_exposure_time->setEnable(false);
        HANDLER_LOG("set rgb MANUAL_EXPOSURE");
        if (static_cast<int>(sdk().SetRgbCameraExposureMode(MANUAL_EXPOSURE)) == 0)
            HANDLER_LOG("err set rgb MANUAL_EXPOSURE");
        const int v = ui->widget_rgb_manual_exposure->value();
        HANDLER_LOG("set RgbCameraExposureTime:" + QString::number(v));
        if (!checkError(sdk().SetRgbCameraExposureTime(v)))
            HANDLER_LOG("err set RgbCameraExposureTime:" + QString::number(v));
    });
    connect(ui->radioButton_rgb_auto, &QRadioButton::clicked, this, [this] {
        if (!ui->radioButton_rgb_auto->isChecked()) return;
        HANDLER_LOG("rgb auto clicked");
        ui->widget_rgb_manual_exposure->setEnable(false);
        ui->widget_rgb_manual_exposure->setEnabled(false);
        ui->widget_rgb_maximum_exposure_time->setEnable(true);
        HANDLER_LOG("set rgb AUTO_EXPOSURE");
        if (static_cast<int>(sdk().SetRgbCameraExposureMode(AUTO_EXPOSURE)) == 0)
            HANDLER_LOG("err set rgb AUTO_EXPOSURE");
    });
}
