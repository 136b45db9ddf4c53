// The log window: following new lines, clearing, saving and calls from
// worker threads.
#include <QDir>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QtTest>
#include <thread>

#include "debug.h"
#include "promptrecorder.h"

class DebugWindowTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir dir_;
    QString startDir_;

    static QTextBrowser* view(debug& d) { return d.findChild<QTextBrowser*>("textBrowser"); }
    static QStringList lines(debug& d) { return view(d)->toPlainText().split('\n', Qt::SkipEmptyParts); }

private slots:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        startDir_ = QDir::currentPath();
    }
    void cleanup() { QDir::setCurrent(startDir_); }

    // The distance is read after the new line is in, so the line's own height
    // counts towards the 50 units.
    void followsOnlyWithinFiftyUnitsOfTheBottom_data() {
        QTest::addColumn<int>("distanceAfterAppend");
        QTest::addColumn<bool>("follows");
        QTest::newRow("at bottom") << 0 << true;
        QTest::newRow("exactly 50") << 50 << true;
        QTest::newRow("51") << 51 << false;
        QTest::newRow("reading far up") << 400 << false;
    }
    void followsOnlyWithinFiftyUnitsOfTheBottom() {
        QFETCH(int, distanceAfterAppend);
        QFETCH(bool, follows);
        debug d;
        d.resize(400, 200);
        d.show();
        for (int i = 0; i < 300; ++i) d.appendLog(QString("line %1").arg(i));
        QScrollBar* bar = view(d)->verticalScrollBar();
        QVERIFY(bar->maximum() > 1000);
        QCOMPARE(bar->value(), bar->maximum());
        const int before = bar->maximum();
        d.appendLog("measure");
        const int lineHeight = bar->maximum() - before;
        QVERIFY(lineHeight > 0 && lineHeight < 50);

        const int start = bar->maximum() - qMax(0, distanceAfterAppend - lineHeight);
        bar->setValue(start);
        d.appendLog("newest");
        QCOMPARE(bar->maximum() - start, qMax(distanceAfterAppend, lineHeight));
        if (follows)  // the newest line is in view, give or take the document margin
            QVERIFY2(bar->maximum() - bar->value() <= view(d)->document()->documentMargin(),
                     qPrintable(QString("%1 of %2").arg(bar->value()).arg(bar->maximum())));
        else
            QCOMPARE(bar->value(), start);
        QCOMPARE(lines(d).last(), QString("newest"));

        // A burst from another thread is drained as one batch and keeps the same choice.
        const int beforeBurst = bar->value();
        std::thread worker([&d] {
            for (int i = 0; i < 200; ++i) d.appendLog(QString("burst %1").arg(i));
        });
        worker.join();
        QTRY_COMPARE(lines(d).last(), QString("burst 199"));
        if (follows)
            QVERIFY(bar->maximum() - bar->value() <= view(d)->document()->documentMargin());
        else
            QCOMPARE(bar->value(), beforeBurst);
    }

    void clearEmptiesTheView() {
        debug d;
        d.appendLog("a");
        d.findChild<QPushButton*>("pushButton")->click();
        QVERIFY(view(d)->toPlainText().isEmpty());
    }

    void fileNameIsTheWorkingDirectoryAndSeventeenDigits() {
        QDir::setCurrent(dir_.path());
        const QDateTime when(QDate(2024, 1, 31), QTime(23, 59, 59, 123));
        QCOMPARE(debug::logFileName(when), QDir::currentPath() + "/20240131235959123.log");
        QCOMPARE(debug::logFileName(QDateTime(QDate(2024, 1, 5), QTime(4, 3, 2, 1))),
                 QDir::currentPath() + "/20240105040302001.log");
    }

    void saveWritesTheWholeLogAndReportsSucceed_data() {
        QTest::addColumn<QStringList>("logLines");
        QTest::newRow("two lines") << QStringList{"widget 12 start", "sdk callback:SN lost"};
        QTest::newRow("empty log") << QStringList{};
    }
    void saveWritesTheWholeLogAndReportsSucceed() {
        QFETCH(QStringList, logLines);
        QTemporaryDir out;
        QDir::setCurrent(out.path());
        PromptRecorder prompts;
        debug d;
        for (const QString& l : logLines) d.appendLog(l);
        d.findChild<QPushButton*>("pushButton_2")->click();

        QCOMPARE(prompts.requests.size(), 1);
        QCOMPARE(int(prompts.requests[0].kind), int(UiPrompt::Kind::Information));
        QCOMPARE(prompts.requests[0].title, QString("succeed"));
        QCOMPARE(prompts.requests[0].text, QString("succeed"));
        const QStringList files = QDir(out.path()).entryList(QDir::Files);
        QCOMPARE(files.size(), 1);
        QVERIFY2(QRegularExpression("^\\d{17}\\.log$").match(files[0]).hasMatch(), qPrintable(files[0]));
        QFile f(out.filePath(files[0]));
        QVERIFY(f.open(QIODevice::ReadOnly | QIODevice::Text));
        QCOMPARE(QString::fromUtf8(f.readAll()), logLines.join('\n'));
    }

    void saveWhereNoFileCanBeCreatedWarns() {
        // Nobody, not even root, can create a file in /proc.
        QVERIFY(QDir::setCurrent("/proc"));
        PromptRecorder prompts;
        debug d;
        d.appendLog("x");
        d.findChild<QPushButton*>("pushButton_2")->click();
        QCOMPARE(prompts.requests.size(), 1);
        QCOMPARE(int(prompts.requests[0].kind), int(UiPrompt::Kind::Warning));
        QCOMPARE(prompts.requests[0].title, QString("can't open"));
        QCOMPARE(prompts.requests[0].text, QString("openerr!"));
    }

    // A burst from a worker (a camera that stopped answering) beyond the
    // bound leaves the newest lines, in order; a save writes those.
    void keepsOnlyTheNewestLines() {
        QTemporaryDir out;
        QDir::setCurrent(out.path());
        PromptRecorder prompts;
        debug d;
        const int total = debug::kMaxLines + 3;
        std::thread worker([&] {
            for (int i = 0; i < total; ++i) d.appendLog(QString("line %1").arg(i));
        });
        worker.join();
        QVERIFY(
            QTest::qWaitFor([&] { return lines(d).value(debug::kMaxLines - 1) == QString("line %1").arg(total - 1); }));
        const QStringList kept = lines(d);
        QCOMPARE(kept.size(), debug::kMaxLines);
        QCOMPARE(kept.first(), QString("line 3"));
        d.findChild<QPushButton*>("pushButton_2")->click();
        const QStringList files = QDir(out.path()).entryList(QDir::Files);
        QCOMPARE(files.size(), 1);
        QFile f(out.filePath(files[0]));
        QVERIFY(f.open(QIODevice::ReadOnly | QIODevice::Text));
        QCOMPARE(QString::fromUtf8(f.readAll()).split('\n').first(), QString("line 3"));
    }

    void linesFromWorkerThreadsArriveInCallOrder() {
        debug d;
        d.appendLog("gui first");
        std::thread early([&d] {
            d.appendLog("worker 1");
            d.appendLog("worker 2");
        });
        early.join();
        // Called after the worker's lines but before the event loop ran.
        d.appendLog("gui after worker");

        constexpr int kPerThread = 400;
        std::thread a([&d] {
            for (int i = 0; i < kPerThread; ++i) d.appendLog(QString("a %1").arg(i));
        });
        std::thread b([&d] {
            for (int i = 0; i < kPerThread; ++i) d.appendLog(QString("b %1").arg(i));
        });
        a.join();
        b.join();
        QTRY_COMPARE(lines(d).size(), 4 + 2 * kPerThread);

        const QStringList all = lines(d);
        QCOMPARE(all.mid(0, 4), (QStringList{"gui first", "worker 1", "worker 2", "gui after worker"}));
        int nextA = 0;
        int nextB = 0;
        for (const QString& l : all.mid(4)) {
            const int n = l.section(' ', 1).toInt();
            if (l.startsWith('a'))
                QCOMPARE(n, nextA++);
            else
                QCOMPARE(n, nextB++);
        }
    }
};

QTEST_MAIN(DebugWindowTest)
#include "debug_window_test.moc"
