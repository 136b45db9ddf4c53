// Read-back of the camera's settings into the control panel. Nothing read
// here is sent back, except what setExposureTime and FastMode send to keep
// the frame rate, the exposure limits and fast mode consistent.
#include <QComboBox>
#include <QRadioButton>
#include <QSignalBlocker>
#include <functional>

#include "panellog.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "widget.h"

namespace {

struct DeviceSettings {
    TriggerMode trigger = TRIGGER_MODE_NORMAL;
    FrequencyMode frequency = DUAL_FREQUENCY;
    int delayFirst = 0;  // the order SetDelayHardTriggerTime takes: us first
    int delaySecond = 0;
    bool hdr = false;
    int exposure = 0;
    ExposureMode exposureMode = MANUAL_EXPOSURE;
    int fps = 0;
    int gamma = 0;
    ExposureMode rgbExposureMode = MANUAL_EXPOSURE;
    int rgbExposure = 0;
    int rgbGain = 0;
    int rgbContrast = 0;
    FilterParam spatial{};
    FilterParam time{};
    FilterParam fly{};
    FilterParam confidence{};
};

QString filterText(const FilterParam& p) { return PanelRules::filterLogText(p.enable, p.value); }

}  // namespace

bool Widget::readConfigurationFromDevice() {
    bool rgb = false;
    // A failed answer counts as "no RGB sensor": the RGB reads are skipped
    // and the RGB editors keep what they show.
    if (sdk().IsRgbDevice(rgb) != SUCCESS) rgb = false;
    rgbDevice_ = rgb;

    DeviceSettings s;
    // Without an RGB sensor the RGB part of the panel is shown unchanged.
    s.rgbExposureMode = ui->radioButton_rgb_auto->isChecked() ? AUTO_EXPOSURE : MANUAL_EXPOSURE;
    s.rgbExposure = ui->widget_rgb_manual_exposure->value();
    s.rgbGain = ui->widget_brightness->value();
    s.rgbContrast = ui->widget_contrast->value();

    // One read: success logs the value, failure logs its lines and stops.
    // The text is built only after the call has filled the value.
    auto read = [this](ReturnCode rc, const std::function<QString()>& ok, std::initializer_list<const char*> errors) {
        if (checkError(rc)) {
            NAMED_LOG("readConfigurationFromDevice", ok());
            return true;
        }
        for (const char* e : errors) NAMED_LOG("readConfigurationFromDevice", QString::fromLatin1(e));
        return false;
    };
    auto n = [](int v) { return QString::number(v); };

    if (!read(sdk().GetTriggerMode(s.trigger), [&] { return "get trigger :" + n(s.trigger); }, {"get trigger err"}))
        return false;
    if (!read(sdk().GetTofFrequencyMode(s.frequency), [&] { return "get GetTofFrequencyMode :" + n(s.frequency); },
              {"get frequencymode err", "get TofFrequencyMode err"}))
        return false;
    if (!read(sdk().GetDelayHardTriggerTime(s.delayFirst, s.delaySecond),
              [&] { return "get trigger time ms us:" + n(s.delayFirst) + ' ' + n(s.delaySecond); },
              {"get trigger time err"}))
        return false;
    if (!read(sdk().GetHDR(s.hdr), [&] { return "get hdr :" + n(s.hdr); }, {"get hdr err"})) return false;
    if (!read(sdk().GetTofCameraExposureTime(s.exposure), [&] { return "get ExposureTime :" + n(s.exposure); },
              {"get ExposureTime err"}))
        return false;
    if (!read(sdk().GetTofCameraExposureMode(s.exposureMode), [&] { return "get Exposure mode :" + n(s.exposureMode); },
              {"get Exposure mode err"}))
        return false;
    if (!read(sdk().GetFrameRate(s.fps), [&] { return "get fps :" + n(s.fps); }, {"get fps err"})) return false;
    s.fps = PanelRules::frameRateForEditor(s.fps);
    if (!read(sdk().GetIRGMMGain(s.gamma), [&] { return "get gamma :" + n(s.gamma); }, {"get gamma err"})) return false;
    if (rgb) {
        if (!read(sdk().GetRgbCameraExposureMode(s.rgbExposureMode),
                  [&] { return "get rgb Exposure mode :" + n(s.rgbExposureMode); }, {"get rgb Exposure mode err"}))
            return false;
        if (!read(sdk().GetRgbCameraExposureTime(s.rgbExposure),
                  [&] { return "get rgb ExposureTime :" + n(s.rgbExposure); }, {"get rgb ExposureTime err"}))
            return false;
        if (!read(sdk().GetRgbCameraGain(s.rgbGain), [&] { return "get RgbCameraGain :" + n(s.rgbGain); },
                  {"get RgbCameraGain err"}))
            return false;
        if (!read(sdk().GetRgbCameraContrastRatio(s.rgbContrast), [&] { return "get contrast :" + n(s.rgbContrast); },
                  {"get contrast err"}))
            return false;
    }
    if (!read(sdk().GetSpatialFilter(s.spatial), [&] { return "get spatialval :" + filterText(s.spatial); },
              {"get spatialval err"}))
        return false;
    if (!read(sdk().GetTimeMedianFilter(s.time), [&] { return "get timeval :" + filterText(s.time); },
              {"get timeval err"}))
        return false;
    if (!read(sdk().GetFlyPixeFilter(s.fly), [&] { return "get flyval :" + filterText(s.fly); }, {"get flyval err"}))
        return false;
    if (!read(sdk().GetConfidenceFilter(s.confidence), [&] { return "get confidenceval :" + filterText(s.confidence); },
              {"get confidenceval err"}))
        return false;

    ui->spinBox_us->setValue(s.delayFirst);
    ui->spinBox_ms->setValue(s.delaySecond);

    {
        const QSignalBlocker block(ui->comboBox_mode);
        const int index = (s.trigger >= 0 && s.trigger <= 2) ? static_cast<int>(s.trigger) : 3;
        ui->comboBox_mode->setCurrentIndex(index);
        ui->pushButton_trigger->setEnabled(index == 1);
        const bool delay = index == 3;
        ui->spinBox_ms->setEnabled(delay);
        ui->spinBox_us->setEnabled(delay);
        ui->pushButton_set_time->setEnabled(delay);
    }

    ui->checkBox_hdr->setChecked(s.hdr);
    if (s.hdr) ui->checkBox_fast->setChecked(false);

    if (s.exposureMode != AUTO_EXPOSURE) {
        ui->radioButton_manual->setChecked(true);
        ui->checkBox_hdr->setEnabled(true);
        for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
            editor->setEnable(true);
            editor->setEnabled(true);
        }
        setExposureTime(s.fps);
        ui->widget_fps->setValue(s.fps);
        ui->widget_exposure_time->setValue(PanelRules::exposureForEditor(s.exposure));
    } else {
        // HDR needs manual exposure, as the auto button itself enforces.
        ui->radioButton_auto->setChecked(true);
        ui->checkBox_hdr->setEnabled(false);
        ui->widget_exposure_time->setEnable(false);
        ui->widget_fps->setEnable(false);
    }

    ui->widget_gamma_value->setValue(s.gamma);

    if (s.rgbExposureMode != AUTO_EXPOSURE) {
        ui->radioButton_rgb_manual->setChecked(true);
        ui->widget_rgb_manual_exposure->setEnable(true);
        ui->widget_rgb_manual_exposure->setValue(s.rgbExposure);
    } else {
        ui->radioButton_rgb_auto->setChecked(true);
        ui->widget_rgb_manual_exposure->setEnable(false);
    }
    ui->widget_brightness->setValue(s.rgbGain);
    ui->widget_contrast->setValue(s.rgbContrast);

    showSpatialFilter(s.spatial.enable, PanelRules::spatialComboIndex(s.spatial.value));
    ui->widget_time_filter->setValue(PanelRules::timeEditorValue(s.time.value));
    ui->widget_fly_filter->setValue(static_cast<int>(s.fly.value));
    ui->widget_confidence_filter->setValue(static_cast<int>(s.confidence.value));
    ui->widget_time_filter->setChecked(s.time.enable);
    ui->widget_fly_filter->setChecked(s.fly.enable);
    ui->widget_confidence_filter->setChecked(s.confidence.enable);

    ui->checkbox_tof_frequency->setChecked(s.frequency == SINGLE_FREQUENCY);

    if (PanelRules::isFastModeExposure(s.exposure)) {
        ui->checkBox_fast->setChecked(true);
        FastMode(true);
    } else if (ui->checkBox_fast->isChecked()) {
        ui->checkBox_fast->setChecked(false);
        FastMode(false);
    }
    return true;
}
