// The network dialog's rules and one run of the firmware tool, with small
// shell scripts standing in for the tool: what it is given, how its output
// is read, and each way it can end.
#include <QCheckBox>
#include <QFile>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QtTest>

#include "compatibility.h"
#include "firmwaretool.h"
#include "netsetting.h"

class NetworkAdminTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;

    // An executable script in the test folder; `body` is its shell text.
    QString script(const QString& name, const QByteArray& body) {
        const QString path = dir_.filePath(name);
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly)) return QString();
        f.write("#!/bin/sh\n" + body);
        f.close();
        f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }
    // Runs `program` to its end and returns the result and the lines it printed.
    FirmwareRunResult run(const QString& program, QStringList* lines = nullptr,
                          FirmwareToolTiming timing = FirmwareToolTiming(), const QStringList& args = {}) {
        FirmwareToolRun tool;
        QSignalSpy finished(&tool, &FirmwareToolRun::finished);
        QStringList seen;
        connect(&tool, &FirmwareToolRun::outputLine, this, [&seen](const QString& l) { seen << l; });
        tool.start(program, args, timing);
        if (!QTest::qWaitFor([&] { return finished.count() > 0; }, 20000)) return {};
        if (lines) *lines = seen;
        return finished.first().first().value<FirmwareRunResult>();
    }

