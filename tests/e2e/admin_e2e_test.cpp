// Camera administration through the real window and SDK against simulated
// cameras: moving a camera to another address from the network dialog (and
// finding it there), and the firmware command's checks, progress and
// outcomes. Stand-in tools (shell scripts in the working folder) give the
// firmware command every way a tool can end.
#include <sys/stat.h>

#include <QCheckBox>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProgressDialog>
#include <QPushButton>
#include <QSpinBox>
#include <QStandardPaths>
#include <QtTest>

#include "admincommands.h"
#include "d3_protocol/Firmware.h"
#include "e2esupport.h"
#include "netsetting.h"

namespace {
constexpr int kColour = 0;  // model 3
constexpr int kPlain = 1;   // model 1
}  // namespace

class AdminE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.140.2", 48840, {'3', '1'}}};

    AdminCommands* admin() { return s.window().adminCommands(); }
    netSetting* dialog() { return s.window().networkDialog(); }
    QStringList boxes() { return s.boxes(); }
    QJsonObject lastArgs(int cam, const std::string& name) {
        const auto log = s.camera(cam).camera().commandLog();
        for (auto it = log.rbegin(); it != log.rend(); ++it)
            if (it->name == name) return QJsonDocument::fromJson(QByteArray::fromStdString(it->args)).object();
        return {};
    }

    // Types an address into the dialog (and ticks DHCP or not) and presses
    // its update button, as a user would; waits for the handler's last box.
    bool sendAddress(const QString& address, bool dhcp = false) {
        dialog()->show();
        const QStringList octets = address.split('.');
        const char* names[] = {"spinBox", "spinBox_2", "spinBox_3", "spinBox_4"};
        for (int i = 0; i < 4; ++i) dialog()->findChild<QSpinBox*>(names[i])->setValue(octets.value(i).toInt());
        dialog()->findChild<QCheckBox*>("checkBox")->setChecked(dhcp);
        QSignalSpy finished(admin(), &AdminCommands::networkFinished);
        dialog()->findChild<QPushButton*>("pushButton")->click();
        return e2e::waitFor([&] { return finished.count() > 0; }) && s.settle();
    }
    // What camera i was asked to do (heartbeats, and the end of a session
    // the camera records itself, left out).
    std::vector<std::string> calls(int cam) {
        std::vector<std::string> out;
        for (const std::string& n : s.commandNames(cam))
            if (n != "Heartbeat" && n != "SessionEnded") out.push_back(n);
        return out;
    }
    bool startAndStop(int cam) {
        if (!s.startCamera(cam) || !s.stop()) return false;
        s.prompts().requests.clear();
        s.clearCommandLogs();
        return true;
    }

    // A stand-in tool where the window looks for the real one.
    void installTool(const QByteArray& body) {
        QFile f(s.workDir() + "/firmwareUpdateTool-v1.0.3");
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write("#!/bin/sh\n" + body);
        f.close();
        QVERIFY(f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    // The real tool, where the window looks for it.
    void installRealTool() {
        const QString link = s.workDir() + "/firmwareUpdateTool-v1.0.3";
        QFile::remove(link);
        QVERIFY(QFile::link(FIRMWARE_TOOL, link));
    }
    // An image file for `model` carrying `version`; `damage` flips one payload byte.
    QString makeImage(const std::string& version, char model, bool damage = false) {
        std::vector<uint8_t> bytes;
        std::string error;
        if (!d3proto::makeFirmwareImage(version, model, 64 * 1024, bytes, error)) return QString();
        if (damage) bytes[bytes.size() / 2] ^= 0x5a;
        const QString path = s.workDir() + "/fw-" + QString::fromStdString(version) + (damage ? "-bad" : "") + ".bin";
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly)) return QString();
        f.write(reinterpret_cast<const char*>(bytes.data()), qint64(bytes.size()));
        return path;
    }
    QString firmwareOf(int cam) {
        return QString::fromStdString(s.camera(cam).camera().deviceInfo(0, 0).firmwareVersion);
    }
    // DEXALON_SHOTS=<folder> keeps pictures of the new dialogs.
    void shoot(QWidget* w, const char* name) {
        const QString shots = qEnvironmentVariable("DEXALON_SHOTS");
        if (shots.isEmpty()) return;
        QCoreApplication::processEvents();
        QVERIFY(w->grab().save(shots + "/" + name, "PNG"));
    }
    // Chooses `image` in the file dialog and waits for the command's end.
    bool runFirmwareCommand(const QString& image = "/tmp/new-firmware.bin") {
        s.prompts().pathAnswer = image;
        QSignalSpy finished(admin(), &AdminCommands::firmwareFinished);
        admin()->updateFirmware();
        return e2e::waitFor([&] { return finished.count() > 0; }) && s.settle();
    }

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kColour) && s.ensureUp(kPlain));
        s.openWindow();
        QFile::remove(s.workDir() + "/firmwareUpdateTool-v1.0.3");
    }
    void cleanup() { s.closeWindow(); }

    void addressUpdateNeedsACameraThatRanAndIsStopped() {
        const QString runFirst = QString::fromUtf8("警告|请在器件运行过后使用此功能！");
        const QString stopFirst = QString::fromUtf8("警告|请先停止设备数据输出！");
        QVERIFY(s.search(2));
        QVERIFY(sendAddress("127.0.140.20"));
        QVERIFY(s.startCamera(kColour));
        QVERIFY(sendAddress("127.0.140.20"));
        QCOMPARE(boxes(), (QStringList{runFirst, stopFirst}));
        QVERIFY(dialog()->isHidden());
        QVERIFY(!s.received(kColour, "SetNetworkMode") && !s.received(kPlain, "SetNetworkMode"));
        // Each attempt still says what it would have sent, without a function name.
        QCOMPARE(
            s.logLines().filter(QRegularExpression("^ \\d+ set ip :127\\.0\\.140\\.20 255\\.255\\.255\\.0 1$")).size(),
            2);
    }

    // The camera takes the new address when it restarts; the viewer drops
    // its entry at once, notices the lost link, and the next search finds
    // the camera where it went.
    void movedCameraIsFoundAtItsNewAddress() {
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kPlain));
        const QString oldEntry = QString::fromStdString(s.camera(kPlain).deviceString());
        const auto rebootsBefore = s.camera(kPlain).stats().reboots;
        QVERIFY(sendAddress("127.0.140.9"));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("更新成功|IP更新成功，请断开链接重新搜索设备！")});
        QVERIFY(dialog()->isHidden());
        const QJsonObject sent = lastArgs(kPlain, "SetNetworkMode");
        QCOMPARE(sent.value("ip").toString(), QString("127.0.140.9"));
        QCOMPARE(sent.value("netmask").toString(), QString("255.255.255.0"));
        QCOMPARE(sent.value("dhcp").toBool(), false);
        QCOMPARE(s.combo()->count(), 1);
        QVERIFY(s.combo()->findText(oldEntry) < 0);
        // Nothing else was sent to either camera.
        QCOMPARE(calls(kPlain), std::vector<std::string>{"SetNetworkMode"});
        QVERIFY(calls(kColour).empty());

        QVERIFY(e2e::waitFor([&] { return s.camera(kPlain).stats().reboots > rebootsBefore; }));
        QVERIFY(s.waitForLog("sdk callback:"));
        QVERIFY(s.ensureUp(kPlain));
        QCOMPARE(QString::fromStdString(s.camera(kPlain).address()), QString("127.0.140.9"));
        QVERIFY(s.click("pushButton_6"));
        QVERIFY(s.settle());
        QVERIFY(s.search(2));
        QVERIFY(s.combo()->findText(QString::fromStdString(s.camera(kPlain).deviceString())) >= 0);
        QVERIFY(s.combo()->findText(oldEntry) < 0);
        QVERIFY(s.startCamera(kPlain));
        QCOMPARE(s.labelText("label_IP"), QString(": 127.0.140.9"));

        // And back, so the other tests find it where they expect it.
        QVERIFY(s.stop());
        QVERIFY(sendAddress("127.0.140.3"));
        QVERIFY(e2e::waitFor([&] { return s.camera(kPlain).address() == "127.0.140.3"; }));
        QVERIFY(s.ensureUp(kPlain));
    }

    // DHCP still carries the typed address; the simulated camera keeps the
    // address it has.
    void dhcpSendsTheTypedAddressAndTheCameraStays() {
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kColour));
        const std::string address = s.camera(kColour).address();
        QVERIFY(sendAddress("10.1.2.3", true));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("更新成功|IP更新成功，请断开链接重新搜索设备！")});
        const QJsonObject sent = lastArgs(kColour, "SetNetworkMode");
        QCOMPARE(sent.value("ip").toString(), QString("10.1.2.3"));
        QCOMPARE(sent.value("dhcp").toBool(), true);
        QVERIFY(s.logCount(" set ip :10.1.2.3 255.255.255.0 0") == 1);
        QVERIFY(s.waitForLog("sdk callback:"));
        QVERIFY(s.ensureUp(kColour));
        QCOMPARE(s.camera(kColour).address(), address);
    }

    void aRefusedAddressKeepsTheListAndSaysWhy() {
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kColour));
        s.camera(kColour).camera().failNext("SetNetworkMode", INVALID_PARAMETER);
        QVERIFY(sendAddress("127.0.140.30"));
        const QString reason =
            QString::fromLocal8Bit(DeviceManager::GetInstance().GetReturnCodeDescriptor(INVALID_PARAMETER).c_str());
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("更新失败|IP更新失败：") + reason});
        QVERIFY(dialog()->isHidden());
        QCOMPARE(s.combo()->count(), 2);
        // The session goes on.
        QVERIFY(s.click("pushButton_2"));
        QVERIFY(e2e::waitFor([&] { return s.streaming(); }));
    }

    void firmwareNeedsAChosenStoppedCamera() {
        // Nothing listed: connect first.
        QVERIFY(runFirmwareCommand());
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kColour));
        QVERIFY(runFirmwareCommand());
        QCOMPARE(boxes(), (QStringList{QString::fromUtf8("提示|请连接器件后使用更新功能！"),
                                       QString::fromUtf8("更新失败|请在器件停止运行时使用更新功能！")}));
        // No file was asked for.
        QCOMPARE(s.prompts().requests.size(), 2);
    }

    void firmwareToolRunsWithTheListEntryAndItsProgressShows() {
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kColour));
        const QString entry = QString::fromStdString(s.camera(kColour).deviceString());
        const QString go = s.workDir() + "/go";
        QVERIFY(::mkfifo(QFile::encodeName(go).constData(), 0600) == 0);
        // The tool reports halfway, then waits for the test's word before it succeeds.
        installTool("echo \"$*\" > args.txt\necho 'sending 40% (4/10 bytes)'\nread word < '" + go.toLocal8Bit() +
                    "'\necho 'camera back with firmware 9.9.9'\necho 'update successed!'\n");
        s.prompts().pathAnswer = "/tmp/fw image.bin";
        QSignalSpy finished(admin(), &AdminCommands::firmwareFinished);
        admin()->updateFirmware();
        QCOMPARE(s.prompts().requests.size(), 1);
        QCOMPARE(int(s.prompts().requests[0].kind), int(UiPrompt::Kind::OpenFileName));
        QCOMPARE(s.prompts().requests[0].title, QString::fromUtf8("选择升级文件"));
        QCOMPARE(s.prompts().requests[0].text, QStandardPaths::writableLocation(QStandardPaths::DesktopLocation));

        QVERIFY(e2e::waitFor([&] { return admin()->progressDialog() && admin()->progressDialog()->value() == 40; }));
        QProgressDialog* progress = admin()->progressDialog();
        QVERIFY(progress->isVisible() && progress->isModal());
        QCOMPARE(progress->windowTitle(), QString::fromUtf8("设备网络更新"));
        QVERIFY(progress->labelText().contains("sending 40% (4/10 bytes)"));
        shoot(progress, "firmware-progress.png");
        {
            QFile word(go);
            QVERIFY(word.open(QIODevice::WriteOnly));
            word.write("go\n");
        }
        QVERIFY(e2e::waitFor([&] { return finished.count() > 0; }));
        QVERIFY(s.settle());
        QVERIFY(!admin()->progressDialog());

        QFile args(s.workDir() + "/args.txt");
        QVERIFY(args.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromLocal8Bit(args.readAll()).trimmed(),
                 "-f /tmp/fw image.bin -h " + entry + " -p qm-tbrwkex -e -w -r");
        QCOMPARE(boxes().last(), QString::fromUtf8("更新完成|请等待设备绿灯亮起后重新开始"));
        for (const char* label : {"label_IP", "label_SN", "label_FW", "label_Model", "label_DV"})
            QVERIFY2(s.labelText(label).isEmpty(), label);
        QCOMPARE(s.labelText("label_statusBar"), QString::fromUtf8(" 等待搜索..."));
        // The session itself is left open; a search brings the list back.
        QVERIFY(s.connected());
        QVERIFY(s.click("pushButton_6"));
        QVERIFY(s.settle());
        QVERIFY(s.search(2));
        QCOMPARE(s.labelText("label_statusBar"), QString::fromUtf8("已搜索到设备"));
    }

    // A missing tool, one that fails and one that hangs: no box, one line
    // each in the log window, and the window stays as it was.
    void failedUpdatesShowNoBoxAndLogWhy() {
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kColour));
        const QString serial = s.labelText("label_SN");
        QVERIFY(runFirmwareCommand());
        QVERIFY(s.waitForLog("did not start"));

        installTool(
            "echo 'sending 100%'\necho 'Update successed!'\necho 'camera refused the image: wrong model' >&2\n"
            "exit 6\n");
        QVERIFY(runFirmwareCommand());
        QVERIFY(s.waitForLog("ended with code 6 without reporting success: camera refused the image: wrong model"));

        // It waits for input that never comes.
        installTool("echo 'sending 1%'\nexec cat\n");
        FirmwareToolTiming quick;
        quick.finishMs = 400;
        admin()->setFirmwareTiming(quick);
        QVERIFY(runFirmwareCommand());
        QVERIFY(s.waitForLog("did not finish within 0.4 s and was stopped"));

        QVERIFY(boxes().isEmpty());
        QCOMPARE(s.labelText("label_statusBar"), QString::fromUtf8("已搜索到设备"));
        QCOMPARE(s.labelText("label_SN"), serial);
        // A cancelled file dialog ends the command without a word.
        const int lines = s.logLines().size();
        QVERIFY(runFirmwareCommand(QString()));
        QCOMPARE(s.logLines().size(), lines);
    }

    // The whole update with the real tool: progress shows, the camera comes
    // back with the new version, and "FW" says so after a new search.
    void realToolUpdatesTheFirmwareShownAfterTheNextSearch() {
        installRealTool();
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kColour));
        QCOMPARE(s.labelText("label_FW"), QString(": 1.4.2"));
        const QString image = makeImage("1.5.0", '3');
        QVERIFY(!image.isEmpty());
        s.prompts().pathAnswer = image;
        QSignalSpy finished(admin(), &AdminCommands::firmwareFinished);
        admin()->updateFirmware();
        QVERIFY(admin()->progressDialog());
        QStringList lines;
        int highest = 0;
        connect(admin(), &AdminCommands::firmwareOutput, this, [&](const QString& line) {
            lines << line;
            if (admin()->progressDialog()) highest = std::max(highest, admin()->progressDialog()->value());
        });
        QVERIFY(e2e::waitFor([&] { return finished.count() > 0; }, 40000));
        QVERIFY(s.settle());
        QVERIFY2(lines.filter("%").size() >= 3, qPrintable(lines.join('\n')));
        QVERIFY(highest > 0);
        QVERIFY(lines.contains("update successed!"));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("更新完成|请等待设备绿灯亮起后重新开始")});
        QCOMPARE(firmwareOf(kColour), QString("1.5.0"));
        QVERIFY(s.labelText("label_FW").isEmpty());
        // The camera restarted under the open session: its lost link is logged.
        QVERIFY(s.waitForLog("sdk callback:"));

        QVERIFY(s.click("pushButton_6"));
        QVERIFY(s.settle());
        QVERIFY(s.search(2));
        QVERIFY(s.startCamera(kColour));
        QCOMPARE(s.labelText("label_FW"), QString(": 1.5.0"));
    }

    // What the camera or the tool refuses ends without the success box, with
    // the tool's reason in the log window, and the camera keeps its firmware.
    void refusedImagesLeaveTheFirmware_data() {
        QTest::addColumn<QString>("fault");
        QTest::newRow("wrong access word") << "word";
        QTest::newRow("corrupt image") << "corrupt";
        QTest::newRow("image for another model") << "model";
    }
    void refusedImagesLeaveTheFirmware() {
        QFETCH(QString, fault);
        installRealTool();
        QVERIFY(s.search(2));
        QVERIFY(startAndStop(kPlain));
        const QString before = firmwareOf(kPlain);
        if (fault == "word") s.camera(kPlain).setAccessWord("another-word");
        const QString image = fault == "corrupt" ? makeImage("2.0.0", '1', true)
                              : fault == "model" ? makeImage("2.0.0", '3')
                                                 : makeImage("2.0.0", '1');
        QVERIFY(runFirmwareCommand(image));
        s.camera(kPlain).setAccessWord("qm-tbrwkex");
        QVERIFY(boxes().isEmpty());
        QCOMPARE(s.logCount("without reporting success"), 1);
        const QString line = s.logLines().filter("without reporting success").first();
        const QString reason = fault == "word" ? "access word" : fault == "corrupt" ? "checksum" : "model";
        QVERIFY2(line.contains(reason, Qt::CaseInsensitive), qPrintable(line));
        QCOMPARE(firmwareOf(kPlain), before);
        QVERIFY(!s.labelText("label_SN").isEmpty());
    }

    void newTextsAreTranslated() {
        dialog()->show();
        shoot(dialog(), "network-dialog.png");
        s.window().switchLanguage(1);
        shoot(dialog(), "network-dialog-en.png");
        QCOMPARE(dialog()->windowTitle(), QString("Device Network Settings"));
        QCOMPARE(dialog()->findChild<QPushButton*>("pushButton")->text(), QString("Update"));
        QVERIFY(runFirmwareCommand());
        QVERIFY(sendAddress("127.0.140.40"));
        QCOMPARE(boxes(), (QStringList{"Prompt|Please use the update function after connecting the device!",
                                       "Warning|Please use this function after the device is running!"}));
        s.window().switchLanguage(0);
        QCOMPARE(dialog()->windowTitle(), QString::fromUtf8("设备网络设置"));
    }
};

QTEST_MAIN(AdminE2eTest)
#include "admin_e2e_test.moc"
