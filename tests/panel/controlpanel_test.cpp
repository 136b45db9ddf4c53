// The control panel with a real session and a fake camera: the behaviours
// kept on purpose that people compare logs and cameras against (argument
// order of the trigger delay, reversed and misspelt log lines, calls judged
// only on a zero result), and what the panel sends for its mode changes.
#include "controlpanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QtTest>
#include <climits>
#include <mutex>

#include "acquisition.h"
#include "camerasession.h"
#include "compatibility.h"
#include "fakecamera.h"
#include "nullconverter.h"
#include "sessionsettle.h"

namespace {

using Names = std::vector<std::string>;

}  // namespace

class ControlPanelTest : public QObject {
    Q_OBJECT

    FakeCamera camera_;
    NullConverter converter_;
    std::mutex logMutex_;
    QStringList log_;
    QStringList boxes_;
    std::unique_ptr<Acquisition> acquisition_;
    std::unique_ptr<CameraSession> session_;
    std::unique_ptr<ControlPanel> panel_;

    template <typename T = QWidget>
    T* child(const char* name) {
        return panel_->findChild<T*>(name);
    }
    bool settle() { return settleSession(*session_, panel_.get()); }
    QStringList log() {
        std::lock_guard<std::mutex> lock(logMutex_);
        return log_;
    }
    void clear() {
        camera_.clearCalls();
        std::lock_guard<std::mutex> lock(logMutex_);
        log_.clear();
        boxes_.clear();
    }
    // The panel's log lines without their origin ("<function> <line> ").
    QStringList messages() {
        static const QRegularExpression origin(QStringLiteral("^\\D*\\d+ "));
        QStringList out;
        for (QString line : log()) out << line.remove(origin);
        return out;
    }

private slots:
    void init() {
        camera_.frameIntervalMs = 20;
        const LogSink sink = [this](const QString& line) {
            std::lock_guard<std::mutex> lock(logMutex_);
            log_ << line;
        };
        acquisition_ = std::make_unique<Acquisition>(camera_, converter_, sink);
        session_ = std::make_unique<CameraSession>(camera_, *acquisition_, sink);
        panel_ = std::make_unique<ControlPanel>();
        CameraSession* s = session_.get();
        connect(panel_.get(), &ControlPanel::cameraScript, panel_.get(), [s](const CameraScript& c) { s->run(c); });
        connect(panel_.get(), &ControlPanel::configurationRead, panel_.get(), [s](bool ok) { s->continueStart(ok); });
        connect(panel_.get(), &ControlPanel::prompt, panel_.get(),
                [this](PromptKind, const QString& title, const QString&) { boxes_ << title; });
        connect(s, &CameraSession::prompt, panel_.get(),
                [this](PromptKind, const QString& title, const QString&) { boxes_ << title; });
        connect(s, &CameraSession::stateChanged, panel_.get(), &ControlPanel::applySessionStatus);
        connect(s, &CameraSession::sessionEvent, panel_.get(), &ControlPanel::applySessionEvent);
        session_->begin();
        session_->search();
        session_->start(0);
        QVERIFY(settle());
        QCOMPARE(session_->status().state, SessionState::Streaming);
        QVERIFY(panel_->isEnabled());
        clear();
    }
    void cleanup() {
        session_.reset();
        acquisition_.reset();
        panel_.reset();
    }

    void triggerDelayGoesMicrosecondsFirstAndItsFailureSaysGet() {
        child<QComboBox>("comboBox_mode")->setCurrentIndex(3);
        QVERIFY(settle());
        clear();
        child<QSpinBox>("spinBox_ms")->setValue(5);
        child<QSpinBox>("spinBox_us")->setValue(7);
        camera_.failNext("SetDelayHardTriggerTime", FAILED);
        child<QPushButton>("pushButton_set_time")->click();
        QVERIFY(settle());
        QCOMPARE(camera_.commands(), (Names{"StopStream", "SetDelayHardTriggerTime", "StartStream"}));
        // The camera's first parameter is named milliseconds; it gets the microseconds.
        const auto calls = camera_.calls();
        QVERIFY(std::find(calls.begin(), calls.end(), "SetDelayHardTriggerTime 7 5") != calls.end());
        QCOMPARE(messages(), (QStringList{"stop stream", "set trigger time ms us:5 7",
                                          Compatibility::kHardTriggerDelayFailure + "5 7", "start stream"}));
        QCOMPARE(boxes_, QStringList{"状态异常"});
    }

    void triggerModesZeroAndOneLogTheirFailureLineOnSuccess() {
        child<QComboBox>("comboBox_mode")->setCurrentIndex(1);
        QVERIFY(settle());
        QCOMPARE(messages(), (QStringList{"set TriggerModel: 1", "err set TriggerModel: 1"}));
        QVERIFY(child<QPushButton>("pushButton_trigger")->isEnabled());
        clear();
        camera_.failNext("SetTriggerMode", FAILED);
        child<QComboBox>("comboBox_mode")->setCurrentIndex(0);
        QVERIFY(settle());
        QCOMPARE(messages(), QStringList{"set TriggerModel: 0"});
        QCOMPARE(boxes_, QStringList{"状态异常"});
        QVERIFY(!child<QPushButton>("pushButton_trigger")->isEnabled());
    }

