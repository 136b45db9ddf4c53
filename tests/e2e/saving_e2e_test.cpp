// Saving frames through the real window, workers, recorder and SDK against
// simulated cameras at 25 fps: the save folder and its checks, single saves,
// continuous saving of every frame into a folder of its own, write failures
// that are counted and logged instead of boxed, and the tray file. The
// sustained cases use the camera without colour: a 1080p colour PNG a frame
// is more than two cores encode at 25 fps (see docs/performance.md).
#include <QCheckBox>
#include <QDirIterator>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QtTest>

#include "acquisition.h"
#include "controlpanel.h"
#include "e2esupport.h"
#include "framedisplay.h"
#include "recorder.h"

namespace {

constexpr int kCam = 0;       // model 3: ToF and 1080p colour
constexpr int kPlainCam = 1;  // model 1: ToF only
constexpr int kFps = 25;

const QStringList kAllFiles{"Depth.csv", "Depth.png", "IR.csv", "IR.png", "PointCloud.ply", "Rgb.png", "Rgb.yuv"};
const QStringList kTofFiles{"Depth.csv", "Depth.png", "IR.csv", "IR.png", "PointCloud.ply"};

// Vertex count from a PLY header, read the way any PLY reader does.
long plyVertexCount(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return -1;
    long vertices = -1;
    for (int i = 0; i < 50 && !f.atEnd(); ++i) {
        const QByteArray line = f.readLine().trimmed();
        if (line.startsWith("element vertex ")) vertices = line.mid(15).toLong();
        if (line == "end_header") return vertices;
    }
    return -1;
}

}  // namespace

