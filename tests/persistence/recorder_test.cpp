// The recorder: which files a saved frame gets and where, one folder per
// frame while saving continuously, frames that find the disk behind or a
// folder gone counted and logged (never silently lost, never a box), and the
// tray information file.
#include "recorder.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <cstring>
#include <mutex>

#include "fakecamera.h"
#include "framefileslots.h"
#include "framewriters.h"

namespace {

QStringList filesIn(const QString& folder) {
    QStringList names = QDir(folder).entryList(QDir::Files, QDir::Name);
    names.sort();
    return names;
}

QStringList foldersIn(const QString& root) { return QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot); }

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// A frame with something in every buffer the recorder copies.
void fillFrame(FrameBuffers& f, uint8_t seed) {
    for (std::size_t i = 0; i < std::size_t(f.ir.rows()) * f.ir.cols(); ++i) f.ir.data()[i] = uint8_t(seed + i);
    for (std::size_t i = 0; i < std::size_t(f.depth.rows()) * f.depth.cols(); ++i)
        f.depth.data()[i] = uint16_t(1000 + seed + i % 500);
    for (std::size_t i = 0; i < std::size_t(f.points.rows()) * f.points.cols(); ++i)
        f.points.data()[i] = PointXYZ{float(i % 640), float(i / 640), 1000.0f + seed};
    for (std::size_t i = 0; i < std::size_t(f.rgbPoints.rows()) * f.rgbPoints.cols(); ++i)
        f.rgbPoints.data()[i] = PointXYZRGBI{1, 2, 500.0f + seed, 10, 20, 30, 40};
    f.irImage.fill(qRgb(seed, seed, seed));
    f.currentDepthImage().fill(qRgb(255, seed, 0));
    f.currentRgbImage().fill(qRgb(0, seed, 255));
}

// Waits for the clock to pass into the next millisecond, so the next frame
// gets a folder of its own.
void nextMillisecond() {
    const QString now = FrameFiles::timeStamp();
    while (FrameFiles::timeStamp() == now) QThread::yieldCurrentThread();
}

const QStringList kEveryFile{"Depth.csv", "Depth.png", "IR.csv", "IR.png", "PointCloud.ply", "Rgb.png", "Rgb.yuv"};

}  // namespace

class RecorderTest : public QObject {
    Q_OBJECT

    QTemporaryDir work_;
    FakeCamera camera_;
    std::unique_ptr<FrameBuffers> frames_;
    std::mutex logMutex_;
    QStringList log_;
    std::unique_ptr<Recorder> recorder_;
    QString root_;

    QStringList log() {
        std::lock_guard<std::mutex> lock(logMutex_);
        return log_;
    }

private slots:
    void initTestCase() { frames_ = std::make_unique<FrameBuffers>(); }
    void init() {
        root_ = work_.filePath(QString("root%1").arg(QDateTime::currentMSecsSinceEpoch()));
        QVERIFY(QDir().mkpath(root_));
        {
            std::lock_guard<std::mutex> lock(logMutex_);
            log_.clear();
        }
        recorder_ = std::make_unique<Recorder>(camera_, [this](const QString& line) {
            std::lock_guard<std::mutex> lock(logMutex_);
            log_ << line;
        });
        recorder_->setSaveRoot(root_);
        recorder_->setViews(true, true, true, true);
        fillFrame(*frames_, 5);
    }
    void cleanup() { recorder_.reset(); }

    void aSingleSaveWritesOneFrameWithEveryTickedView() {
        const QString folder = FrameFiles::path(root_, FrameFiles::timeStamp());
        recorder_->requestSingleSave(folder);
        recorder_->frameReady(*frames_, false);
        recorder_->frameReady(*frames_, false);  // one frame per request
        recorder_->flush();
        QCOMPARE(foldersIn(root_), QStringList{QFileInfo(folder).fileName()});
        QCOMPARE(filesIn(folder), kEveryFile);
        QCOMPARE(readAll(FrameFiles::path(folder, "IR.csv")),
                 valueCsv(frames_->ir.data(), frames_->ir.rows(), frames_->ir.cols()));
        QCOMPARE(readAll(FrameFiles::path(folder, "Depth.csv")),
                 valueCsv(frames_->depth.data(), frames_->depth.rows(), frames_->depth.cols()));
        QCOMPARE(readAll(FrameFiles::path(folder, "Rgb.yuv")), yuvI420(frames_->currentRgbImage()));
        QCOMPARE(QImage(FrameFiles::path(folder, "IR.png")).convertToFormat(QImage::Format_RGB32), frames_->irImage);
        QVERIFY(readAll(FrameFiles::path(folder, "PointCloud.ply")).contains("element vertex 307200"));
        QCOMPARE(recorder_->counts().saved, 1u);
        QCOMPARE(recorder_->counts().failed, 0u);
    }

