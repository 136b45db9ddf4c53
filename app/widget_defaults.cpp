// The two default slots: filter defaults (the panel button) and the whole
// panel's defaults, each sent to the camera step by step.
#include <QComboBox>
#include <QRadioButton>
#include <QSignalBlocker>
#include <chrono>
#include <functional>
#include <thread>

#include "panellog.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "widget.h"

using PanelRules::filterLogText;
using PanelRules::kFilterValue2;

namespace {

constexpr int kDefaultTimeFilter = 3;  // kernel 7, switched off
constexpr int kDefaultFlyFilter = 15;
constexpr int kDefaultConfidenceFilter = 15;
constexpr float kDefaultSpatialKernel = 3.0f;

void pause(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

}  // namespace

// Shared by both slots; func names the slot in the log lines.
#define DEFAULT_STEP(func, text, call)                            \
    do {                                                          \
        NAMED_LOG(func, QStringLiteral("set ") + (text));         \
        if (!checkError(call)) {                                  \
            NAMED_LOG(func, QStringLiteral("err set ") + (text)); \
            if (!connected) return;                               \
        }                                                         \
    } while (0)

void Widget::filteringDefaultConfiguration() {
    if (!ui->widget_kz->isEnabled()) return;
    ui->widget_time_filter->setValue(kDefaultTimeFilter);
    ui->widget_time_filter->setChecked(false);
    for (SliderEditer* editor : {ui->widget_fly_filter, ui->widget_confidence_filter}) editor->setChecked(true);
    ui->widget_fly_filter->setValue(kDefaultFlyFilter);
    ui->widget_confidence_filter->setValue(kDefaultConfidenceFilter);

    sendFilterDefaults("filteringDefaultConfiguration");
}

void Widget::DefaultConfigurationSlots() {
    if (!ui->widget_kz->isEnabled()) return;
    const char* f = "DefaultConfigurationSlots";
    ui->widget_max_color_mapping->setValue(5000);
    ui->widget_min_color_mapping->setValue(200);
    ui->widget_time_filter->setValue(kDefaultTimeFilter);
    ui->widget_time_filter->setChecked(false);
    for (SliderEditer* editor : {ui->widget_fly_filter, ui->widget_confidence_filter}) {
        editor->setChecked(true);
        editor->setValue(editor == ui->widget_fly_filter ? kDefaultFlyFilter : kDefaultConfidenceFilter);
    }

    pauseStream();
    pause(500);
    DEFAULT_STEP(f, "hdr:0", sdk().SetHDR(false));
    ui->checkBox_hdr->setChecked(false);
    pause(500);
    if (!checkError(resumeStream())) NAMED_LOG(f, "err start stream");
    if (!connected) return;
    if (!sendFilterDefaults(f)) return;

    ui->radioButton_manual->setChecked(true);
    ui->checkBox_hdr->setEnabled(true);
    for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
        editor->setEnabled(true);
        editor->setEnable(true);
    }
    setExposureTime(10);
    if (!connected) return;
    ui->widget_fps->setValue(10);
    ui->widget_exposure_time->setValue(2000);
    DEFAULT_STEP(f, "TofCameraExposureTime:" + QString::number(ui->widget_exposure_time->value()),
                 sdk().SetTofCameraExposureTime(ui->widget_exposure_time->value()));

    ui->checkBox_fast->setChecked(false);

    ui->radioButton_rgb_manual->setChecked(true);
    ui->widget_rgb_manual_exposure->setEnabled(true);
    ui->widget_rgb_manual_exposure->setValue(150);
    NAMED_LOG(f, "set rgb MANUAL_EXPOSURE");
    if (static_cast<int>(sdk().SetRgbCameraExposureMode(MANUAL_EXPOSURE)) == 0)
        NAMED_LOG(f, "err set rgb MANUAL_EXPOSURE");
    DEFAULT_STEP(f, "RgbCameraExposureTime:" + QString::number(ui->widget_rgb_manual_exposure->value()),
                 sdk().SetRgbCameraExposureTime(ui->widget_rgb_manual_exposure->value()));
    ui->widget_brightness->setValue(30);
    ui->widget_contrast->setValue(100);
    DEFAULT_STEP(f, "RgbCameraGain:" + QString::number(ui->widget_brightness->value()),
                 sdk().SetRgbCameraGain(ui->widget_brightness->value()));
    DEFAULT_STEP(f, "RgbCameraContrastRatio:" + QString::number(ui->widget_contrast->value()),
                 sdk().SetRgbCameraContrastRatio(ui->widget_contrast->value()));
    ui->widget_rgb_manual_exposure->setEnable(true);

    pauseStream();
    DEFAULT_STEP(f, "TriggerModel: 0", sdk().SetTriggerMode(TRIGGER_MODE_NORMAL));
    {
        const QSignalBlocker block(ui->comboBox_mode);
        ui->comboBox_mode->setCurrentIndex(0);
    }
    for (QWidget* w : std::initializer_list<QWidget*>{ui->pushButton_trigger, ui->spinBox_ms, ui->spinBox_us})
        w->setEnabled(false);

    NAMED_LOG(f, "SetTofFrequencyMode DUAL_FREQUENCY");
    if (!checkError(sdk().SetTofFrequencyMode(DUAL_FREQUENCY))) {
        NAMED_LOG(f, "err SetTofFrequencyMode DUAL_FREQUENCY");
        if (!connected) return;
    }
    ui->checkbox_tof_frequency->setChecked(false);

    if (!checkError(resumeStream())) NAMED_LOG(f, "err start stream");
}
#undef DEFAULT_STEP

bool Widget::sendFilterDefaults(const char* f) {
    const auto step = [&](const QString& text, const std::function<ReturnCode()>& call) {
        NAMED_LOG(f, QStringLiteral("set ") + text);
        if (checkError(call())) return true;
        NAMED_LOG(f, QStringLiteral("err set ") + text);
        return bool(connected);  // a failure goes on unless the session is gone
    };
    // Outside normal mode the time filter belongs to the trigger mode.
    if (ui->comboBox_mode->currentIndex() == 0) {
        const float time = PanelRules::kernelSize(kDefaultTimeFilter);
        if (!step("timeval:" + filterLogText(false, time), [&] {
                return sdk().SetTimeMedianFilter(FilterParam{false, time, kFilterValue2});
            }))
            return false;
    }
    if (!step("flyval:" + filterLogText(true, kDefaultFlyFilter), [&] {
            return sdk().SetFlyPixeFilter(FilterParam{true, float(kDefaultFlyFilter), kFilterValue2});
        }))
        return false;
    if (!step("confidenceval:" + filterLogText(true, kDefaultConfidenceFilter), [&] {
            return sdk().SetConfidenceFilter(FilterParam{true, float(kDefaultConfidenceFilter), kFilterValue2});
        }))
        return false;
    if (!step("Spatialval:" + filterLogText(true, kDefaultSpatialKernel), [&] {
            return sdk().SetSpatialFilter(FilterParam{true, kDefaultSpatialKernel, kFilterValue2});
        }))
        return false;
    showSpatialFilter(true, 0);
    return true;
}
