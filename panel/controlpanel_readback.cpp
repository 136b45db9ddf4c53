// Read-back of the camera's settings into the panel, and the exposure shown
// while auto exposure runs. Nothing read is sent back, except what the
// frame-rate limits and fast mode send to keep the camera consistent.
#include <QComboBox>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QTimer>
#include <memory>

#include "compatibility.h"
#include "controlpanel.h"
#include "panelrules.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

namespace {

constexpr const char* kFile = "controlpanel";

struct DeviceSettings {
    bool rgb = false;
    TriggerMode trigger = TRIGGER_MODE_NORMAL;
    FrequencyMode frequency = DUAL_FREQUENCY;
    int delayFirst = 0;  // in the order the camera hands them over
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

void ControlPanel::readConfigurationFromDevice() {
    auto s = std::make_shared<DeviceSettings>();
    // Without an RGB sensor the RGB part of the panel is shown unchanged.
    s->rgbExposureMode = ui->radioButton_rgb_auto->isChecked() ? AUTO_EXPOSURE : MANUAL_EXPOSURE;
    s->rgbExposure = ui->widget_rgb_manual_exposure->value();
    s->rgbGain = ui->widget_brightness->value();
    s->rgbContrast = ui->widget_contrast->value();

    CameraScript script(tr("正在读取设备配置..."));
    // A failed answer counts as "no RGB sensor": the RGB reads are skipped.
    script.call(
        LOG_HERE, QString(),
        [s](CameraInterface& c) {
            bool rgb = false;
            s->rgb = c.IsRgbDevice(rgb) == SUCCESS && rgb;
            return SUCCESS;
        },
        QString(), ResultCheck::Ignored);

    // One read: success writes the value, failure its lines, and ends the read-back.
    const auto read = [&script, s](LogOrigin origin, CameraScript::Call call, std::function<QString()> ok,
                                   std::initializer_list<const char*> errors, bool rgbOnly = false) {
        CameraStep& step = script.call(origin, QString(), std::move(call));
        step.after = [origin, ok = std::move(ok)] { return origin.text(ok()); };
        for (const char* e : errors) step.failure << origin.text(QString::fromLatin1(e));
        step.endOnFailure = true;
        if (rgbOnly) step.onlyIf = [s](const ScriptOutcome&, std::size_t) { return s->rgb; };
    };
    auto n = [](int v) { return QString::number(v); };

    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetTriggerMode(s->trigger); },
        [s, n] { return "get trigger :" + n(s->trigger); }, {"get trigger err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetTofFrequencyMode(s->frequency); },
        [s, n] { return "get GetTofFrequencyMode :" + n(s->frequency); },
        {"get frequencymode err", "get TofFrequencyMode err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetDelayHardTriggerTime(s->delayFirst, s->delaySecond); },
        [s, n] { return "get trigger time ms us:" + n(s->delayFirst) + ' ' + n(s->delaySecond); },
        {"get trigger time err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetHDR(s->hdr); }, [s, n] { return "get hdr :" + n(s->hdr); },
        {"get hdr err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetTofCameraExposureTime(s->exposure); },
        [s, n] { return "get ExposureTime :" + n(s->exposure); }, {"get ExposureTime err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetTofCameraExposureMode(s->exposureMode); },
        [s, n] { return "get Exposure mode :" + n(s->exposureMode); }, {"get Exposure mode err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetFrameRate(s->fps); },
        [s, n] { return "get fps :" + n(s->fps); }, {"get fps err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetIRGMMGain(s->gamma); },
        [s, n] { return "get gamma :" + n(s->gamma); }, {"get gamma err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetRgbCameraExposureMode(s->rgbExposureMode); },
        [s, n] { return "get rgb Exposure mode :" + n(s->rgbExposureMode); }, {"get rgb Exposure mode err"}, true);
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetRgbCameraExposureTime(s->rgbExposure); },
        [s, n] { return "get rgb ExposureTime :" + n(s->rgbExposure); }, {"get rgb ExposureTime err"}, true);
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetRgbCameraGain(s->rgbGain); },
        [s, n] { return "get RgbCameraGain :" + n(s->rgbGain); }, {"get RgbCameraGain err"}, true);
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetRgbCameraContrastRatio(s->rgbContrast); },
        [s, n] { return "get contrast :" + n(s->rgbContrast); }, {"get contrast err"}, true);
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetSpatialFilter(s->spatial); },
        [s] { return "get spatialval :" + filterText(s->spatial); }, {"get spatialval err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetTimeMedianFilter(s->time); },
        [s] { return "get timeval :" + filterText(s->time); }, {"get timeval err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetFlyPixeFilter(s->fly); },
        [s] { return "get flyval :" + filterText(s->fly); }, {"get flyval err"});
    read(
        LOG_HERE, [s](CameraInterface& c) { return c.GetConfidenceFilter(s->confidence); },
        [s] { return "get confidenceval :" + filterText(s->confidence); }, {"get confidenceval err"});

    script.onFinished(this, [this, s](const ScriptOutcome& outcome) {
        if (!outcome.ok()) {
            // The panel keeps what it showed.
            emit configurationRead(false);
            return;
        }
        rgbDevice_ = s->rgb;
        const int fps = PanelRules::frameRateForEditor(s->fps);

        const Compatibility::TriggerDelayFields delay =
            Compatibility::triggerDelayFieldsFromRead(s->delayFirst, s->delaySecond);
        ui->spinBox_us->setValue(delay.us);
        ui->spinBox_ms->setValue(delay.ms);
        {
            const QSignalBlocker block(ui->comboBox_mode);
            const int index = (s->trigger >= 0 && s->trigger <= 2) ? static_cast<int>(s->trigger) : 3;
            ui->comboBox_mode->setCurrentIndex(index);
            ui->pushButton_trigger->setEnabled(index == 1);
            const bool delayMode = index == 3;
            ui->spinBox_ms->setEnabled(delayMode);
            ui->spinBox_us->setEnabled(delayMode);
            ui->pushButton_set_time->setEnabled(delayMode);
        }

        ui->checkBox_hdr->setChecked(s->hdr);
        if (s->hdr) ui->checkBox_fast->setChecked(false);

        if (s->exposureMode != AUTO_EXPOSURE) {
            ui->radioButton_manual->setChecked(true);
            ui->checkBox_hdr->setEnabled(true);
            for (SliderEditer* editor : {ui->widget_exposure_time, ui->widget_fps}) {
                editor->setEnable(true);
                editor->setEnabled(true);
            }
            setExposureTime(fps);
            ui->widget_fps->setValue(fps);
            ui->widget_exposure_time->setValue(PanelRules::exposureForEditor(s->exposure));
        } else {
            // HDR needs manual exposure, as the auto button itself enforces.
            ui->radioButton_auto->setChecked(true);
            ui->checkBox_hdr->setEnabled(false);
            ui->widget_exposure_time->setEnable(false);
            ui->widget_fps->setEnable(false);
        }

        ui->widget_gamma_value->setValue(s->gamma);

        if (s->rgbExposureMode != AUTO_EXPOSURE) {
            ui->radioButton_rgb_manual->setChecked(true);
            ui->widget_rgb_manual_exposure->setEnable(true);
            ui->widget_rgb_manual_exposure->setValue(s->rgbExposure);
        } else {
            ui->radioButton_rgb_auto->setChecked(true);
            ui->widget_rgb_manual_exposure->setEnable(false);
        }
        ui->widget_brightness->setValue(s->rgbGain);
        ui->widget_contrast->setValue(s->rgbContrast);

        showSpatialFilter(s->spatial.enable, PanelRules::spatialComboIndex(s->spatial.value));
        ui->widget_time_filter->setValue(PanelRules::timeEditorValue(s->time.value));
        ui->widget_fly_filter->setValue(PanelRules::saturatingInt(s->fly.value));
        ui->widget_confidence_filter->setValue(PanelRules::saturatingInt(s->confidence.value));
        ui->widget_time_filter->setChecked(s->time.enable);
        ui->widget_fly_filter->setChecked(s->fly.enable);
        ui->widget_confidence_filter->setChecked(s->confidence.enable);

        ui->checkbox_tof_frequency->setChecked(s->frequency == SINGLE_FREQUENCY);

        if (PanelRules::isFastModeExposure(s->exposure)) {
            ui->checkBox_fast->setChecked(true);
            FastMode(true);
        } else if (ui->checkBox_fast->isChecked()) {
            ui->checkBox_fast->setChecked(false);
            FastMode(false);
        }
        emit configurationRead(true);
    });
    submit(script);
}

void ControlPanel::timedService() {
    auto* timer = new QTimer(this);
    auto reading = std::make_shared<bool>(false);
    connect(timer, &QTimer::timeout, this, [this, reading] {
        if (!status_.connected() || status_.state != SessionState::Streaming || !ui->radioButton_auto->isChecked())
            return;
        // A slow camera answers after the next tick; one read at a time.
        if (*reading) return;
        *reading = true;
        auto exposure = std::make_shared<int>(0);
        CameraScript script;
        script.call(LOG_HANDLER, QString(),
                    [exposure](CameraInterface& c) { return c.GetTofCameraExposureTime(*exposure); });
        script.onFinished(this, [this, exposure, reading](const ScriptOutcome& outcome) {
            *reading = false;
            if (!outcome.ok()) return;
            ui->widget_exposure_time->setValue(*exposure);
            DEBUG_LINE(kFile, QString::number(*exposure));
        });
        submit(script);
    });
    timer->start(1000);
}