    void aSecondRequestBeforeAFrameOnlyMovesTheTarget() {
        const QString first = FrameFiles::path(root_, "first");
        const QString second = FrameFiles::path(root_, "second");
        recorder_->requestSingleSave(first);
        recorder_->requestSingleSave(second);
        recorder_->setViews(true, false, false, false);
        recorder_->frameReady(*frames_, false);
        recorder_->flush();
        QVERIFY(QFileInfo(first).isDir());
        QVERIFY(filesIn(first).isEmpty());
        QCOMPARE(filesIn(second), (QStringList{"IR.csv", "IR.png"}));
    }

    // The per-type writers, invoked by name as other programs do: each
    // writes its record and the view's picture into the single-save folder.
    void perTypeWritersAreCallableByNameAndUseTheirOwnNames() {
        const QString folder = FrameFiles::path(root_, "slots");
        recorder_->requestSingleSave(folder);
        recorder_->flush();
        QList<dataType> asked;
        FrameFileSlots writers(*recorder_, [&](dataType type) {
            asked << type;
            QImage picture(4, 2, QImage::Format_RGB32);
            picture.fill(qRgb(10 * int(type), 0, 0));
            return picture;
        });
        GrayscaleData ir(1, 3);
        ir.data()[0] = 7, ir.data()[1] = 8, ir.data()[2] = 9;
        DistanceData depth(2, 1);
        depth.data()[0] = 4000, depth.data()[1] = 0;
        PointcloudData points(1, 1);
        points.data()[0] = PointXYZ{1.5f, -2.0f, 1234567.0f};
        points.setNumberSize(1);
        QVERIFY(QMetaObject::invokeMethod(&writers, "saveData2File", Q_ARG(GrayscaleData, ir),
                                          Q_ARG(dataType, DATA_TYPE_IR)));
        QVERIFY(QMetaObject::invokeMethod(&writers, "saveData2File", Q_ARG(DistanceData, depth),
                                          Q_ARG(dataType, DATA_TYPE_DEPTH)));
        QVERIFY(QMetaObject::invokeMethod(&writers, "saveData2File", Q_ARG(GrayscaleData, ir),
                                          Q_ARG(dataType, DATA_TYPE_RGB)));
        QVERIFY(QMetaObject::invokeMethod(&writers, "saveData2File", Q_ARG(PointcloudData, points),
                                          Q_ARG(dataType, DATA_TYPE_IR)));
        QVERIFY(QMetaObject::invokeMethod(&writers, "saveData2File", Q_ARG(RgbImageData, RgbImageData(1, 1)),
                                          Q_ARG(dataType, DATA_TYPE_RGB)));
        // A type the writers do not know writes nothing.
        QVERIFY(QMetaObject::invokeMethod(&writers, "saveData2File", Q_ARG(GrayscaleData, ir),
                                          Q_ARG(dataType, dataType(7))));

        // "RGB.png" and "Rgb.png" are two files.
        QCOMPARE(filesIn(folder), (QStringList{"Depth.csv", "Depth.png", "IR.csv", "IR.png", "PointCloud.csv",
                                               "RGB.png", "Rgb.csv", "Rgb.png"}));
        QCOMPARE(readAll(FrameFiles::path(folder, "IR.csv")), QByteArray("7, 8, 9\n"));
        QCOMPARE(readAll(FrameFiles::path(folder, "Depth.csv")), QByteArray("4000\n0\n"));
        QCOMPARE(readAll(FrameFiles::path(folder, "PointCloud.csv")), QByteArray("1.5, -2, 1.23457e+06\n"));
        QCOMPARE(QImage(FrameFiles::path(folder, "Depth.png")).pixel(0, 0), qRgb(20, 0, 0));
        QCOMPARE(asked, (QList<dataType>{DATA_TYPE_IR, DATA_TYPE_DEPTH, DATA_TYPE_RGB, DATA_TYPE_RGB}));
    }

    void withNoViewTheFolderStaysEmpty() {
        recorder_->setViews(false, false, false, false);
        const QString folder = FrameFiles::path(root_, "empty");
        recorder_->requestSingleSave(folder);
        recorder_->frameReady(*frames_, false);
        recorder_->flush();
        QVERIFY(QFileInfo(folder).isDir());
        QVERIFY(filesIn(folder).isEmpty());
    }

    void continuousSavingGivesEveryFrameItsFolder() {
        recorder_->setContinuous(true);
        for (int i = 0; i < 5; ++i) {
            nextMillisecond();
            fillFrame(*frames_, uint8_t(i));
            recorder_->frameReady(*frames_, false);
        }
        recorder_->setContinuous(false);
        recorder_->frameReady(*frames_, false);
        recorder_->flush();
        const QStringList folders = foldersIn(root_);
        QCOMPARE(folders.size(), 5);
        for (const QString& f : folders) QCOMPARE(filesIn(FrameFiles::path(root_, f)), kEveryFile);
        QCOMPARE(recorder_->counts().saved, 5u);
        QCOMPARE(recorder_->counts().waiting, 0u);
    }

    void aRegisteredFrameSavesItsColouredCloud() {
        recorder_->setViews(false, false, false, true);
        const QString folder = FrameFiles::path(root_, "registered");
        recorder_->requestSingleSave(folder);
        recorder_->frameReady(*frames_, true);
        recorder_->flush();
        const QByteArray ply = readAll(FrameFiles::path(folder, "PointCloud.ply"));
        QVERIFY(ply.contains("property uchar red"));
    }

