// The camera session against a fake camera: its states and what the camera
// sees in each transition, the boxes and log lines it asks for, its scripts,
// recovery after a lost link, and its end while the SDK may still call back.
#include "camerasession.h"

#include <QLoggingCategory>
#include <QSignalSpy>
#include <QtTest>
#include <atomic>
#include <memory>
#include <thread>

#include "acquisition.h"
#include "blockingcall.h"
#include "fakecamera.h"
#include "nullconverter.h"
#include "sessionsettle.h"

namespace {

struct Prompt {
    PromptKind kind;
    QString title;
    QString text;
};

// Everything a session needs, and what it told the window.
class Rig {
public:
    FakeCamera camera;
    NullConverter converter;
    std::unique_ptr<Acquisition> acquisition;
    std::unique_ptr<CameraSession> session;
    QStringList log;
    // For each "sdk callback:" line, whether the workers were still reading then.
    QVector<bool> readingAtCallbackLine;
    std::mutex logMutex;
    QVector<Prompt> prompts;
    QVector<SessionEvent> events;
    // Answers the start's read-back the way the panel does, with this result.
    bool readBackOk = true;

    Rig() {
        camera.settings.devices = {"KX0000001001:10.0.0.2", "KX0000003002:10.0.0.3"};
        camera.settings.serial = "KX0000001001";
        camera.frameIntervalMs = 2;
        const LogSink sink = [this](const QString& line) {
            std::lock_guard<std::mutex> lock(logMutex);
            log << line;
            if (line.startsWith("sdk callback:") && acquisition) readingAtCallbackLine << acquisition->streaming();
        };
        acquisition = std::make_unique<Acquisition>(camera, converter, sink);
        session = std::make_unique<CameraSession>(camera, *acquisition, sink);
        QObject::connect(session.get(), &CameraSession::prompt, &context,
                         [this](PromptKind k, const QString& t, const QString& x) {
                             prompts.append({k, t, x});
                         });
        QObject::connect(session.get(), &CameraSession::sessionEvent, &context,
                         [this](SessionEvent e, const SessionStatus&) {
                             events.append(e);
                             if (e == SessionEvent::ReadBack) session->continueStart(readBackOk);
                         });
        session->begin();
    }
    ~Rig() {
        session.reset();
        acquisition.reset();
    }

    // Waits until the session has run everything and its news arrived here.
    bool settle() { return settleSession(*session, &context); }
    SessionState state() { return session->status().state; }
    void clearLog() {
        std::lock_guard<std::mutex> lock(logMutex);
        log.clear();
    }
    QStringList logLines() {
        std::lock_guard<std::mutex> lock(logMutex);
        return log;
    }
    int logCount(const QString& part) {
        std::lock_guard<std::mutex> lock(logMutex);
        return int(std::count_if(log.begin(), log.end(), [&](const QString& l) { return l.contains(part); }));
    }
    QStringList titles() const {
        QStringList out;
        for (const Prompt& p : prompts) out << p.title;
        return out;
    }
    bool streamCamera(int row = 0) {
        session->search();
        session->start(row);
        return settle() && state() == SessionState::Streaming;
    }

    QObject context;
};

using Names = std::vector<std::string>;

}  // namespace

class CameraSessionTest : public QObject {
    Q_OBJECT

private slots:
    // The link callback writes a debug line per call; a flapping link writes thousands.
    void initTestCase() { QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false")); }

    void startUpSetsTheTimeoutAndRegistersTheCallback() {
        Rig r;
        QVERIFY(r.settle());
        QCOMPARE(r.camera.calls(), (Names{"SetTimeout 1000", "RegisterNetworkMonitoringCallback"}));
        QVERIFY(r.camera.callbackRegistered());
        QCOMPARE(r.state(), SessionState::Idle);
    }

    void searchStartStopDisconnectFollowTheStateTable() {
        Rig r;
        QVERIFY(r.settle());
        r.camera.clearCalls();

        r.session->search();
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Listed);
        QCOMPARE(r.session->status().devices, (QStringList{"KX0000001001:10.0.0.2", "KX0000003002:10.0.0.3"}));

        r.session->start(0);
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Streaming);
        QVERIFY(r.acquisition->streaming());
        // Open, identify, prepare, read back (the panel's part), then stream.
        QCOMPARE(r.camera.commands(), (Names{"FindDevices", "InitDevice", "GetDeviceSN", "GetVersion", "GetImageInfo",
                                             "ConvertDepthToRgbEnable", "ConvertRgbToDepthEnable", "StartStream",
                                             "GetTofCameraIntrinsicParam"}));
        QCOMPARE(r.camera.calls()[1], std::string("InitDevice KX0000001001:10.0.0.2 1"));
        const DeviceDetails d = r.session->status().device;
        QVERIFY(d.present);
        QCOMPARE(d.serial, QString("KX0000001001"));
        QCOMPARE(d.address, QString("10.0.0.2"));
        QVERIFY(d.model && d.model->name == "KX-120");
        QCOMPARE(r.events,
                 (QVector<SessionEvent>{SessionEvent::ControlsOn, SessionEvent::PreparingStream, SessionEvent::ReadBack,
                                        SessionEvent::ShowPanes, SessionEvent::StreamStarted}));
        QCOMPARE(r.logCount("on_pushButton_2_clicked"), 3);
        QCOMPARE(r.logCount("GetTofCameraIntrinsicParam fx:520 fy:520 cx:320 cy:240 k1:0 k2:0 k3:0"), 1);