    void exposureModeCallsFailOnlyOnZero() {
        auto* rgbManual = child<QRadioButton>("radioButton_rgb_manual");
        auto* rgbAuto = child<QRadioButton>("radioButton_rgb_auto");
        camera_.failNext("SetRgbCameraExposureMode", FAILED);
        rgbManual->click();
        QVERIFY(settle());
        QVERIFY(!messages().contains("err set rgb MANUAL_EXPOSURE"));
        QVERIFY(boxes_.isEmpty());
        clear();
        camera_.failNext("SetRgbCameraExposureMode", ReturnCode(0));
        rgbAuto->click();
        QVERIFY(settle());
        QCOMPARE(messages(), (QStringList{"rgb auto clicked", "set rgb AUTO_EXPOSURE", "err set rgb AUTO_EXPOSURE"}));
        QVERIFY(boxes_.isEmpty());
        QVERIFY(Compatibility::exposureModeCallFailed(ReturnCode(0)));
        QVERIFY(!Compatibility::exposureModeCallFailed(NETWORK_ERROR));
    }

    void fastModeWritesItsConfidenceLinesAsTheyAlwaysWere() {
        camera_.failNext("SetConfidenceFilter", FAILED);
        child<QCheckBox>("checkBox_fast")->click();
        QVERIFY(settle());
        const QStringList m = messages();
        QVERIFY(m.contains(Compatibility::kFastConfidenceSet + "0"));
        QVERIFY(m.contains(Compatibility::kFastConfidenceFailure + "0"));
        QCOMPARE(m.first(), QString("stop stream"));
        QCOMPARE(m.last(), QString("fast mode start"));
        // Every filter goes off, the failed one too, and the stream is back.
        QCOMPARE(camera_.count("SetFlyPixeFilter"), 1);
        QCOMPARE(camera_.commands()[3], std::string("StartStream"));
        QVERIFY(acquisition_->streaming());
    }

    void aModeChangeKeepsThePanelOffUntilItRan() {
        camera_.holdNext("SetHDR");
        child<QCheckBox>("checkBox_hdr")->click();
        QTRY_VERIFY(camera_.waiting("SetHDR"));
        QVERIFY(!panel_->isEnabled());
        QCOMPARE(panel_->pendingModeChanges(), 1);
        QCOMPARE(session_->status().activity, QString("正在切换HDR..."));
        camera_.release("SetHDR");
        QVERIFY(settle());
        QVERIFY(panel_->isEnabled());
        QVERIFY(session_->status().activity.isEmpty());
        QCOMPARE(camera_.commands(), (Names{"StopStream", "SetHDR", "StartStream"}));
    }

    void aRefusedTriggerModePutsTheListBackToNormal() {
        camera_.failNext("SetTriggerMode", TRIGGER_MODE_REFUSED);
        child<QComboBox>("comboBox_mode")->setCurrentIndex(2);
        QVERIFY(settle());
        QCOMPARE(child<QComboBox>("comboBox_mode")->currentIndex(), 0);
        QCOMPARE(camera_.commands(), (Names{"StopStream", "SetTriggerMode", "SetTriggerMode", "StartStream"}));
        QCOMPARE(messages(), (QStringList{"set TriggerModel: 2", "set TriggerModel: 0"}));
        QCOMPARE(boxes_, QStringList{"状态异常"});
    }

    // A configuration file can hold any value that parses: extremes reach
    // the panel and the camera without harm (no overflow in the values the
    // panel derives from them), and the panel comes back afterwards.
    void extremeValuesFromAFileAreAppliedWithoutHarm() {
        for (const int extreme : {INT_MIN, -1, INT_MAX}) {
            PanelConfig c;
            c.triggerMode = extreme;
            c.irGamma = extreme;
            c.minColorMap = extreme;
            c.maxColorMap = extreme;
            c.exposureTime = extreme;
            c.hdr = true;
            c.spatialFilter = true;
            c.timeFilter = extreme;
            c.confidenceFilter = extreme;
            c.flyFilter = extreme;
            c.timeFilterOn = c.confidenceFilterOn = c.flyFilterOn = true;
            c.fps = extreme;
            c.fastMode = true;
            c.dep2rgb = true;
            c.rgbManual = true;
            c.rgbExposureTime = extreme;
            c.rgbBrightness = extreme;
            c.rgbContrast = extreme;
            c.spatialIndex = extreme;
            c.hardDelayMs = extreme;
            c.hardDelayUs = extreme;
            clear();
            bool done = false;
            panel_->applyConfiguration(c, true, CameraScript(), [&](const ScriptOutcome&) { done = true; });
            QVERIFY2(QTest::qWaitFor([&] { return done; }, 60000), qPrintable(QString::number(extreme)));
            QVERIFY(settle());
            QVERIFY(panel_->isEnabled());
            QVERIFY(!camera_.commands().empty());
            QCOMPARE(session_->status().state, SessionState::Streaming);
        }
    }
};

QTEST_MAIN(ControlPanelTest)
#include "controlpanel_test.moc"