class SavingE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.106.2", 48806, {'3', '1'}, 3000, 300, kFps}};

    Recorder& recorder() { return s.window().recorder(); }
    QString root() { return s.workDir() + "/frames"; }

    bool start(int cam = kCam) { return s.search(2) && s.startCamera(cam); }
    QWidget* panel() { return s.window().controlPanel(); }
    // Chooses `folder` with "保存路径" as the user would.
    void chooseRoot(const QString& folder) {
        s.prompts().pathAnswer = folder;
        QVERIFY(s.click("pushButton_savepath"));
    }
    QStringList folders(const QString& under) {
        return QDir(under).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    }
    QStringList files(const QString& folder) { return QDir(folder).entryList(QDir::Files, QDir::Name); }
    QStringList boxes() { return s.boxes(); }
    bool savedAtLeast(unsigned n) {
        return e2e::waitFor([&] { return recorder().counts().saved + recorder().counts().failed >= n; });
    }
    // A complete frame folder: the file set of the ticked panes with the
    // sizes of a 640 x 480 depth frame and a 1080p colour picture.
    void checkCompleteFolder(const QString& folder, bool colour) {
        QCOMPARE(files(folder), colour ? kAllFiles : kTofFiles);
        if (colour) QCOMPARE(QFileInfo(folder + "/Rgb.yuv").size(), qint64(1920 * 1080 * 3 / 2));
        QFile ir(folder + "/IR.csv");
        QVERIFY(ir.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = ir.readAll().split('\n');
        QCOMPARE(lines.size(), 481);  // 480 lines and the empty rest after the last "\n"
        QCOMPARE(lines.first().count(','), 639);
        QCOMPARE(QImage(folder + "/Depth.png").size(), QSize(640, 480));
        QVERIFY(plyVertexCount(folder + "/PointCloud.ply") > 0);
    }

    // Every file present is whole (a frame caught by a vanishing folder may
    // lack files, but what it has is intact); true when all are present.
    bool filesIntact(const QString& folder) {
        const QStringList present = files(folder);
        for (const QString& name : present) {
            const QString path = folder + "/" + name;
            if (name.endsWith(".png")) {
                if (QImage(path).size() != QSize(640, 480)) return false;
            } else if (name.endsWith(".csv")) {
                QFile f(path);
                if (!f.open(QIODevice::ReadOnly) || f.readAll().count('\n') != 480) return false;
            } else if (name.endsWith(".ply")) {
                if (plyVertexCount(path) <= 0) return false;
            }
        }
        return true;
    }
    unsigned handedOver() {
        const RecorderCounts c = recorder().counts();
        return c.saved + c.waiting + c.failed;
    }

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kCam));
        QDir(root()).removeRecursively();
        QDir().mkpath(root());
        s.openWindow();
    }
    void cleanup() { s.closeWindow(); }

    void saveFolderMustBeChosenAndFreeOfChineseCharacters() {
        QVERIFY(start());
        QVERIFY(s.click("pushButton_start_save"));
        QVERIFY(s.click("pushButton_save"));
        QVERIFY(s.settle());
        const QString noPath = QString::fromUtf8("未选择路径|请先选择保存路径");
        QCOMPARE(boxes(), (QStringList{noPath, noPath}));
        QVERIFY(s.button("pushButton_start_save")->isEnabled());
        QVERIFY(!s.button("pushButton_end_save")->isEnabled());

        // The first choice starts in the home folder.
        s.prompts().requests.clear();
        const QString chinese = s.workDir() + QString::fromUtf8("/数据");
        QDir().mkpath(chinese);
        chooseRoot(chinese);
        QVERIFY(s.settle());
        QCOMPARE(s.prompts().requests.first().text, QDir::homePath());
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("路径错误|路径中不能包含中文字符！")});
        QVERIFY(recorder().saveRoot().isEmpty());

        // Cancelling the first choice leaves no folder; cancelling a later one keeps it.
        chooseRoot(QString());
        QVERIFY(recorder().saveRoot().isEmpty());
        chooseRoot(root());
        chooseRoot(QString());
        QCOMPARE(recorder().saveRoot(), root());
    }

    // A series of 20 frames at 25 fps fits in what may wait for the disk, so
    // every frame is saved whatever the machine's speed (the sustained rate
    // is measured by bench/app/continuous_save_bench).
    void continuousSavingGivesEveryFrameItsOwnCompleteFolder() {
        QVERIFY(start(kPlainCam));
        chooseRoot(root());
        QVERIFY(s.click("pushButton_start_save"));
        QVERIFY(!s.button("pushButton_start_save")->isEnabled());
        QVERIFY(s.button("pushButton_end_save")->isEnabled());
        QVERIFY(e2e::waitFor([&] { return handedOver() >= 20; }));
        QVERIFY(s.click("pushButton_end_save"));
        // A frame read before the click may still be handed over; once that
        // read has ended none is.
        s.window().acquisition().waitForReadsToEnd();
        const unsigned series = handedOver();
        QVERIFY(series < unsigned(Recorder::kPoolSize));
        recorder().flush();
        QVERIFY(s.settle());

        const RecorderCounts counts = recorder().counts();
        QVERIFY2(counts.failed == 0, qPrintable(s.logLines().filter("Recorder").join('\n')));
        QCOMPARE(counts.waiting, 0u);
        QCOMPARE(counts.saved, series);
        const QStringList saved = folders(root());
        QCOMPARE(unsigned(saved.size()), series);
        for (const QString& name : saved) {
            QCOMPARE(name.size(), 17);  // yyyyMMddhhmmsszzz
            checkCompleteFolder(root() + "/" + name, false);
        }
        QVERIFY(boxes().isEmpty());
        QCOMPARE(s.labelText("label_save_count"), QString::fromUtf8("已保存 %1 帧，等待 0，失败 0").arg(series));

        // Nothing more once ended.
        const unsigned reads = s.window().acquisition().frameReads(Acquisition::TofRead);
        QVERIFY(e2e::waitFor([&] { return s.window().acquisition().frameReads(Acquisition::TofRead) >= reads + 10; }));
        recorder().flush();
        QCOMPARE(handedOver(), series);
    }

    void singleSaveWritesTheTickedViewsOfTheNextFrame() {
        QVERIFY(start());
        chooseRoot(root());
        s.prompts().requests.clear();
        // Said at once, before the files exist.
        QVERIFY(s.click("pushButton_save"));
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("保存成功|保存成功")});
        QVERIFY(savedAtLeast(1));
        recorder().flush();
        QStringList saved = folders(root());
        QCOMPARE(saved.size(), 1);
        checkCompleteFolder(root() + "/" + saved[0], true);

        // Only depth and the point cloud.
        s.child<QCheckBox>("checkBoxIr")->click();
        s.child<QCheckBox>("checkBoxRgb")->click();
        QVERIFY(e2e::waitFor([&] { return QDateTime::currentDateTime().toString("yyyyMMddhhmmsszzz") != saved[0]; }));
        QVERIFY(s.click("pushButton_save"));
        QVERIFY(savedAtLeast(2));
        recorder().flush();
        saved = folders(root());
        QCOMPARE(saved.size(), 2);
        QCOMPARE(files(root() + "/" + saved[1]), (QStringList{"Depth.csv", "Depth.png", "PointCloud.ply"}));
        QCOMPARE(recorder().counts().saved, 2u);
        QCOMPARE(recorder().counts().failed, 0u);
    }

    // The save folder goes away while saving: no box, the failures counted,
    // one log line for the run and one when saving works again, and the
    // frames written before untouched.
    void aVanishedFolderIsCountedAndLoggedNotBoxed() {
        // Slow enough for the writers to keep up on a loaded machine: the
        // failures here are the folder's, not those of a full queue, which
        // would go on after the folder is back.
        d3sim::Camera& camera = s.camera(kPlainCam).camera();
        const d3sim::CameraSettings normal = camera.settings();
        d3sim::CameraSettings slow = normal;
        slow.frameRate = 5;
        camera.setSettings(slow);
        const std::unique_ptr<void, std::function<void(void*)>> restore(this,
                                                                        [&](void*) { camera.setSettings(normal); });
        QVERIFY(start(kPlainCam));
        chooseRoot(root());
        s.prompts().requests.clear();
        QVERIFY(s.click("pushButton_start_save"));
        QVERIFY(e2e::waitFor([&] { return recorder().counts().saved >= 5; }));

        const QString moved = s.workDir() + "/moved";
        const unsigned savedBefore = recorder().counts().saved;
        QVERIFY(QDir().rename(root(), moved));
        QVERIFY(s.waitForLog("frames are not being saved: " + root()));
        const unsigned failedSoFar = recorder().counts().failed;
        QVERIFY(e2e::waitFor([&] { return recorder().counts().failed >= failedSoFar + 5; }));

        QVERIFY(QDir().mkpath(root()));
        QVERIFY(s.waitForLog("frames are saved again: " + root()));
        QVERIFY(s.click("pushButton_end_save"));
        recorder().flush();
        QVERIFY(s.settle());

        const RecorderCounts counts = recorder().counts();
        QCOMPARE(s.labelText("label_save_count"),
                 QString::fromUtf8("已保存 %1 帧，等待 0，失败 %2").arg(counts.saved).arg(counts.failed));
        QCOMPARE(s.logCount("frames are not being saved"), 1);
        QCOMPARE(s.logCount("frames are saved again"), 1);
        QVERIFY(boxes().isEmpty());
        // What was written before the move is whole; frames caught half-way
        // lack files but have no damaged ones.
        unsigned complete = 0;
        for (const QString& name : folders(moved)) {
            QVERIFY2(filesIntact(moved + "/" + name), qPrintable(name));
            if (files(moved + "/" + name) == kTofFiles) ++complete;
        }
        QVERIFY(complete >= savedBefore);
    }

    void stoppingTheStreamEndsContinuousSavingButLeavesTheButtons() {
        QVERIFY(start(kPlainCam));
        chooseRoot(root());
        QVERIFY(s.click("pushButton_start_save"));
        QVERIFY(savedAtLeast(3));
        QVERIFY(s.stop());
        QVERIFY(!recorder().continuous());
        // Judged within the panel, which is off while stopped.
        QVERIFY(s.button("pushButton_end_save")->isEnabledTo(panel()));
        QVERIFY(!s.button("pushButton_start_save")->isEnabledTo(panel()));
        recorder().flush();
        const unsigned saved = recorder().counts().saved;

        // The next start makes Start Save usable again; nothing is saved meanwhile.
        QVERIFY(s.startCamera(kPlainCam));
        QVERIFY(s.button("pushButton_start_save")->isEnabled());
        QVERIFY(!s.button("pushButton_end_save")->isEnabled());
        const unsigned reads = s.window().acquisition().frameReads(Acquisition::TofRead);
        QVERIFY(e2e::waitFor([&] { return s.window().acquisition().frameReads(Acquisition::TofRead) >= reads + 5; }));
        recorder().flush();
        QCOMPARE(recorder().counts().saved, saved);
    }

    // The counts follow a language switch; with DEXALON_SHOTS set the window
    // is saved there in both languages while saving.
    void theCountsAreShownInEitherLanguage() {
        QVERIFY(start());
        chooseRoot(root());
        QVERIFY(s.click("pushButton_start_save"));
        QVERIFY(savedAtLeast(3));
        QVERIFY(s.click("pushButton_end_save"));
        recorder().flush();
        QVERIFY(s.settle());
        const RecorderCounts c = recorder().counts();
        QCOMPARE(s.labelText("label_save_count"),
                 QString::fromUtf8("已保存 %1 帧，等待 0，失败 %2").arg(c.saved).arg(c.failed));
        const QString shots = qEnvironmentVariable("DEXALON_SHOTS");
        Widget& w = s.window();
        if (!shots.isEmpty()) {
            w.resize(1600, 960);
            w.show();
            QVERIFY(QTest::qWaitForWindowExposed(&w));
            const unsigned painted = w.frameDisplay().paintedFrames(1);
            QVERIFY(e2e::waitFor([&] { return w.frameDisplay().paintedFrames(1) > painted + 2; }));
            QCoreApplication::processEvents();
            QVERIFY(w.grab().save(shots + "/saving.png", "PNG"));
        }
        w.switchLanguage(1);
        QCOMPARE(s.labelText("label_save_count"),
                 QString("Saved %1 frames, waiting 0, failed %2").arg(c.saved).arg(c.failed));
        if (!shots.isEmpty()) {
            QCoreApplication::sendPostedEvents();
            QCoreApplication::processEvents();
            QVERIFY(w.grab().save(shots + "/saving-en.png", "PNG"));
        }
        w.switchLanguage(0);
    }

    void trayRecordingWritesOneHundredFramesThenSaysSo() {
        QVERIFY(start());
        TrayArea a;
        a.measurements[0] = 100.4f;
        a.measurements[1] = -20.6f;
        a.measurements[2] = 1500.0f;
        a.measurements[3] = 1.234f;
        a.area = {10, 20, 110, 120};
        TrayArea b = a;
        b.measurements[3] = 0.5f;
        s.window().frameDisplay().setTrayAreas({a, b});
        s.prompts().requests.clear();
        QPushButton* tray = s.button("pushButton_3");
        QVERIFY(tray);
        tray->click();
        QVERIFY(e2e::waitFor([&] { return !boxes().isEmpty(); }, 120000));
        // Untranslated in either language.
        QCOMPARE(boxes(), QStringList{QString::fromUtf8("保存完成|保存完成")});

        QStringList trayFiles = QDir(s.workDir()).entryList({"*trayInfo.txt"}, QDir::Files);
        QCOMPARE(trayFiles.size(), 1);
        QCOMPARE(trayFiles[0].size(), 17 + int(strlen("trayInfo.txt")));
        QFile f(s.workDir() + "/" + trayFiles[0]);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray frame = "0,100,-21,1500,1.23\r\n1,100,-21,1500,0.50\r\n";
        QCOMPARE(f.readAll(), frame.repeated(100));
        QFile::remove(f.fileName());
    }
};

QTEST_MAIN(SavingE2eTest)
#include "saving_e2e_test.moc"