        r.camera.clearCalls();
        r.events.clear();
        r.session->stop();
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Open);
        QVERIFY(!r.acquisition->streaming());
        QCOMPARE(r.camera.commands(), Names{"StopStream"});
        QCOMPARE(r.events, (QVector<SessionEvent>{SessionEvent::Stopping, SessionEvent::ControlsOff}));
        QVERIFY2(r.session->status().device.present, "a stop keeps what the camera showed");

        // Start after stop: the calls of a start, nothing else.
        r.camera.clearCalls();
        r.session->start(0);
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Streaming);
        QCOMPARE(r.camera.count("InitDevice"), 1);
        QCOMPARE(r.camera.count("DisconnectFromDevice"), 0);

        r.camera.clearCalls();
        r.events.clear();
        r.session->disconnectDevice();
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Idle);
        QCOMPARE(r.camera.commands(), (Names{"StopStream", "DisconnectFromDevice"}));
        QVERIFY(r.session->status().devices.isEmpty());
        QVERIFY(!r.session->status().device.present);
        QCOMPARE(r.events, (QVector<SessionEvent>{SessionEvent::Stopping, SessionEvent::ControlsOff,
                                                  SessionEvent::ControlsReleased, SessionEvent::ResetView,
                                                  SessionEvent::ClearScenes}));
        QVERIFY(r.prompts.isEmpty());
    }

    // A camera that says it was not streaming has stopped all the same; so
    // has one with no session left (a recovery under way).
    void stopTakesNotStreamingAndNoSessionAsAStop_data() {
        QTest::addColumn<int>("result");
        QTest::newRow("not streaming") << int(NOT_STREAMING);
        QTest::newRow("no session") << int(NOT_CONNECTED);
    }
    void stopTakesNotStreamingAndNoSessionAsAStop() {
        QFETCH(int, result);
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.failNext("StopStream", ReturnCode(result));
        r.session->stop();
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Open);
        QVERIFY(r.prompts.isEmpty());
    }

    void aFailedStopIsShownAndKeepsTheStreamingFace() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.failNext("StopStream", FAILED);
        r.session->stop();
        QVERIFY(r.settle());
        QCOMPARE(r.titles(), QStringList{"状态异常"});
        QCOMPARE(r.state(), SessionState::Streaming);
        QVERIFY(!r.acquisition->streaming());
    }

    void anotherCameraChosenStopsAndKeepsTheList() {
        Rig r;
        QVERIFY(r.streamCamera(1));
        r.camera.clearCalls();
        r.session->changeDevice();
        QVERIFY(r.settle());
        QCOMPARE(r.state(), SessionState::Listed);
        QCOMPARE(r.camera.commands(), (Names{"StopStream", "DisconnectFromDevice"}));
        QCOMPARE(r.session->status().devices.size(), 2);
        QVERIFY(!r.acquisition->streaming());
        QVERIFY(r.streamCamera(1));
    }

    void searchWhileStreamingStopsFirstAndAnEmptyListIsSaid() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.clearCalls();
        r.camera.failNext("StopStream", FAILED);
        r.camera.settings.devices.clear();
        r.session->search();
        QVERIFY(r.settle());
        QCOMPARE(r.camera.commands(), (Names{"StopStream", "FindDevices"}));
        QCOMPARE(r.state(), SessionState::Idle);
        QVERIFY(!r.acquisition->streaming());
        QCOMPARE(r.prompts.size(), 1);
        QCOMPARE(r.prompts[0].kind, PromptKind::Information);
        QCOMPARE(r.prompts[0].title, QString("提示"));
        QCOMPARE(r.prompts[0].text, QString("未找到设备"));
    }

    void startWithoutAListCallsNothing() {
        Rig r;
        QVERIFY(r.settle());
        r.camera.clearCalls();
        r.session->start(0);
        QVERIFY(r.settle());
        QVERIFY(r.camera.calls().empty());
        QCOMPARE(r.titles(), QStringList{"提示"});
        QCOMPARE(r.prompts[0].text, QString("请选中设备后再开始！"));
    }

    void failedOpensAreReportedAndSomeEndTheSession_data() {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("title");
        QTest::addColumn<bool>("disconnects");
        QTest::newRow("network failure") << int(INIT_NETWORK_FAILED) << "网络错误" << true;
        QTest::newRow("link lost") << int(NETWORK_ERROR) << "网络错误" << true;
        QTest::newRow("no session left") << int(INIT_FAILED) << "错误" << true;
        QTest::newRow("busy") << int(DEVICE_BUSY) << "错误" << false;
    }
    void failedOpensAreReportedAndSomeEndTheSession() {
        QFETCH(int, code);
        QFETCH(QString, title);
        QFETCH(bool, disconnects);
        Rig r;
        r.session->search();
        QVERIFY(r.settle());
        r.camera.clearCalls();
        r.camera.failNext("InitDevice", ReturnCode(code));
        r.session->start(0);
        QVERIFY(r.settle());
        QCOMPARE(r.titles(), QStringList{title});
        QCOMPARE(r.prompts[0].text, QString("错误信息：code %1").arg(code));
        QCOMPARE(r.camera.count("DisconnectFromDevice"), disconnects ? 1 : 0);
        QCOMPARE(r.state(), disconnects ? SessionState::Idle : SessionState::Listed);
        QCOMPARE(r.camera.count("StartStream"), 0);
    }

    void failedReadBackLeavesTheCameraOpen() {
        Rig r;
        r.readBackOk = false;
        QVERIFY(!r.streamCamera());
        QCOMPARE(r.state(), SessionState::Open);
        QVERIFY(!r.session->status().busy);
        QCOMPARE(r.camera.count("StartStream"), 0);
        QVERIFY(!r.events.contains(SessionEvent::ShowPanes));
    }

    void lostLinkOnAStartEndsTheSessionBeforeItsBox() {
        Rig r;
        r.camera.failNext("StartStream", NETWORK_ERROR);
        QVERIFY(!r.streamCamera());
        QCOMPARE(r.titles(), (QStringList{"设备断开", "网络错误"}));
        QCOMPARE(r.prompts[0].text, QString("设备已断开链接！"));
        QCOMPARE(r.state(), SessionState::Idle);
        QCOMPARE(r.logCount("start err"), 1);
        QVERIFY(r.session->status().devices.isEmpty());
        QVERIFY(!r.session->status().busy);
    }

    void callbackWhileNotStreamingIsOnlyLogged() {
        Rig r;
        QVERIFY(r.settle());
        QVERIFY(r.camera.fireLinkCallback("SN01", "heartbeat lost"));
        QVERIFY(r.settle());
        QCOMPARE(r.logCount("sdk callback:SN01heartbeat lost"), 1);
        QCOMPARE(r.logCount("try to reinit..."), 0);
        QCOMPARE(r.camera.count("ReconnectDevice"), 0);
    }

    // With an SDK whose frame reads fail at once after a loss, the workers
    // log a line per read while they run, through the same lock as the
    // callback's lines: they must be off before the callback logs.
    void workersStopBeforeTheCallbackLogs() {
        Rig r;
        QVERIFY(r.streamCamera());
        QVERIFY(r.camera.fireLinkCallback("SN01", "link down"));
        QVERIFY(r.settle());
        std::lock_guard<std::mutex> lock(r.logMutex);
        QCOMPARE(r.readingAtCallbackLine, (QVector<bool>{false, false}));
    }

    void lostLinkIsRecoveredOnceWithAttemptsCountedDown() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.clearCalls();
        r.camera.failNext("ReconnectDevice", NETWORK_ERROR);
        r.camera.failNext("ReconnectDevice", NETWORK_ERROR);
        std::thread sdk([&] {
            r.camera.fireLinkCallback("SN01", "link down");
            r.camera.fireLinkCallback("SN01", "link down");
        });
        sdk.join();
        QVERIFY(r.settle());
        QCOMPARE(r.logCount("sdk callback:SN01link down"), 2);
        QCOMPARE(r.logCount("try to reinit..."), 1);
        QCOMPARE(r.logCount("reconnect 29 code 33"), 1);
        QCOMPARE(r.logCount("reconnect 28 code 33"), 1);
        QCOMPARE(r.logCount("reconnect succeed"), 1);
        QCOMPARE(r.camera.commands(), (Names{"ReconnectDevice", "ReconnectDevice", "ReconnectDevice", "StartStream"}));
        const auto calls = r.camera.calls();
        QVERIFY(std::find(calls.begin(), calls.end(), std::string("ReconnectDevice 1000")) != calls.end());
        QCOMPARE(r.state(), SessionState::Streaming);
        QVERIFY(r.acquisition->streaming());
        QVERIFY(r.prompts.isEmpty());
    }

    void recoveryGivesUpAfterThirtyAttemptsInTheLogOnly() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.setResult("ReconnectDevice", NETWORK_ERROR);
        QVERIFY(r.camera.fireLinkCallback("SN01", "link down"));
        QVERIFY(r.settle());
        QCOMPARE(r.camera.count("ReconnectDevice"), CameraSession::kRecoveryAttempts);
        QCOMPARE(r.logCount("reconnect 0 code 33"), 1);
        QCOMPARE(r.logCount("reconnect err! please search once again!!!"), 1);
        const SessionStatus s = r.session->status();
        QCOMPARE(s.state, SessionState::Recovering);
        QVERIFY(s.recoveryFailed);
        QVERIFY(s.streamingFace());
        QVERIFY(r.prompts.isEmpty());
    }

    // The user presses stop while an attempt is under way and the attempt
    // then finds the camera: the stream must stay stopped.
    void stopDuringARecoveryAttemptWins() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.clearCalls();
        r.camera.holdNext("ReconnectDevice");
        QVERIFY(r.camera.fireLinkCallback("SN01", "link down"));
        QTRY_VERIFY(r.camera.waiting("ReconnectDevice"));
        r.session->stop();
        r.camera.release("ReconnectDevice");
        QVERIFY(r.settle());
        QCOMPARE(r.camera.count("StartStream"), 0);
        QCOMPARE(r.camera.commands(), (Names{"ReconnectDevice", "StopStream"}));
        QCOMPARE(r.state(), SessionState::Open);
        QVERIFY(!r.acquisition->streaming());
        QCOMPARE(r.logCount("reconnect succeed"), 0);
    }

    // Destroying the session while the SDK's thread keeps calling back: the
    // session unregisters on its way out and that waits for a call in flight,
    // so no call reaches it once it is gone (under AddressSanitizer a late
    // one would be a use after free).
    void callbackDuringDestructionNeverReachesAGoneSession() {
        auto r = std::make_unique<Rig>();
        QVERIFY(r->settle());
        FakeCamera& camera = r->camera;
        std::atomic<bool> stop{false};
        std::atomic<int> delivered{0};
        std::thread sdk([&] {
            while (!stop)
                if (camera.fireLinkCallback("SN01", "flapping")) ++delivered;
        });
        QTRY_VERIFY(delivered > 10);
        r->session.reset();
        QVERIFY(!camera.callbackRegistered());
        QVERIFY(!camera.fireLinkCallback("SN01", "after the end"));
        stop = true;
        sdk.join();
        QCOMPARE(r->logCount("after the end"), 0);
    }

    void scriptsRunTheirStepsInOrderAndJudgeEachResult() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.clearCalls();
        r.clearLog();
        r.camera.failNext("SetFrameRate", FAILED);
        r.camera.failNext("SetRgbCameraExposureMode", ReturnCode(0));
        CameraScript script;
        script.call(
            LogOrigin{"f", 1}, "set fps:7", [](CameraInterface& c) { return c.SetFrameRate(7); }, "err set fps:7");
        script.call(
            LogOrigin{"f", 2}, "set rgb AUTO_EXPOSURE",
            [](CameraInterface& c) { return c.SetRgbCameraExposureMode(AUTO_EXPOSURE); }, "err set rgb AUTO_EXPOSURE",
            ResultCheck::ZeroFails);
        script.call(
            LogOrigin{"f", 3}, QString(), [](CameraInterface& c) { return c.StopStream(); }, QString(),
            ResultCheck::Ignored);
        script.call(LogOrigin{"f", 4}, "set hdr:1", [](CameraInterface& c) { return c.SetHDR(true); }).when =
            StepWhen::NotStreaming;
        script
            .call(LogOrigin{"f", 5}, "set SingleIntegralModel",
                  [](CameraInterface& c) { return c.SetSingleIntegralMode(); })
            .onlyIf = [](const ScriptOutcome& o, std::size_t self) { return o.result(self - 2) == SUCCESS; };
        script.log(LogOrigin{"f", 6}, "done");
        ScriptOutcome outcome;
        script.onFinished(&r.context, [&](const ScriptOutcome& o) { outcome = o; });
        r.session->run(script);
        QVERIFY(r.settle());
        QCOMPARE(r.camera.commands(),
                 (Names{"SetFrameRate", "SetRgbCameraExposureMode", "StopStream", "SetSingleIntegralMode"}));
        QCOMPARE(r.logLines(),
                 (QStringList{"f 1 set fps:7", "f 1 err set fps:7", "f 2 set rgb AUTO_EXPOSURE",
                              "f 2 err set rgb AUTO_EXPOSURE", "f 5 set SingleIntegralModel", "f 6 done"}));
        QCOMPARE(r.titles(), QStringList{"状态异常"});
        QVERIFY(outcome.ran && outcome.failed && !outcome.ended);
        QCOMPARE(outcome.result(0), std::optional<ReturnCode>(FAILED));
        QCOMPARE(outcome.result(3), std::optional<ReturnCode>());
    }

    void aLostLinkEndsAScriptAndTheSession() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.clearCalls();
        r.camera.failNext("SetHDR", NETWORK_ERROR);
        CameraScript script;
        script.call(
            LOG_HERE, "set hdr:1", [](CameraInterface& c) { return c.SetHDR(true); }, "err set hdr:1");
        script.call(LOG_HERE, "set fps:5", [](CameraInterface& c) { return c.SetFrameRate(5); });
        ScriptOutcome outcome;
        script.onFinished(&r.context, [&](const ScriptOutcome& o) { outcome = o; });
        r.session->run(script);
        QVERIFY(r.settle());
        QCOMPARE(r.camera.commands(), Names{"SetHDR"});
        QVERIFY(outcome.ended && outcome.sessionLost);
        QCOMPARE(r.titles(), (QStringList{"设备断开", "网络错误"}));
        QCOMPARE(r.state(), SessionState::Idle);
        QCOMPARE(r.logCount("err set hdr:1"), 1);
    }

    void aStreamStoppedForAModeChangeIdlesTheWorkersUntilItRestarts() {
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.holdNext("SetHDR");
        CameraScript script;
        script
            .call(
                LOG_HERE, QString(), [](CameraInterface& c) { return c.StopStream(); }, QString(), ResultCheck::Ignored)
            .stream = StreamEffect::Stop;
        script.call(LOG_HERE, "set hdr:1", [](CameraInterface& c) { return c.SetHDR(true); });
        script.call(LOG_HERE, QString(), [](CameraInterface& c) { return c.StartStream(); }).stream =
            StreamEffect::Start;
        r.session->run(script);
        QTRY_VERIFY(r.camera.waiting("SetHDR"));
        QVERIFY(!r.acquisition->streaming());
        QCOMPARE(r.session->status().state, SessionState::Streaming);
        r.camera.release("SetHDR");
        QVERIFY(r.settle());
        QVERIFY(r.acquisition->streaming());

        // A script for a streaming camera does nothing once it is stopped.
        r.session->stop();
        QVERIFY(r.settle());
        r.camera.clearCalls();
        CameraScript onlyStreaming;
        onlyStreaming.whileStreaming();
        onlyStreaming.call(LOG_HERE, QString(),
                           [](CameraInterface& c) { return c.SetTriggerMode(TRIGGER_MODE_SOFTWARE); });
        ScriptOutcome outcome;
        outcome.ran = true;
        onlyStreaming.onFinished(&r.context, [&](const ScriptOutcome& o) { outcome = o; });
        r.session->run(onlyStreaming);
        QVERIFY(r.settle());
        QVERIFY(r.camera.commands().empty());
        QVERIFY(!outcome.ran);
    }

    void closingStopsAndWaitsOrKeepsTheWindow_data() {
        QTest::addColumn<int>("stopResult");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("stopped cleanly") << int(SUCCESS) << true;
        QTest::newRow("link already lost") << int(NETWORK_ERROR) << true;
        QTest::newRow("stop failed") << int(FAILED) << false;
    }
    void closingStopsAndWaitsOrKeepsTheWindow() {
        QFETCH(int, stopResult);
        QFETCH(bool, accepted);
        Rig r;
        QVERIFY(r.streamCamera());
        r.camera.clearCalls();
        r.camera.failNext("StopStream", ReturnCode(stopResult));
        QSignalSpy finished(r.session.get(), &CameraSession::closeFinished);
        r.session->closeSession();
        QVERIFY(r.settle());
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished[0][0].toBool(), accepted);
        QCOMPARE(r.camera.commands(), (Names{"StopStream", "DisconnectFromDevice"}));
    }
};

QTEST_GUILESS_MAIN(CameraSessionTest)
#include "camerasession_test.moc"
