// The camera session through the real window and SDK: search, start/stop,
// disconnect, device change, link loss and recovery, result 33 and the
// transport choice. Cameras: model 3 (colour) and model 1 (no colour).
#include <QAction>
#include <QCheckBox>
#include <QRadioButton>
#include <QtTest>

#include "controlpanel.h"
#include "e2esupport.h"
#include "tcporudp.h"

namespace {

constexpr int kRgbCam = 0;
constexpr int kPlainCam = 1;

QAction* menuAction(Widget& w, const QString& text) {
    for (QAction* a : w.findChildren<QAction*>())
        if (a->text() == text) return a;
    return nullptr;
}

}  // namespace

class SessionE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.90.2", 48790, {'3', '1'}, 3000, 300, 0}};

    bool shown(const char* name) {
        QWidget* w = s.child(name);
        return w && w->isVisibleTo(&s.window());
    }
    // The state-table columns: connected, streaming, search, start (text), disconnect.
    void expectState(bool connected, bool streaming, bool search, bool start, const QString& startText,
                     bool disconnect) {
        QCOMPARE(s.connected(), connected);
        QCOMPARE(s.streaming(), streaming);
        QCOMPARE(s.button("pushButton")->isEnabled(), search);
        QCOMPARE(s.button("pushButton_2")->isEnabled(), start);
        QCOMPARE(s.button("pushButton_2")->text(), startText);
        QCOMPARE(s.button("pushButton_6")->isEnabled(), disconnect);
    }
    // How many times camera i received the named command.
    int countOf(int i, const std::string& name) {
        const auto names = s.commandNames(i);
        return int(std::count(names.begin(), names.end(), name));
    }
    std::string lastOpenArgs(int i) {
        std::string args;
        for (const auto& c : s.camera(i).camera().commandLog())
            if (c.name == "OpenSession") args = c.args;
        return args;
    }

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kRgbCam));
        QVERIFY(s.ensureUp(kPlainCam));
        s.openWindow();
        QVERIFY(s.settle());
        s.clearCommandLogs();
    }
    void cleanup() { s.closeWindow(); }

    void searchListsBothCameras() {
        expectState(false, false, true, false, "开始", false);
        QVERIFY(s.search(2));
        QVERIFY(s.rowOf(kRgbCam) >= 0);
        QVERIFY(s.rowOf(kPlainCam) >= 0);
        QCOMPARE(s.labelText("label_statusBar"), QString("已搜索到设备"));
        expectState(false, false, true, true, "开始", false);
        QVERIFY(s.prompts().requests.isEmpty());
    }

    void searchWithoutCamerasShowsPromptAndStartSendsNothing() {
        s.kill(kRgbCam);
        s.kill(kPlainCam);
        QVERIFY(s.search(0));
        QCOMPARE(s.promptTitles(), QStringList{"提示"});
        QCOMPARE(s.promptTexts(), QStringList{"未找到设备"});
        QCOMPARE(s.labelText("label_statusBar"), QString(" 等待搜索..."));
        expectState(false, false, true, false, "开始", false);

        // The button is disabled; the session itself still refuses an empty list.
        QVERIFY(s.ensureUp(kRgbCam));
        QVERIFY(s.ensureUp(kPlainCam));
        s.clearCommandLogs();
        s.session().start(0);
        QVERIFY(s.settle());
        QCOMPARE(s.promptTexts().last(), QString("请选中设备后再开始！"));
        QCOMPARE(s.promptTitles().last(), QString("提示"));
        QCOMPARE(s.commandCount(), size_t(0));
        expectState(false, false, true, false, "开始", false);
    }

    void startColourModelShowsColourPaneAndFillsLabels() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kRgbCam));
        expectState(true, true, false, true, "停止", true);
        QVERIFY(s.prompts().requests.isEmpty());
        QVERIFY(shown("widget_RGB"));
        QVERIFY(shown("checkBox_rgb2dep"));
        QVERIFY(s.child<QCheckBox>("checkBoxRgb")->isChecked());
        for (const char* pane : {"widget_DEP", "widget_IR", "widget_CP"}) QVERIFY2(shown(pane), pane);
        QVERIFY(shown("comboBox_mode"));
        QVERIFY(shown("pushButton_set_time"));
        QCOMPARE(s.labelText("label_Model"), QString(": KX-120RGB"));
        QCOMPARE(s.labelText("label_SN"), ": " + QString::fromStdString(s.camera(kRgbCam).serial()));
        QCOMPARE(s.labelText("label_IP"), QString(": 127.0.90.2"));
        QVERIFY(s.labelText("label_FW").size() > 2);
        QVERIFY(s.labelText("label_DV").size() > 2);
        QCOMPARE(countOf(kRgbCam, "StartStream"), 1);
        QCOMPARE(countOf(kPlainCam, "OpenSession"), 0);
        QVERIFY(s.logCount("ready start") == 1);
        QVERIFY(s.logCount("GetTofCameraIntrinsicParam fx:") == 1);
    }

    void startPlainModelHidesColourPane() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kPlainCam));
        expectState(true, true, false, true, "停止", true);
        QVERIFY(!shown("widget_RGB"));
        QVERIFY(!shown("checkBox_rgb2dep"));
        QVERIFY(!s.child<QCheckBox>("checkBoxRgb")->isChecked());
        QVERIFY(shown("widget_DEP"));
        // Model 1 takes trigger modes.
        QVERIFY(shown("comboBox_mode"));
        QCOMPARE(s.labelText("label_Model"), QString(": KX-120"));
        QCOMPARE(s.labelText("label_IP"), QString(": 127.0.90.3"));
        QCOMPARE(countOf(kPlainCam, "StartStream"), 1);
        QCOMPARE(countOf(kRgbCam, "OpenSession"), 0);
    }

    void stopThenStartAgainFollowsTheStateTable() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kPlainCam));
        QVERIFY(s.stop());
        expectState(true, false, false, true, "开始", true);
        QCOMPARE(s.labelText("label_ir_fps"), QString("0fps"));
        QCOMPARE(countOf(kPlainCam, "StopStream"), 1);
        QVERIFY(!s.camera(kPlainCam).camera().streaming());
        QVERIFY(s.prompts().requests.isEmpty());

        // The stopped session is still open; starting again streams again,
        // with the calls of a start and nothing more: the SDK keeps the
        // session it has to this camera.
        QVERIFY(s.click("pushButton_2"));
        QVERIFY(s.settle());
        expectState(true, true, false, true, "停止", true);
        QVERIFY2(s.prompts().requests.isEmpty(), qPrintable(s.promptTexts().join('|')));
        QCOMPARE(countOf(kPlainCam, "StartStream"), 2);
        QCOMPARE(countOf(kPlainCam, "OpenSession"), 1);
        QCOMPARE(countOf(kPlainCam, "CloseSession"), 0);
        QVERIFY(s.camera(kPlainCam).camera().streaming());
    }

    void disconnectWhileStreamingReturnsToIdle() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kRgbCam));
        QVERIFY(s.click("pushButton_6"));
        QVERIFY(s.settle());
        expectState(false, false, true, false, "开始", false);
        QCOMPARE(s.combo()->count(), 0);
        QVERIFY(s.labelText("label_SN").isEmpty());
        QVERIFY(!shown("widget_DEP"));
        QVERIFY(e2e::waitFor([&] { return countOf(kRgbCam, "CloseSession") == 1; }));
        QCOMPARE(countOf(kRgbCam, "StopStream"), 1);
        QVERIFY(s.prompts().requests.isEmpty());
        // A new search lists both again and the same camera starts again.
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kRgbCam));
    }

    void deviceChangeStopsAndLetsTheOtherCameraStart() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kRgbCam));
        s.combo()->setCurrentIndex(s.rowOf(kPlainCam));
        QVERIFY(s.settle());
        // Listed again: the list is kept, the new choice can start at once.
        expectState(false, false, true, true, "开始", false);
        QCOMPARE(s.combo()->count(), 2);
        QCOMPARE(s.labelText("label_statusBar"), QString("已搜索到设备"));
        QVERIFY(!shown("widget_DEP"));
        QVERIFY(e2e::waitFor([&] { return countOf(kRgbCam, "CloseSession") == 1; }));
        QCOMPARE(countOf(kRgbCam, "StopStream"), 1);

        QVERIFY(s.click("pushButton_2"));
        QVERIFY(s.settle());
        QVERIFY(s.streaming());
        QCOMPARE(s.labelText("label_Model"), QString(": KX-120"));
        QCOMPARE(countOf(kPlainCam, "StartStream"), 1);
        QVERIFY(s.prompts().requests.isEmpty());
    }

    void searchWhileStreamingStopsFirstEvenWhenTheStopFails() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kRgbCam));
        // The search button is disabled while streaming; the session's search
        // is what other paths (and a future shortcut) run.
        s.session().search();
        QVERIFY(s.settle());
        QCOMPARE(countOf(kRgbCam, "StopStream"), 1);
        QCOMPARE(s.combo()->count(), 2);
        QVERIFY(!s.streaming());
        QCOMPARE(s.button("pushButton_2")->text(), QString("开始"));

        QVERIFY(s.startCamera(kRgbCam));
        s.camera(kRgbCam).camera().failNext("StopStream", 3);
        s.session().search();
        QVERIFY(s.settle());
        QCOMPARE(countOf(kRgbCam, "StopStream"), 2);
        QCOMPARE(s.combo()->count(), 2);
        QVERIFY(s.button("pushButton")->isEnabled());
        QVERIFY(s.prompts().requests.isEmpty());
    }

    void lostCameraIsReconnectedWhenItReturns() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kPlainCam));
        // Counted on this thread: the worker emits, the count is queued here.
        int irFrames = 0;
        QObject counter;
        connect(
            &s.window().acquisition(), &Acquisition::paintIR, &counter, [&] { ++irFrames; }, Qt::QueuedConnection);
        QVERIFY(e2e::waitFor([&] { return irFrames > 2; }));
        QVERIFY(e2e::waitFor([&] {
            const QString fps = s.labelText("label_ir_fps");
            return !fps.isEmpty() && fps != "0fps";
        }));
        s.kill(kPlainCam);
        QVERIFY(s.waitForLog("sdk callback:"));
        QVERIFY(s.waitForLog("try to reinit..."));
        QVERIFY(s.waitForLog("reconnect 29"));
        QVERIFY(s.waitForLog("reconnect 28"));
        // The window keeps its streaming face while recovery runs.
        QCOMPARE(s.button("pushButton_2")->text(), QString("停止"));
        QVERIFY(s.recovering());

        s.clearCommandLogs();
        QVERIFY(s.ensureUp(kPlainCam));
        QVERIFY(s.waitForLog("reconnect succeed"));
        QVERIFY(e2e::waitFor([&] { return s.streaming(); }));
        QVERIFY(e2e::waitFor([&] { return s.camera(kPlainCam).camera().streaming(); }));
        QCOMPARE(s.logCount("reconnect succeed"), 1);
        // Frames flow into the panes again.
        irFrames = 0;
        QVERIFY(e2e::waitFor([&] { return irFrames > 2; }));
        QVERIFY(!s.recovering());
        QVERIFY(s.prompts().requests.isEmpty());
        // A later stop is an ordinary stop.
        QVERIFY(s.stop());
        QVERIFY(e2e::waitFor([&] { return !s.camera(kPlainCam).camera().streaming(); }));
    }

    void stopDuringRecoveryEndsTheAttempts() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kPlainCam));
        s.kill(kPlainCam);
        QVERIFY(s.waitForLog("reconnect 29"));
        QVERIFY(s.click("pushButton_2"));
        QVERIFY(s.ensureUp(kPlainCam));
        // The attempt under way when stop was pressed may still find the
        // camera; it must leave the stream stopped, and none follows.
        QVERIFY(s.settle());
        QCOMPARE(s.button("pushButton_2")->text(), QString("开始"));
        QCOMPARE(s.logCount("reconnect succeed"), 0);
        QVERIFY(s.prompts().requests.isEmpty());
        QVERIFY(!s.streaming());
        QVERIFY(!s.camera(kPlainCam).camera().streaming());
    }

    void networkErrorFromACheckedCallEndsTheSession() {
        QVERIFY(s.search(2));
        s.camera(kRgbCam).camera().failNext("StartStream", 33);
        QVERIFY(!s.startCamera(kRgbCam));
        QCOMPARE(s.promptTitles(), (QStringList{"设备断开", "网络错误"}));
        QCOMPARE(s.promptTexts().first(), QString("设备已断开链接！"));
        QVERIFY(s.promptTexts().last().startsWith("错误信息："));
        QVERIFY(s.logCount("start err") == 1);
        expectState(false, false, true, false, "开始", false);
        QCOMPARE(s.combo()->count(), 0);
    }

    void timedServiceShowsTheExposureOnlyUnderAutoExposure() {
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kPlainCam));
        // The start's read-back has read the exposure once already.
        const int atStart = countOf(kPlainCam, "GetTofExposureTime");
        QVERIFY(QMetaObject::invokeMethod(s.window().controlPanel(), "timedService"));
        // Manual exposure: the ticks read nothing (two ticks waited for on a
        // timer of the same period, not on the clock).
        int ticks = 0;
        QTimer tick;
        connect(&tick, &QTimer::timeout, [&] { ++ticks; });
        tick.start(1000);
        QVERIFY(e2e::waitFor([&] { return ticks >= 2; }));
        QVERIFY(s.settle());
        QCOMPARE(countOf(kPlainCam, "GetTofExposureTime"), atStart);
        {
            const QSignalBlocker quiet(s.child<QRadioButton>("radioButton_auto"));
            s.child<QRadioButton>("radioButton_auto")->setChecked(true);
        }
        QVERIFY(e2e::waitFor([&] { return countOf(kPlainCam, "GetTofExposureTime") >= atStart + 2; }));
        QVERIFY(s.stop());
        const int reads = countOf(kPlainCam, "GetTofExposureTime");
        ticks = 0;
        QVERIFY(e2e::waitFor([&] { return ticks >= 2; }));
        QVERIFY(s.settle());
        QCOMPARE(countOf(kPlainCam, "GetTofExposureTime"), reads);
        QVERIFY(s.prompts().requests.isEmpty());
    }

    void transportChoiceReachesTheNextStart() {
        TcpORudp* dialog = s.window().transportDialog();
        QVERIFY(dialog);
        QAction* menu = menuAction(s.window(), "切换网络协议");
        QVERIFY(menu);
        menu->trigger();
        QVERIFY(dialog->isVisible());
        QCOMPARE(dialog->windowTitle(), QString("net"));
        dialog->findChild<QRadioButton*>("radioButton_2")->click();
        QVERIFY(!s.session().tcpTransport());
        dialog->hide();

        QVERIFY(s.search(2));
        s.combo()->setCurrentIndex(s.rowOf(kPlainCam));
        QVERIFY(s.click("pushButton_2"));
        QVERIFY(s.settle());
        // Whether or not the SDK streams over UDP, the camera never sees TCP.
        const std::string udpOpen = lastOpenArgs(kPlainCam);
        QVERIFY2(udpOpen.empty() || udpOpen.find("udp") != std::string::npos, udpOpen.c_str());
        if (!s.streaming()) QCOMPARE(s.promptTitles().size(), 1);
        // Back to a fresh list: disconnect, then search.
        QVERIFY(s.click("pushButton_6"));
        QVERIFY(s.settle());

        menu->trigger();
        dialog->findChild<QRadioButton*>("radioButton")->click();
        QVERIFY(s.session().tcpTransport());
        dialog->hide();
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kPlainCam));
        QVERIFY(lastOpenArgs(kPlainCam).find("tcp") != std::string::npos);

        // While streaming the dialog is refused.
        const int before = s.prompts().requests.size();
        menu->trigger();
        QVERIFY(!dialog->isVisible());
        QCOMPARE(s.prompts().requests.size(), before + 1);
        QCOMPARE(s.promptTitles().last(), QString("警告"));
        QCOMPARE(s.promptTexts().last(), QString("请先停止设备数据输出！"));
    }
};

QTEST_MAIN(SessionE2eTest)
#include "session_e2e_test.moc"
