// Configuration files and the camera's stored configuration through the real
// window and SDK against a simulated colour camera: export and import with
// their checks and boxes, what an import sends and in which order, and the
// store and reset commands with the camera's reboot.
#include <QCheckBox>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QStandardPaths>
#include <QtTest>

#include "acquisition.h"
#include "configcommands.h"
#include "configfile.h"
#include "controlpanel.h"
#include "e2esupport.h"
#include "panearea.h"
#include "sampleconfig.h"
#include "slidereditor.h"

namespace {

constexpr int kCam = 0;  // model 3: ToF and colour

}  // namespace

class ConfigE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.105.2", 48805, {'3'}, 3000, 300, 0}};

    ConfigCommands* commands() { return s.window().configCommands(); }
    QString workingCopy() { return s.workDir() + "/config"; }
    d3sim::CameraSettings cameraSettings() { return s.camera(kCam).camera().settings(); }

    std::vector<std::string> setters() { return s.setters(kCam); }
    QJsonObject firstArgs(const std::string& name) {
        for (const auto& c : s.camera(kCam).camera().commandLog())
            if (c.name == name) return QJsonDocument::fromJson(QByteArray::fromStdString(c.args)).object();
        return {};
    }
    QJsonObject lastArgs(const std::string& name) {
        const auto log = s.camera(kCam).camera().commandLog();
        for (auto it = log.rbegin(); it != log.rend(); ++it)
            if (it->name == name) return QJsonDocument::fromJson(QByteArray::fromStdString(it->args)).object();
        return {};
    }

    // A camera that has streamed once and is stopped: what an import needs.
    void startAndStop() {
        QVERIFY(s.search(1));
        QVERIFY(s.startCamera(kCam));
        QVERIFY(s.stop());
        s.prompts().requests.clear();
        s.clearCommandLogs();
    }
    QString writeFile(const QString& folder, const QByteArray& bytes) {
        QDir().mkpath(folder);
        const QString path = folder + "/config";
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size()) return QString();
        return path;
    }
    // Imports `path` as the user would choose it and waits for the last box.
    bool importFile(const QString& path) {
        s.prompts().pathAnswer = path;
        QSignalSpy finished(commands(), &ConfigCommands::importFinished);
        commands()->importConfiguration();
        return e2e::waitFor([&] { return finished.count() > 0; }) && s.settle();
    }
    bool exportTo(const QString& folder) {
        s.prompts().pathAnswer = folder;
        QSignalSpy finished(commands(), &ConfigCommands::exportFinished);
        commands()->exportConfiguration();
        return e2e::waitFor([&] { return finished.count() > 0; }) && s.settle();
    }
    QStringList boxes() { return s.boxes(); }
    int fileDialogs() {
        int n = 0;
        for (const auto& r : s.prompts().requests)
            if (r.kind == UiPrompt::Kind::OpenFileName || r.kind == UiPrompt::Kind::ExistingDirectory) ++n;
        return n;
    }

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kCam));
        s.camera(kCam).camera().setSettings(d3sim::CameraSettings());
        s.openWindow();
    }
    void cleanup() { s.closeWindow(); }

    // Import a file, start again (the panel is read back from the camera)
    // and export: every setting the camera holds comes back as the file had it.
    void importedSettingsReachTheCameraAndComeBackInAnExport() {
        startAndStop();
        const PanelConfig file = distinctConfig();
        const QString path = writeFile(s.workDir() + "/in", ConfigFile::bytes(file));
        QVERIFY(!path.isEmpty());
        QVERIFY(importFile(path));

        // The dialog starts on the desktop; the success box is the only box.
        QCOMPARE(s.prompts().requests.first().kind, UiPrompt::Kind::OpenFileName);
        QCOMPARE(s.prompts().requests.first().text, QStandardPaths::writableLocation(QStandardPaths::DesktopLocation));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("完成|已成功导入配置！")});
        QVERIFY(!QFile::exists(workingCopy()));

        // In this order: frequency, trigger, gamma, exposure, HDR, spatial on,
        // the three filters, the frame rate, leaving fast mode, the spatial
        // kernel and the colour sensor.
        const std::vector<std::string> expected{
            "SetFrequencyMode", "SetTriggerMode", "SetIrGamma", "SetTofExposureTime", "SetHdr", "SetSpatialFilter",
            "SetConfidenceFilter", "SetTimeMedianFilter", "SetFlyPixelFilter", "SetFrameRate",
            // fast mode off: rate, HDR on and off, exposure, rate, the ticked filters
            "SetFrameRate", "SetHdr", "SetHdr", "SetTofExposureTime", "SetFrameRate", "SetTimeMedianFilter",
            "SetFlyPixelFilter",
            // spatial kernel, colour sensor
            "SetSpatialFilter", "SetRgbExposureMode", "SetRgbExposureTime", "SetRgbGain", "SetRgbContrast"};
        QCOMPARE(setters(), expected);
        QCOMPARE(lastArgs("SetSpatialFilter")["value"].toDouble(), 5.0);  // 2 x "2" + 1
        QVERIFY(s.logCount("readConfigFromFil") > 0);
        QCOMPARE(s.logCount("SetTofFrequencyMode :0"), 1);  // single frequency, logged negated

        const d3sim::CameraSettings cam = cameraSettings();
        QCOMPARE(cam.frequencyMode, 1);
        QCOMPARE(cam.irGamma, 77);
        QCOMPARE(cam.tofExposureUs, 900);
        QCOMPARE(cam.frameRate, 10);
        QCOMPARE(cam.timeMedian.enable, true);
        QCOMPARE(cam.timeMedian.value, 5.0f);
        QCOMPARE(cam.confidence.enable, false);
        QCOMPARE(cam.confidence.value, 30.0f);
        QCOMPARE(cam.flyPixel.enable, true);
        QCOMPARE(cam.flyPixel.value, 10.0f);
        QCOMPARE(cam.spatial.enable, true);
        QCOMPARE(cam.rgbAutoExposure, false);
        QCOMPARE(cam.rgbExposureUs, 600);
        QCOMPARE(cam.rgbGain, 200);
        QCOMPARE(cam.rgbContrast, 150);

        // Right after the import the panel shows the whole file; the boxes
        // are ticked as the file says while the panes stay as they were.
        QVERIFY(commands()->currentConfiguration() == file);
        QVERIFY(!s.child<QCheckBox>("checkBoxIr")->isChecked());
        QVERIFY(!s.window().paneArea()->pane(2)->isHidden());

        QVERIFY(s.startCamera(kCam));
        s.prompts().requests.clear();
        const QString out = s.workDir() + "/out";
        QDir().mkpath(out);
        QVERIFY(exportTo(out));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("完成|已成功导出配置！")});
        QVERIFY(!QFile::exists(workingCopy()));
        QFile exported(out + "/config");
        QVERIFY(exported.open(QIODevice::ReadOnly));
        const QJsonObject json = QJsonDocument::fromJson(exported.readAll()).object();
        QCOMPARE(json.size(), 31);
        QCOMPARE(json.value("spaticalFiltering").toInt(), 1);  // the format's spelling

        // A start shows and ticks every pane; the delay fields come from the
        // camera, which an import does not send them to.
        PanelConfig expectedBack = file;
        expectedBack.depShow = expectedBack.irShow = expectedBack.cpShow = expectedBack.rgbShow = true;
        expectedBack.hardDelayMs = cameraSettings().hardTriggerDelayMs;
        expectedBack.hardDelayUs = cameraSettings().hardTriggerDelayUs;
        const PanelConfig back = ConfigFile::fromJson(json);
        QCOMPARE(QJsonDocument(ConfigFile::toJson(back)).toJson(),
                 QJsonDocument(ConfigFile::toJson(expectedBack)).toJson());

        // The next export starts where this one went.
        s.prompts().requests.clear();
        QVERIFY(exportTo(QString()));  // cancelled
        QCOMPARE(s.prompts().requests.first().text, out);
        QVERIFY(boxes().isEmpty());
    }

    void importWithRegistrationSwitchesTheWorkersAndTheCamera() {
        startAndStop();
        PanelConfig file = distinctConfig();
        file.dep2rgb = true;
        file.rgb2pointcloud = true;
        QVERIFY(importFile(writeFile(s.workDir() + "/reg", ConfigFile::bytes(file))));
        QVERIFY(s.window().acquisition().depthToRgb());
        QVERIFY(s.window().acquisition().registrationActive());
        QCheckBox* coloured = s.child<QCheckBox>("checkBox_rgb2pointcloud");
        // The display group itself is off while the stream is stopped.
        QVERIFY(coloured->isEnabledTo(coloured->parentWidget()));
        QVERIFY(s.child<QCheckBox>("checkBox_dep2rgb")->isChecked());

        file.dep2rgb = false;
        file.rgb2pointcloud = false;
        QVERIFY(importFile(writeFile(s.workDir() + "/plain", ConfigFile::bytes(file))));
        QVERIFY(!s.window().acquisition().registrationActive());
        QVERIFY(!coloured->isEnabledTo(coloured->parentWidget()));
    }

    void brokenFileSetsEverythingToZeroAndStillSucceeds() {
        startAndStop();
        QVERIFY(importFile(writeFile(s.workDir() + "/broken", "{ \"IR_val\": 12, oops")));
        // The camera refuses some zeros (with their boxes); the import still succeeds.
        QCOMPARE(boxes().last(), QString::fromUtf8("完成|已成功导入配置！"));
        QCOMPARE(s.logCount(QString::fromUtf8("Json格式错误")), 0);
        QCOMPARE(lastArgs("SetIrGamma")["value"].toInt(), 0);
        // The file's 0 goes to the camera as it is; leaving fast mode then
        // sends what the editor holds, which stops at 1.
        QCOMPARE(firstArgs("SetFrameRate")["value"].toInt(), 0);
        QCOMPARE(s.child<SliderEditer>("widget_gamma_value")->value(), 0);
        QVERIFY(!s.child<QCheckBox>("checkBoxIr")->isChecked());
        QVERIFY(!QFile::exists(workingCopy()));
    }

    void triggerModeOneFromAFileEnablesTheSoftTrigger() {
        startAndStop();
        PanelConfig file = distinctConfig();
        file.triggerMode = 1;
        QVERIFY(importFile(writeFile(s.workDir() + "/soft", ConfigFile::bytes(file))));
        QCOMPARE(cameraSettings().triggerMode, 1);
        // Judged within the panel, which is off while the stream is stopped.
        QWidget* panel = s.window().controlPanel();
        QVERIFY(s.button("pushButton_trigger")->isEnabledTo(panel));
        QVERIFY(!s.child<QSpinBox>("spinBox_ms")->isEnabledTo(panel));
        QVERIFY(!s.child<QSpinBox>("spinBox_us")->isEnabledTo(panel));
        QVERIFY(!s.button("pushButton_set_time")->isEnabledTo(panel));
    }

    // A refused setting gets its own box and the panel keeps what the camera
    // kept; every later step still runs and the import still says it worked.
    void aRefusedSettingShowsItsBoxAndTheRestGoesOn() {
        startAndStop();
        const int gammaBefore = s.child<SliderEditer>("widget_gamma_value")->value();
        s.camera(kCam).camera().failNext("SetIrGamma", 3);
        QVERIFY(importFile(writeFile(s.workDir() + "/fail", ConfigFile::bytes(distinctConfig()))));
        const QStringList shown = boxes();
        QCOMPARE(shown.size(), 2);
        QVERIFY2(shown[0].startsWith(QString::fromUtf8("状态异常|错误信息：")), qPrintable(shown[0]));
        QCOMPARE(shown[1], QString::fromUtf8("完成|已成功导入配置！"));
        QCOMPARE(s.child<SliderEditer>("widget_gamma_value")->value(), gammaBefore);
        QCOMPARE(setters().back(), std::string("SetRgbContrast"));
        QCOMPARE(cameraSettings().tofExposureUs, 900);
    }

    void importAndExportAreRefusedInTheWrongState() {
        QVERIFY(s.search(1));
        // Connected list, never started: import is refused, export too.
        commands()->importConfiguration();
        commands()->exportConfiguration();
        QVERIFY(s.settle());
        QCOMPARE(boxes(), (QStringList{QString::fromUtf8("提示|请开始运行设备后停止数据输出再导入配置！"),
                                       QString::fromUtf8("提示|请在设备运行时导出配置！")}));
        QCOMPARE(fileDialogs(), 0);

        // Streaming: import still refused.
        QVERIFY(s.startCamera(kCam));
        s.prompts().requests.clear();
        s.clearCommandLogs();
        commands()->importConfiguration();
        QVERIFY(s.settle());
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("提示|请开始运行设备后停止数据输出再导入配置！")});
        QCOMPARE(fileDialogs(), 0);
        QVERIFY(setters().empty());

        // Stopped: export is refused and writes nothing.
        QVERIFY(s.stop());
        s.prompts().requests.clear();
        QVERIFY(exportTo(s.workDir()));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("提示|请在设备运行时导出配置！")});
        QVERIFY(!QFile::exists(workingCopy()));
    }

    void onlyAFileNamedConfigIsImported() {
        startAndStop();
        const QByteArray bytes = ConfigFile::bytes(distinctConfig());
        for (const QString& name : {QStringLiteral("Config"), QStringLiteral("config.json")}) {
            const QString path = s.workDir() + "/" + name;
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(bytes);
            f.close();
            s.prompts().requests.clear();
            QVERIFY(importFile(path));
            QCOMPARE(boxes(), QStringList{QString::fromUtf8("打开失败|请检查文件是否正确！")});
        }
        QVERIFY(setters().empty());
    }

    void storeIsAllowedWhileStreamingAndThanksWithTheImportText() {
        QVERIFY(s.search(1));
        QVERIFY(s.startCamera(kCam));
        s.prompts().requests.clear();
        s.clearCommandLogs();
        QVERIFY(s.click("pushButton_save_to_device"));
        QVERIFY(e2e::waitFor([&] { return !boxes().isEmpty(); }));
        QVERIFY(s.received(kCam, "SaveConfig"));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("完成|已成功导入配置！")});

        // A refused store shows the error and no thanks.
        s.prompts().requests.clear();
        s.camera(kCam).camera().failNext("SaveConfig", 3);
        QVERIFY(s.click("pushButton_save_to_device"));
        QVERIFY(e2e::waitFor([&] { return !boxes().isEmpty(); }));
        QVERIFY(s.settle());
        QCOMPARE(boxes().size(), 1);
        QVERIFY(!boxes()[0].contains(QString::fromUtf8("已成功导入配置！")));
    }

    // Both resets need a camera that streamed and was stopped; the camera
    // then reboots, the link-loss callback is logged, and a start works again.
    void resetsAreRefusedUntilStoppedThenTheCameraRebootsAndStartsAgain() {
        const QString refused = QString::fromUtf8("失败|请开始使用设备后停止设备再使用！");
        QVERIFY(s.search(1));
        commands()->resetConfiguration();
        QVERIFY(s.startCamera(kCam));
        s.clearCommandLogs();
        commands()->resetDevice();
        QVERIFY(s.settle());
        QCOMPARE(boxes(), (QStringList{refused, refused}));
        QVERIFY(!s.received(kCam, "DeleteConfig") && !s.received(kCam, "FactoryDefaults"));
        // The log-window line has no function name in front of its number.
        QVERIFY(s.logLines().filter(QRegularExpression("^ \\d+ reset Device configuration$")).size() == 1);
        QVERIFY(s.logLines().filter(QRegularExpression("^ \\d+ reset Device$")).size() == 1);

        QVERIFY(s.stop());
        s.prompts().requests.clear();
        const auto rebootsBefore = s.camera(kCam).stats().reboots;
        commands()->resetConfiguration();
        QVERIFY(e2e::waitFor([&] { return !boxes().isEmpty(); }));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("完成|已成功重置配置，等待设备重启！")});
        QVERIFY(s.received(kCam, "DeleteConfig"));
        QVERIFY(s.waitForLog("sdk callback:"));
        QVERIFY(e2e::waitFor([&] { return s.camera(kCam).stats().reboots > rebootsBefore; }));
        // A stopped camera's lost link is only logged: no recovery, no box.
        QVERIFY(s.settle());
        QCOMPARE(s.logCount("try to reinit..."), 0);
        QVERIFY(!s.recovering());
        QCOMPARE(s.button("pushButton_2")->text(), QString::fromUtf8("开始"));
        QCOMPARE(boxes().size(), 1);

        QVERIFY(s.ensureUp(kCam));
        QVERIFY(s.click("pushButton_2"));
        QVERIFY(e2e::waitFor([&] { return s.streaming(); }));
    }
};

QTEST_MAIN(ConfigE2eTest)
#include "config_e2e_test.moc"