    // The disk is behind: the pool fills and further frames are counted as
    // failed, with one log line for the run and one when saving goes on.
    void framesThatFindThePoolFullAreCountedAndLogged() {
        recorder_->setViews(false, false, false, true);
        camera_.holdAll("SaveAsPLYFile");
        recorder_->setContinuous(true);
        QSignalSpy counts(recorder_.get(), &Recorder::countsChanged);
        const int frames = Recorder::kPoolSize + 8;
        for (int i = 0; i < frames; ++i) recorder_->frameReady(*frames_, false);
        QTRY_COMPARE(camera_.waitingAll("SaveAsPLYFile"), Recorder::writerThreads());
        QCOMPARE(recorder_->counts().failed, 8u);
        QCOMPARE(recorder_->counts().waiting, unsigned(Recorder::kPoolSize));
        QCOMPARE(log().filter("frames are not being saved").size(), 1);
        QVERIFY(log().first().contains(QString::number(Recorder::kPoolSize) + " frames are still waiting"));
        camera_.releaseAll("SaveAsPLYFile");
        recorder_->flush();
        recorder_->frameReady(*frames_, false);
        recorder_->flush();
        QCOMPARE(recorder_->counts().saved, unsigned(Recorder::kPoolSize) + 1);
        QCOMPARE(recorder_->counts().waiting, 0u);
        QCOMPARE(log().filter("frames are saved again").size(), 1);
        QTRY_VERIFY(!counts.isEmpty());
    }

    // The save folder disappears in the middle of continuous saving: frames
    // fail (no box, counted, one log line), nothing written before is
    // touched, and saving goes on once the folder is back.
    void aFolderGoneMeanwhileFailsFramesAndSparesEarlierFiles() {
        recorder_->setViews(true, false, false, false);
        recorder_->setContinuous(true);
        recorder_->frameReady(*frames_, false);
        recorder_->flush();
        const QStringList saved = foldersIn(root_);
        QCOMPARE(saved.size(), 1);
        const QByteArray firstCsv = readAll(FrameFiles::path(FrameFiles::path(root_, saved[0]), "IR.csv"));

        const QString moved = root_ + "-moved";
        QVERIFY(QDir().rename(root_, moved));
        for (int i = 0; i < 3; ++i) {
            nextMillisecond();
            recorder_->frameReady(*frames_, false);
        }
        recorder_->flush();
        QCOMPARE(recorder_->counts().failed, 3u);
        QCOMPARE(log().size(), 1);
        QVERIFY(log()[0].contains("frames are not being saved"));
        QVERIFY(log()[0].contains("the save folder does not exist"));
        QVERIFY(!QFileInfo(root_).exists());  // the root itself is never made

        QVERIFY(QDir().rename(moved, root_));
        nextMillisecond();
        recorder_->frameReady(*frames_, false);
        recorder_->flush();
        QCOMPARE(recorder_->counts().saved, 2u);
        QCOMPARE(foldersIn(root_).size(), 2);
        QCOMPARE(readAll(FrameFiles::path(FrameFiles::path(root_, saved[0]), "IR.csv")), firstCsv);
        QCOMPARE(log().size(), 2);
    }

    void trayInformationGetsTheNextHundredFrames() {
        const QString previous = QDir::currentPath();
        QDir::setCurrent(work_.path());
        bool opened = false;
        QObject context;
        recorder_->startTrayRecording(&context, [&](bool ok) { opened = ok; });
        QTRY_VERIFY(opened);
        QDir::setCurrent(previous);
        QSignalSpy finished(recorder_.get(), &Recorder::trayRecordingFinished);
        std::vector<TrayArea> trays(2);
        trays[0] = TrayArea{{1.4f, 2.6f, 3.0f, 0.126f}, PalletArea{1, 2, 3, 4}};
        trays[1] = TrayArea{{10, 20, 30, 1.5f}, PalletArea{5, 6, 7, 8}};
        for (int frame = 0; frame <= 100; ++frame) recorder_->recordTrays(trays);
        recorder_->flush();
        QTRY_COMPARE(finished.size(), 1);
        const QStringList files = QDir(work_.path()).entryList({"*trayInfo.txt"}, QDir::Files);
        QCOMPARE(files.size(), 1);
        QCOMPARE(files[0].size(), int(std::strlen("yyyyMMddhhmmsszzztrayInfo.txt")));
        const QByteArray text = readAll(QDir(work_.path()).filePath(files[0]));
        QCOMPARE(text.count("\r\n"), 200);
        QVERIFY(text.startsWith("0,1,3,3,0.13\r\n1,10,20,30,1.50\r\n"));
        recorder_->recordTrays(trays);  // closed: nothing more
        recorder_->flush();
        QCOMPARE(readAll(QDir(work_.path()).filePath(files[0])).size(), text.size());
    }
};

QTEST_GUILESS_MAIN(RecorderTest)
#include "recorder_test.moc"
