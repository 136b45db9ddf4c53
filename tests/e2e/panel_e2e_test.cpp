// The control panel through the real window and SDK against a simulated
// colour camera: what each control sends, in which order, what the panel
// shows after a read-back, and how failures are reported.
#include <QCheckBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QtTest>
#include <chrono>

#include "controlpanel.h"
#include "e2esupport.h"
#include "slidereditor.h"

namespace {

constexpr int kCam = 0;  // model 3: ToF and colour

// A command as the camera received it, heartbeats left out.
struct Received {
    std::string name;
    QJsonObject args;
    int status;
    std::chrono::system_clock::time_point time;
};

}  // namespace

class PanelE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.100.2", 48800, {'3'}, 3000, 300, 0}};

    std::vector<Received> received() {
        std::vector<Received> out;
        for (const auto& c : s.camera(kCam).camera().commandLog()) {
            if (c.name == "Heartbeat") continue;
            const QJsonObject args = QJsonDocument::fromJson(QByteArray::fromStdString(c.args)).object();
            out.push_back({c.name, args, c.status, c.time});
        }
        return out;
    }
    std::vector<std::string> names() {
        std::vector<std::string> out;
        for (const Received& r : received()) out.push_back(r.name);
        return out;
    }
    std::vector<std::string> setters() { return s.setters(kCam); }
    const Received* last(const std::string& name) {
        static Received found;
        const auto all = received();
        for (auto it = all.rbegin(); it != all.rend(); ++it)
            if (it->name == name) return &(found = *it);
        return nullptr;
    }
    d3sim::CameraSettings cameraSettings() { return s.camera(kCam).camera().settings(); }

    SliderEditer* editor(const char* name) { return s.child<SliderEditer>(name); }
    // What the editor hands its owner when the user commits v.
    void commit(const char* name, int v) {
        SliderEditer* e = editor(name);
        e->setValue(v);
        emit e->ValChanged(e->value());
        QVERIFY(s.settle());
    }
    QSlider* slider(const char* name) { return editor(name)->findChild<QSlider*>("horizontalSlider"); }
    QCheckBox* box(const char* name) { return s.child<QCheckBox>(name); }

    void start() {
        QVERIFY(s.search(1));
        QVERIFY(s.startCamera(kCam));
        s.prompts().requests.clear();
        s.clearCommandLogs();
    }
    // Clicks like a user would and waits for what it asked of the camera.
    void click(QAbstractButton* b) {
        QVERIFY(b && b->isEnabled());
        b->click();
        QVERIFY(s.settle());
    }
    void choose(QComboBox* combo, int index) {
        combo->setCurrentIndex(index);
        QVERIFY(s.settle());
    }

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kCam));
        s.camera(kCam).camera().setSettings(d3sim::CameraSettings());
        s.openWindow();
    }
    void cleanup() { s.closeWindow(); }

    void frameRateLowersExposureBeforeSendingRate() {
        start();
        commit("widget_fps", 1);
        commit("widget_exposure_time", 3000);
        QCOMPARE(cameraSettings().tofExposureUs, 3000);
        s.clearCommandLogs();

        commit("widget_fps", 10);
        QCOMPARE(setters(), (std::vector<std::string>{"SetTofExposureTime", "SetFrameRate"}));
        QCOMPARE(received()[0].args["value"].toInt(), 2000);
        QCOMPARE(received()[1].args["value"].toInt(), 10);
        QCOMPARE(editor("widget_exposure_time")->value(), 2000);
        QCOMPARE(slider("widget_exposure_time")->minimum(), 6);
        QCOMPARE(slider("widget_exposure_time")->maximum(), 2000);
        QCOMPARE(slider("widget_rgb_manual_exposure")->maximum(), 1250);
        QCOMPARE(cameraSettings().frameRate, 10);
        QCOMPARE(cameraSettings().tofExposureUs, 2000);
        QVERIFY(s.logCount("setExposureTime") >= 2);

        // Back to 1 fps: the ranges widen, the exposure stays where it is.
        s.clearCommandLogs();
        commit("widget_fps", 1);
        QCOMPARE(setters(), (std::vector<std::string>{"SetFrameRate"}));
        QCOMPARE(slider("widget_exposure_time")->maximum(), 4000);
        QCOMPARE(slider("widget_rgb_manual_exposure")->maximum(), 10000);
        QCOMPARE(editor("widget_exposure_time")->value(), 2000);
    }

    void colourRangeKeepsMinimumBelowMaximum() {
        start();
        commit("widget_min_color_mapping", 6000);
        QCOMPARE(s.promptTitles(), QStringList{"范围错误"});
        QCOMPARE(s.promptTexts(), QStringList{"最小映射值大于最大映射值"});
        QCOMPARE(editor("widget_min_color_mapping")->value(), 5000);

        commit("widget_min_color_mapping", 3000);
        commit("widget_max_color_mapping", 2000);
        QCOMPARE(s.promptTitles().size(), 2);
        QCOMPARE(editor("widget_max_color_mapping")->value(), 3000);
        QVERIFY(names().empty());  // a display setting only
    }

    void someEditorsSendNothing() {
        start();
        editor("widget_kalman_filter")->setChecked(true);
        commit("widget_kalman_filter", 50);
        commit("widget_rgb_maximum_exposure_time", 40);
        QVERIFY(names().empty());
        QVERIFY(s.prompts().requests.isEmpty());
    }

    void editorsSendTheirValues() {
        start();
        commit("widget_gamma_value", 77);
        commit("widget_time_filter", 2);
        commit("widget_fly_filter", 20);
        commit("widget_confidence_filter", 30);
        commit("widget_brightness", 40);
        QCOMPARE(setters(), (std::vector<std::string>{"SetIrGamma", "SetTimeMedianFilter", "SetFlyPixelFilter",
                                                      "SetConfidenceFilter", "SetRgbGain"}));
        const d3sim::CameraSettings c = cameraSettings();
        QCOMPARE(c.irGamma, 77);
        QVERIFY(c.timeMedian.enable);
        QCOMPARE(c.timeMedian.value, 5.0f);  // 2v+1
        QCOMPARE(c.timeMedian.value2, 100.0f);
        QCOMPARE(c.flyPixel.value, 20.0f);
        QCOMPARE(c.confidence.value, 30.0f);
        QCOMPARE(c.rgbGain, 40);
        QCOMPARE(s.logCount("err set"), 0);
        QCOMPARE(s.logCount("set IRGMMGain:77"), 1);
        QCOMPARE(s.logCount("set timeval:1 5"), 1);

        // The check box sends the editor's value with the new state.
        // The value commit switched the filter on but left the box as it was.
        QCheckBox* flyBox = editor("widget_fly_filter")->findChild<QCheckBox*>("checkBox");
        QVERIFY(!flyBox->isChecked());
        click(flyBox);
        QCOMPARE(s.logCount("set flyval:1 20"), 2);
        click(flyBox);
        QVERIFY(!cameraSettings().flyPixel.enable);
        QCOMPARE(cameraSettings().flyPixel.value, 20.0f);
        QCOMPARE(s.logCount("set flyval:0 20"), 1);
    }

    void spatialFilterCheckBoxAndComboDiffer() {
        start();
        auto lastSpatial = [this] { return last("SetSpatialFilter")->args["value"].toDouble(); };
        QComboBox* combo = s.child<QComboBox>("comboBox_median_filtering");
        click(box("checkBox_space_filter"));  // on, item "1"
        QCOMPARE(lastSpatial(), 3.0);
        choose(combo, 1);
        QCOMPARE(lastSpatial(), 5.0);
        choose(combo, 2);
        QCOMPARE(lastSpatial(), 7.0);
        click(box("checkBox_space_filter"));  // off: the boolean form
        QVERIFY(!last("SetSpatialFilter")->args.contains("value"));
        QVERIFY(!cameraSettings().spatial.enable);
        QVERIFY(!combo->isEnabled());
        s.clearCommandLogs();
        choose(combo, 1);  // while off the combo sends nothing
        QVERIFY(names().empty());
        choose(combo, 2);
        click(box("checkBox_space_filter"));  // on with item "3": 5, not 7
        QCOMPARE(lastSpatial(), 5.0);
        choose(combo, 1);
        choose(combo, 2);
        QCOMPARE(lastSpatial(), 7.0);
    }

    void exposureModes() {
        start();
        QRadioButton* autoButton = s.child<QRadioButton>("radioButton_auto");
        box("checkBox_hdr")->setChecked(true);
        click(autoButton);
        QCOMPARE(setters(), (std::vector<std::string>{"SetHdr", "SetTofAutoExposure"}));
        QCOMPARE(names().front(), std::string("StopStream"));
        QVERIFY(cameraSettings().tofAutoExposure);
        QVERIFY(!box("checkBox_hdr")->isEnabled());
        QVERIFY(!box("checkBox_hdr")->isChecked());
        QVERIFY(!slider("widget_fps")->isEnabled());

        s.clearCommandLogs();
        commit("widget_fps", 5);
        click(s.child<QRadioButton>("radioButton_manual"));
        QCOMPARE(setters(), (std::vector<std::string>{"SetFrameRate", "SetFrameRate", "SetTofExposureTime"}));
        QVERIFY(!cameraSettings().tofAutoExposure);
        QVERIFY(box("checkBox_hdr")->isEnabled());

        s.clearCommandLogs();
        click(s.child<QRadioButton>("radioButton_rgb_manual"));
        QCOMPARE(setters(), (std::vector<std::string>{"SetRgbExposureMode", "SetRgbExposureTime"}));
        QVERIFY(!cameraSettings().rgbAutoExposure);
        click(s.child<QRadioButton>("radioButton_rgb_auto"));
        QVERIFY(cameraSettings().rgbAutoExposure);
        QVERIFY(!slider("widget_rgb_manual_exposure")->isEnabled());
    }

    void triggerModes() {
        start();
        QComboBox* mode = s.child<QComboBox>("comboBox_mode");
        choose(mode, 1);
        QCOMPARE(names(), (std::vector<std::string>{"StopStream", "SetTriggerMode", "StartStream"}));
        QCOMPARE(cameraSettings().triggerMode, 1);
        QVERIFY(s.button("pushButton_trigger")->isEnabled());
        QVERIFY(!editor("widget_time_filter")->isChecked());

        s.clearCommandLogs();
        click(s.button("pushButton_trigger"));
        QCOMPARE(names(), std::vector<std::string>{"SoftTrigger"});

        choose(mode, 3);
        QVERIFY(s.child<QSpinBox>("spinBox_ms")->isEnabled());
        QVERIFY(s.button("pushButton_set_time")->isEnabled());
        QVERIFY(!s.button("pushButton_trigger")->isEnabled());
        s.clearCommandLogs();
        s.child<QSpinBox>("spinBox_ms")->setValue(5);
        s.child<QSpinBox>("spinBox_us")->setValue(7);
        click(s.button("pushButton_set_time"));
        QCOMPARE(names(), (std::vector<std::string>{"StopStream", "SetHardTriggerDelay", "StartStream"}));
        // The microseconds go first, where the camera expects milliseconds.
        QCOMPARE(cameraSettings().hardTriggerDelayMs, 7);
        QCOMPARE(cameraSettings().hardTriggerDelayUs, 5);

        // A refused mode puts the list (and through it the camera) back to normal.
        s.camera(kCam).camera().failNext("SetTriggerMode", 39);
        choose(mode, 2);
        QCOMPARE(mode->currentIndex(), 0);
        QCOMPARE(cameraSettings().triggerMode, 0);
        QCOMPARE(s.promptTitles(), QStringList{"状态异常"});
        QVERIFY(!s.child<QSpinBox>("spinBox_ms")->isEnabled());

        QVERIFY(s.stop());
        s.clearCommandLogs();
        choose(mode, 2);
        QVERIFY(names().empty());  // nothing while stopped, not even the stream calls
    }

    void hdrPausesAroundTheChange() {
        start();
        QCheckBox* hdr = box("checkBox_hdr");
        QVERIFY(hdr->isEnabled());
        click(hdr);
        const auto all = received();
        QCOMPARE(names(), (std::vector<std::string>{"StopStream", "SetHdr", "StartStream"}));
        const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(all[2].time - all[0].time);
        QVERIFY2(pause.count() >= 1000, qPrintable(QString::number(pause.count())));
        QVERIFY(cameraSettings().hdr);
        // The frame worker idled during the pause instead of logging a failed
        // read per spin (one may be in flight when the stream stops).
        QVERIFY(s.logCount("operator () 1689") <= 2);
    }

    void frequencyModeWithoutRestart() {
        start();
        click(box("checkbox_tof_frequency"));
        QCOMPARE(names(), std::vector<std::string>{"SetFrequencyMode"});
        QCOMPARE(cameraSettings().frequencyMode, 1);
        click(box("checkbox_tof_frequency"));
        QCOMPARE(cameraSettings().frequencyMode, 0);
        QCOMPARE(s.logCount("SetTofFrequencyMode DUAL_FREQUENCY"), 1);
    }

    void fastModeOnAndOff() {
        start();
        click(s.child<QRadioButton>("radioButton_rgb_manual"));
        click(editor("widget_fly_filter")->findChild<QCheckBox*>("checkBox"));
        s.clearCommandLogs();

        click(box("checkBox_fast"));
        QCOMPARE(names(), (std::vector<std::string>{
                              "SetRgbExposureTime", "StopStream", "SetHdr", "SetSingleIntegralMode", "StartStream",
                              "SetSpatialFilter", "SetTimeMedianFilter", "SetConfidenceFilter", "SetFlyPixelFilter"}));
        QCOMPARE(received()[0].args["value"].toInt(), 625);
        QVERIFY(cameraSettings().singleIntegral);
        QVERIFY(!cameraSettings().flyPixel.enable);
        QCOMPARE(slider("widget_rgb_manual_exposure")->maximum(), 625);
        QVERIFY(!s.button("pushButton_save_config")->isEnabled());
        QVERIFY(!slider("widget_exposure_time")->isEnabled());
        QVERIFY(!editor("widget_fps")->isEnabled());
        QVERIFY(!box("checkBox_hdr")->isEnabled());
        QVERIFY(!box("checkBox_dep2rgb")->isEnabled());
        QVERIFY(s.logCount("fast mode start") == 1);

        s.clearCommandLogs();
        click(box("checkBox_fast"));
        QCOMPARE(names(),
                 (std::vector<std::string>{"SetFrameRate", "StopStream", "SetHdr", "SetHdr", "SetTofExposureTime",
                                           "StartStream", "SetFrameRate", "SetFlyPixelFilter"}));
        const auto all = received();
        QCOMPARE(all[2].args["value"].toBool(), true);
        QCOMPARE(all[3].args["value"].toBool(), false);
        QVERIFY(!cameraSettings().singleIntegral);  // the HDR on/off pair leaves single integration
        QVERIFY(cameraSettings().flyPixel.enable);  // the one filter that was on comes back
        QVERIFY(!cameraSettings().timeMedian.enable);
        QVERIFY(s.button("pushButton_save_config")->isEnabled());
        QVERIFY(slider("widget_exposure_time")->isEnabled());
        QVERIFY(box("checkBox_dep2rgb")->isEnabled());
        QVERIFY(!box("checkBox_rgb2pointcloud")->isEnabled());
        QVERIFY(s.logCount("fast mode stop") == 1);
    }

    void fastModeKeepsAutoRgbExposure() {
        start();
        QVERIFY(s.child<QRadioButton>("radioButton_rgb_auto")->isChecked());  // the camera's default
        click(box("checkBox_fast"));
        QVERIFY(last("SetRgbExposureTime") == nullptr);
    }

    void readBackShowsTheCamerasSettings() {
        d3sim::CameraSettings c;
        c.triggerMode = 3;
        c.hardTriggerDelayMs = 12;
        c.hardTriggerDelayUs = 34;
        c.hdr = true;
        c.tofExposureUs = 1500;
        c.frameRate = 10;
        c.irGamma = 77;
        c.frequencyMode = 1;
        c.spatial = {true, 5.0f, 100.0f};
        c.timeMedian = {true, 9.0f, 100.0f};
        c.flyPixel = {false, 20.0f, 100.0f};
        c.confidence = {true, 30.0f, 100.0f};
        c.rgbAutoExposure = false;
        c.rgbExposureUs = 300;
        c.rgbGain = 40;
        c.rgbContrast = 150;
        s.camera(kCam).camera().setSettings(c);
        QVERIFY(s.search(1));
        s.clearCommandLogs();
        QVERIFY(s.startCamera(kCam));

        QCOMPARE(s.child<QComboBox>("comboBox_mode")->currentIndex(), 3);
        QVERIFY(s.child<QSpinBox>("spinBox_ms")->isEnabled());
        QVERIFY(s.button("pushButton_set_time")->isEnabled());
        QVERIFY(!s.button("pushButton_trigger")->isEnabled());
        QCOMPARE(s.child<QSpinBox>("spinBox_us")->value(), 12);
        QCOMPARE(s.child<QSpinBox>("spinBox_ms")->value(), 34);
        QVERIFY(box("checkBox_hdr")->isChecked());
        QVERIFY(!box("checkBox_fast")->isChecked());
        QVERIFY(s.child<QRadioButton>("radioButton_manual")->isChecked());
        QCOMPARE(editor("widget_exposure_time")->value(), 1500);
        QCOMPARE(editor("widget_fps")->value(), 10);
        QCOMPARE(slider("widget_exposure_time")->maximum(), 2000);
        QCOMPARE(editor("widget_gamma_value")->value(), 77);
        QVERIFY(s.child<QRadioButton>("radioButton_rgb_manual")->isChecked());
        QCOMPARE(editor("widget_rgb_manual_exposure")->value(), 300);
        QCOMPARE(editor("widget_brightness")->value(), 40);
        QCOMPARE(editor("widget_contrast")->value(), 150);
        QVERIFY(box("checkBox_space_filter")->isChecked());
        QCOMPARE(s.child<QComboBox>("comboBox_median_filtering")->currentText(), QString("2"));
        QCOMPARE(editor("widget_time_filter")->value(), 4);
        QVERIFY(editor("widget_time_filter")->isChecked());
        QCOMPARE(editor("widget_fly_filter")->value(), 20);
        QVERIFY(!editor("widget_fly_filter")->isChecked());
        QCOMPARE(editor("widget_confidence_filter")->value(), 30);
        QVERIFY(box("checkbox_tof_frequency")->isChecked());
        // Only the frame rate goes back (it also sets the exposure limits).
        QCOMPARE(setters(), std::vector<std::string>{"SetFrameRate"});
        QCOMPARE(s.logCount("get trigger :3"), 1);
        QCOMPARE(s.logCount("get spatialval :1 5"), 1);
    }

    void readBackOfFastModeAndTopRates() {
        d3sim::CameraSettings c;
        c.singleIntegral = true;  // such a camera reports exposure 0
        c.frameRate = 25;
        s.camera(kCam).camera().setSettings(c);
        QVERIFY(s.search(1));
        s.clearCommandLogs();
        QVERIFY(s.startCamera(kCam));
        QCOMPARE(editor("widget_fps")->value(), 20);
        QCOMPARE(editor("widget_exposure_time")->value(), 6);
        QVERIFY(box("checkBox_fast")->isChecked());
        QVERIFY(!slider("widget_exposure_time")->isEnabled());
        QVERIFY(s.received(kCam, "SetSingleIntegralMode"));
    }

    void readBackOfAutoExposure() {
        d3sim::CameraSettings c;
        c.tofAutoExposure = true;
        s.camera(kCam).camera().setSettings(c);
        QVERIFY(s.search(1));
        QVERIFY(s.startCamera(kCam));
        QVERIFY(s.child<QRadioButton>("radioButton_auto")->isChecked());
        QVERIFY(!slider("widget_exposure_time")->isEnabled());
        QVERIFY(!slider("widget_fps")->isEnabled());
        QVERIFY(!box("checkBox_hdr")->isEnabled());
    }

    void failedReadStopsTheStart() {
        QVERIFY(s.search(1));
        s.camera(kCam).camera().failNext("GetHdr", 3);
        QCOMPARE(editor("widget_gamma_value")->value(), 0);
        s.camera(kCam).camera().setSettings([] {
            d3sim::CameraSettings c;
            c.irGamma = 99;
            return c;
        }());
        QVERIFY(s.click("pushButton_2"));
        QVERIFY(s.settle());
        QCOMPARE(s.logCount("get hdr err"), 1);
        QCOMPARE(editor("widget_gamma_value")->value(), 0);  // panel untouched
        QVERIFY(!s.streaming());
        QCOMPARE(s.promptTitles(), QStringList{"状态异常"});
    }

    void failingCallIsReportedAndTheSequenceGoesOn() {
        start();
        s.camera(kCam).camera().failNext("SetIrGamma", 3);
        commit("widget_gamma_value", 50);
        QCOMPARE(s.promptTitles(), QStringList{"状态异常"});
        QCOMPARE(s.logCount("err set IRGMMGain:50"), 1);
        QCOMPARE(cameraSettings().irGamma, 0);

        s.clearCommandLogs();
        s.camera(kCam).camera().failNext("SetHdr", 3);
        click(box("checkBox_fast"));
        QCOMPARE(s.promptTitles().size(), 2);
        QCOMPARE(s.logCount("err set hdr:0"), 1);
        QVERIFY(s.received(kCam, "SetSingleIntegralMode"));
        QVERIFY(s.received(kCam, "SetFlyPixelFilter"));
        QVERIFY(s.streaming());
    }

    void filterDefaults() {
        start();
        click(s.button("pushButton_save_config"));
        d3sim::CameraSettings c = cameraSettings();
        QVERIFY(!c.timeMedian.enable);
        QCOMPARE(c.timeMedian.value, 7.0f);
        QVERIFY(c.flyPixel.enable);
        QCOMPARE(c.flyPixel.value, 15.0f);
        QCOMPARE(c.confidence.value, 15.0f);
        QVERIFY(c.spatial.enable);
        QCOMPARE(c.spatial.value, 3.0f);
        QVERIFY(box("checkBox_space_filter")->isChecked());
        QCOMPARE(editor("widget_time_filter")->value(), 3);
        QVERIFY(!editor("widget_time_filter")->isChecked());
        QCOMPARE(s.logCount("filteringDefaultConfiguration"), 4);

        // Outside normal mode the camera's time filter is left alone.
        choose(s.child<QComboBox>("comboBox_mode"), 1);
        commit("widget_time_filter", 2);
        s.clearCommandLogs();
        click(s.button("pushButton_save_config"));
        QVERIFY(last("SetTimeMedianFilter") == nullptr);
        QVERIFY(cameraSettings().timeMedian.enable);
        QVERIFY(!editor("widget_time_filter")->isChecked());
    }

    void wholePanelDefaults() {
        start();
        commit("widget_gamma_value", 10);
        choose(s.child<QComboBox>("comboBox_mode"), 1);
        click(box("checkbox_tof_frequency"));
        s.window().controlPanel()->DefaultConfigurationSlots();
        QVERIFY(s.settle());
        const d3sim::CameraSettings c = cameraSettings();
        QCOMPARE(c.frameRate, 10);
        QCOMPARE(c.tofExposureUs, 2000);
        QVERIFY(!c.hdr);
        QVERIFY(!c.rgbAutoExposure);
        QCOMPARE(c.rgbExposureUs, 150);
        QCOMPARE(c.rgbGain, 30);
        QCOMPARE(c.rgbContrast, 100);
        QCOMPARE(c.triggerMode, 0);
        QCOMPARE(c.frequencyMode, 0);
        QCOMPARE(s.child<QComboBox>("comboBox_mode")->currentIndex(), 0);
        QCOMPARE(editor("widget_min_color_mapping")->value(), 200);
        QVERIFY(s.streaming());
        QCOMPARE(names().back(), std::string("StartStream"));
        QVERIFY(s.prompts().requests.isEmpty());
    }
};

QTEST_MAIN(PanelE2eTest)
#include "panel_e2e_test.moc"
