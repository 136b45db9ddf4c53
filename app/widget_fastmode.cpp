// Fast mode: the camera runs at the 25 fps row of the limit table with single
// integration and no filtering; leaving it restores the panel's settings.
#include <QComboBox>
#include <QRadioButton>
#include <chrono>
#include <thread>

#include "panellog.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "widget.h"

namespace {

constexpr int kFastModeFps = 25;

}  // namespace

void Widget::FastMode(bool on) {
    WIDGET_DEBUG("fast mode " + QString::number(on));
    // One step: log, call, log the failure. False once the link is gone, so
    // the rest of the sequence does not pile up boxes for a dead session.
    auto step = [this](const QString& errText, ReturnCode rc) {
        if (checkError(rc)) return true;
        NAMED_LOG("FastMode", errText);
        return bool(connected);
    };
    // Logs before the call is made (the comma sequences them).
#define FAST_STEP(text, errText, call) (WIDGET_LOG(text), step(errText, call))

    const bool running = streaming;
    if (on) {
        const int rgbMax = PanelRules::exposureLimits(frameRateMap, kFastModeFps).rgbMax;
        const QString rgb = QString::number(rgbMax);
        if (ui->widget_rgb_manual_exposure->value() > rgbMax || ui->radioButton_rgb_manual->isChecked()) {
            if (!FAST_STEP("Set RGB exposure " + rgb, "err Set RGB exposure " + rgb,
                           sdk().SetRgbCameraExposureTime(rgbMax)))
                return;
        }
        ui->widget_rgb_manual_exposure->setRange(0, rgbMax);
        ui->pushButton_save_config->setEnabled(false);
        if (running) {
            if (!FAST_STEP("stop stream", "err stop stream", pauseStream())) return;
            ui->checkBox_hdr->setChecked(false);
            if (!FAST_STEP("set hdr:0", "err set hdr:0", sdk().SetHDR(false))) return;
        }
        if (!FAST_STEP("set SingleIntegralModel", "err set SingleIntegralModel", sdk().SetSingleIntegralMode())) return;
        if (running && !FAST_STEP("start stream", "err start stream", resumeStream())) return;
        if (!FAST_STEP("set Spatialval:0", "err set Spatialval:0", sdk().SetSpatialFilter(false))) return;
        if (!FAST_STEP("set Timeval:0", "err set Timeval:0", sdk().SetTimeMedianFilter(false))) return;
        if (!FAST_STEP("set Confidencelval:0", "err set Confidenceval:0", sdk().SetConfidenceFilter(false))) return;
        if (!FAST_STEP("set Flyval:0", "err set Flyval:0", sdk().SetFlyPixeFilter(false))) return;

        for (SliderEditer* editor : {ui->widget_confidence_filter, ui->widget_time_filter, ui->widget_fly_filter,
                                     ui->widget_kalman_filter, ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnabled(false);
            editor->setEnable(false);
        }
        for (QWidget* w :
             std::initializer_list<QWidget*>{ui->checkBox_hdr, ui->checkBox_space_filter, ui->radioButton_auto,
                                             ui->radioButton_manual, ui->comboBox_median_filtering})
            w->setEnabled(false);
        // Registered views need the filtered, dual-integration frames.
        // A click (not a silent uncheck) so the views leave registration too.
        for (QCheckBox* box : {ui->checkBox_dep2rgb, ui->checkBox_rgb2dep, ui->checkBox_rgb2pointcloud}) {
            if (box->isChecked()) box->click();
            if (box->isChecked()) box->setChecked(false);
            box->setEnabled(false);
        }
        WIDGET_DEBUG("fast mode start");
        WIDGET_LOG("fast mode start");
        return;
    }

    setExposureTime(ui->widget_fps->value());
    if (!connected) return;
    ui->pushButton_save_config->setEnabled(true);
    if (running && !FAST_STEP("stop stream", "err stop stream", pauseStream())) return;
    // HDR is switched on and straight off again whatever its box shows: that
    // takes the sensor out of single integration.
    if (!FAST_STEP("set hdr:1", "err set hdr:1", sdk().SetHDR(true))) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (!FAST_STEP("set hdr:0", "err set hdr:0", sdk().SetHDR(false))) return;
    const QString exposure = QString::number(ui->widget_exposure_time->value());
    if (!FAST_STEP("set TofCameraExposureTime:" + exposure, "err set TofCameraExposureTime:" + exposure,
                   sdk().SetTofCameraExposureTime(ui->widget_exposure_time->value())))
        return;
    if (running && !FAST_STEP("start stream", "err start stream", resumeStream())) return;
    const QString fps = QString::number(ui->widget_fps->value());
    if (!FAST_STEP("set fps:" + fps, "err set fps:" + fps, sdk().SetFrameRate(ui->widget_fps->value()))) return;

    struct Filter {
        SliderEditer* editor;
        ReturnCode (DeviceManager::*setter)(bool);
        const char* text;
        const char* errText;
    };
    const Filter filters[] = {
        {ui->widget_confidence_filter, &DeviceManager::SetConfidenceFilter, "set Confidencelval:1",
         "err set Confidenceval:1"},
        {ui->widget_time_filter, &DeviceManager::SetTimeMedianFilter, "set Timeval:1", "err set Timeval:1"},
        {ui->widget_fly_filter, &DeviceManager::SetFlyPixeFilter, "set Flyval:1", "err set Flyval:1"},
    };
    for (const Filter& f : filters) {
        f.editor->setEnabled(true);
        if (!f.editor->isChecked()) continue;
        f.editor->setEnable(true);
        if (!FAST_STEP(QString::fromLatin1(f.text), QString::fromLatin1(f.errText), (sdk().*f.setter)(true))) return;
    }
#undef FAST_STEP

    ui->widget_kalman_filter->setEnabled(true);
    ui->widget_kalman_filter->setEnable(ui->widget_kalman_filter->isChecked());
    if (ui->radioButton_manual->isChecked()) {
        ui->checkBox_hdr->setEnabled(true);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnabled(true);
            editor->setEnable(true);
        }
    } else {
        WIDGET_LOG("set TofCameraAutoExposure");
        if (static_cast<int>(sdk().SetTofCameraAutoExposure()) == 0) WIDGET_LOG("err set TofCameraAutoExposure");
    }
    ui->checkBox_space_filter->setEnabled(true);
    if (ui->checkBox_space_filter->isChecked()) ui->comboBox_median_filtering->setEnabled(true);
    for (QWidget* w : std::initializer_list<QWidget*>{ui->radioButton_auto, ui->radioButton_manual,
                                                      ui->checkBox_dep2rgb, ui->checkBox_rgb2dep})
        w->setEnabled(true);
    WIDGET_DEBUG("fast mode stop");
    WIDGET_LOG("fast mode stop");
}