private slots:
    void dhcpDisablesTheBoxesButTheTypedAddressIsStillSent() {
        netSetting dialog;
        auto boxes = dialog.findChildren<QSpinBox*>();
        QCOMPARE(boxes.size(), 4);
        auto* dhcp = dialog.findChild<QCheckBox*>("checkBox");
        const int octets[] = {10, 0, 254, 7};
        const char* names[] = {"spinBox", "spinBox_2", "spinBox_3", "spinBox_4"};
        for (int i = 0; i < 4; ++i) dialog.findChild<QSpinBox*>(names[i])->setValue(octets[i]);
        QSignalSpy sent(&dialog, &netSetting::setNetwork);

        dhcp->setChecked(true);
        for (QSpinBox* b : boxes) QVERIFY(!b->isEnabled());
        dialog.findChild<QPushButton*>("pushButton")->click();
        dhcp->setChecked(false);
        for (QSpinBox* b : boxes) QVERIFY(b->isEnabled());
        dialog.findChild<QPushButton*>("pushButton")->click();

        QCOMPARE(sent.count(), 2);
        const auto withDhcp = sent[0][0].value<NetworkRequest>();
        QVERIFY(withDhcp.dhcp);
        QCOMPARE(withDhcp.ip, QString("10.0.254.7"));
        const auto fixed = sent[1][0].value<NetworkRequest>();
        QVERIFY(!fixed.dhcp);
        QCOMPARE(fixed.ip, QString("10.0.254.7"));
    }

    void octetsStopAt254AndZerosAreSentAsTheyAre() {
        netSetting dialog;
        auto* first = dialog.findChild<QSpinBox*>("spinBox");
        first->setValue(255);
        QCOMPARE(first->value(), 254);
        // Typing 255 is refused: the box keeps what it could take.
        first->clear();
        QTest::keyClicks(first, "255");
        QVERIFY(first->text() != "255");
        for (QSpinBox* b : dialog.findChildren<QSpinBox*>()) b->setValue(0);
        QCOMPARE(dialog.address(), QString("0.0.0.0"));
    }

    void argumentsAndMarkerAreTheToolsOwn() {
        QCOMPARE(FirmwareTool::arguments("/tmp/fw.bin", "D3SIM-003000002:127.0.0.2"),
                 (QStringList{"-f", "/tmp/fw.bin", "-h", "D3SIM-003000002:127.0.0.2", "-p", "qm-tbrwkex", "-e", "-w",
                              "-r"}));
        QVERIFY(FirmwareTool::reportsSuccess("sending 100%\ncamera back\nupdate successed!\n"));
        QVERIFY(FirmwareTool::reportsSuccess("noise update successed! noise"));
        QVERIFY(!FirmwareTool::reportsSuccess("Update successed!\n"));
        QVERIFY(!FirmwareTool::reportsSuccess("update succeeded!\n"));
        QVERIFY(!FirmwareTool::reportsSuccess(""));
        QCOMPARE(FirmwareTool::progressPercent("sending 40% (104857/262144 bytes)"), 40);
        QCOMPARE(FirmwareTool::progressPercent("100 %"), 100);
        QCOMPARE(FirmwareTool::progressPercent("erasing flash"), -1);
        QCOMPARE(FirmwareTool::progressPercent("9999%"), -1);
        // The debug line's view of the entry skips one character past the ':'.
        QCOMPARE(Compatibility::firmwareDebugAddress("D3SIM-003000002:127.0.0.2"), QString("27.0.0.2"));
        QCOMPARE(Compatibility::firmwareDebugAddress("no colon"), QString("o colon"));
    }

    void aToolThatPrintsTheMarkerSucceedsAndItsLinesArriveOneByOne() {
        // The argument list reaches the tool whole and in order.
        const QString tool = script("ok-tool",
                                    "echo \"args: $*\"\nprintf 'sending 50%%\\n'\n"
                                    "printf 'camera back'\nprintf ' with firmware 1.5.0\\n'\n"
                                    "echo 'update successed!'\n");
        QStringList lines;
        const FirmwareRunResult r =
            run(tool, &lines, FirmwareToolTiming(), FirmwareTool::arguments("/x y/fw.bin", "SN:127.0.0.2"));
        QCOMPARE(int(r.outcome), int(FirmwareRunResult::Outcome::Succeeded));
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(lines, (QStringList{"args: -f /x y/fw.bin -h SN:127.0.0.2 -p qm-tbrwkex -e -w -r", "sending 50%",
                                     "camera back with firmware 1.5.0", "update successed!"}));
    }

    void aFailingToolEndsWithoutSuccessAndSaysWhy() {
        const QString tool = script("failing-tool",
                                    "echo 'sending 10%'\necho 'first' >&2\necho 'camera lost mid-transfer' >&2\n"
                                    "echo 'Update successed!'\nexit 7\n");
        const FirmwareRunResult r = run(tool);
        QCOMPARE(int(r.outcome), int(FirmwareRunResult::Outcome::NoMarker));
        QCOMPARE(r.exitCode, 7);
        QCOMPARE(r.reason, QString("camera lost mid-transfer"));
        // The marker on standard error does not count either.
        const FirmwareRunResult onError = run(script("stderr-tool", "echo 'update successed!' >&2\n"));
        QCOMPARE(int(onError.outcome), int(FirmwareRunResult::Outcome::NoMarker));
    }

    void aMissingToolDoesNotStart() {
        const FirmwareRunResult r = run(dir_.filePath("no-such-tool"));
        QCOMPARE(int(r.outcome), int(FirmwareRunResult::Outcome::NotStarted));
        QVERIFY(!r.reason.isEmpty());
        // Nor does one that cannot be executed.
        QFile plain(dir_.filePath("not-executable"));
        QVERIFY(plain.open(QIODevice::WriteOnly));
        plain.close();
        QCOMPARE(int(run(plain.fileName()).outcome), int(FirmwareRunResult::Outcome::NotStarted));
    }

    void aToolPastItsTimeIsStoppedAndNotWaitedFor() {
        // It waits for input that never comes, and would then print the marker.
        const QString tool = script("hanging-tool", "echo 'sending 5%'\ncat\necho 'update successed!'\n");
        FirmwareToolTiming quick;
        quick.finishMs = 300;
        QStringList lines;
        const FirmwareRunResult r = run(tool, &lines, quick);
        QCOMPARE(int(r.outcome), int(FirmwareRunResult::Outcome::TimedOut));
        QCOMPARE(lines, QStringList{"sending 5%"});
        QVERIFY(!FirmwareTool::reportsSuccess(r.standardOutput));
    }
};

QTEST_MAIN(NetworkAdminTest)
#include "network_admin_test.moc"
