// Two real processes: the second start is turned away, and a crashed first
// instance does not block the next start.
#include <QFile>
#include <QProcess>
#include <QSharedMemory>
#include <QTemporaryDir>
#include <QtTest>

class SingleInstanceTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir dir_;
    QString exe_;
    QString key_;

    // Started with prompts answered automatically and printed to stderr.
    void start(QProcess& p) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("DEXALON_PROMPT_AUTOANSWER", "1");
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(dir_.path());
        p.start(exe_, QStringList());
        QVERIFY(p.waitForStarted(5000));
    }
    // The window is up once the process has lived a while without exiting.
    static bool keepsRunning(QProcess& p) { return !p.waitForFinished(2500); }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("DISPLAY")) QSKIP("the viewer window needs an X server (run under xvfb-run)");
        const QString built = qEnvironmentVariable("DEXALON_EXE");
        QVERIFY2(QFile::exists(built), "DEXALON_EXE must name the built viewer");
        QVERIFY(dir_.isValid());
        // The guard is keyed by the program's name; a private copy keeps this
        // test clear of any other viewer running on the machine.
        key_ = QString("dexalon-instance-test-%1").arg(QCoreApplication::applicationPid());
        exe_ = dir_.filePath(key_);
        QVERIFY(QFile::copy(built, exe_));
    }

    void cleanupTestCase() {
        // Drop the segment a killed instance left behind.
        QSharedMemory stale(key_);
        if (stale.attach()) stale.detach();
    }

    void secondStartSaysAlreadyOpenedAndExitsZero() {
        QProcess first;
        start(first);
        QVERIFY2(keepsRunning(first), first.readAllStandardError().constData());

        QProcess second;
        start(second);
        QVERIFY(second.waitForFinished(20000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
        const QByteArray err = second.readAllStandardError();
        QVERIFY2(err.contains("prompt warning: already opened! | already opened!"), err.constData());
        QCOMPARE(first.state(), QProcess::Running);

        // A crash leaves the segment behind; the next start must still work.
        first.kill();
        QVERIFY(first.waitForFinished(5000));
        QProcess third;
        start(third);
        const bool running = keepsRunning(third);
        const QByteArray thirdErr = third.readAllStandardError();
        third.kill();
        third.waitForFinished(5000);
        QVERIFY2(running, thirdErr.constData());
        QVERIFY(!thirdErr.contains("already opened!"));
    }
};

QTEST_MAIN(SingleInstanceTest)
#include "single_instance_test.moc"
