// The frame workers against a fake camera: which read each mode makes, the
// newest-frame hand-off to a slow painter, the point-cloud hand-off, failed
// reads, and the buffer switch of a start against a painter holding a lock.
#include "acquisition.h"

#include <QtTest>
#include <atomic>
#include <mutex>

#include "blockingcall.h"
#include "compatibility.h"
#include "fakecamera.h"

namespace {

class CountingConverter final : public FrameConverter {
public:
    std::atomic<int> depth{0}, ir{0}, rgb{0};
    void convertDepth(const DistanceData&, QImage&, ValueMatrix<double>&) override { ++depth; }
    void convertIr(const GrayscaleData&, QImage&, ValueMatrix<double>&) override { ++ir; }
    void convertRgb(const RgbImageData&, QImage&, ValueMatrix<QRgb>&) override { ++rgb; }
};

struct Rig {
    FakeCamera camera;
    CountingConverter converter;
    std::mutex logMutex;
    QStringList log;
    std::unique_ptr<Acquisition> acquisition;
    // Emissions, counted on the worker's thread as they happen.
    std::atomic<int> dep{0}, ir{0}, rgb{0}, cloud{0}, rgbCloud{0};

    Rig() {
        camera.frameIntervalMs = 1;
        acquisition = std::make_unique<Acquisition>(camera, converter, [this](const QString& line) {
            std::lock_guard<std::mutex> lock(logMutex);
            log << line;
        });
        Acquisition* a = acquisition.get();
        QObject::connect(
            a, &Acquisition::paintDep, a, [this] { ++dep; }, Qt::DirectConnection);
        QObject::connect(
            a, &Acquisition::paintIR, a, [this] { ++ir; }, Qt::DirectConnection);
        QObject::connect(
            a, &Acquisition::paintRgb, a, [this] { ++rgb; }, Qt::DirectConnection);
        QObject::connect(
            a, QOverload<float*>::of(&Acquisition::paintCp), a, [this](float*) { ++cloud; }, Qt::DirectConnection);
        QObject::connect(
            a, QOverload<RgbPointcloudData*>::of(&Acquisition::paintCp), a, [this](RgbPointcloudData*) { ++rgbCloud; },
            Qt::DirectConnection);
    }
    ~Rig() { acquisition.reset(); }

    // Waits until `kind` has been read `more` more times.
    bool reads(Acquisition::FrameRead kind, unsigned more) {
        const unsigned start = acquisition->frameReads(kind);
        QElapsedTimer t;
        t.start();
        while (acquisition->frameReads(kind) < start + more)
            if (t.elapsed() > 20000)
                return false;
            else
                QThread::yieldCurrentThread();
        return true;
    }
    QStringList lines() {
        std::lock_guard<std::mutex> lock(logMutex);
        return log;
    }
};

}  // namespace

class AcquisitionTest : public QObject {
    Q_OBJECT

private slots:
    void aSlowPainterGetsOneQueuedFrameAndThenTheNewest() {
        Rig r;
        r.acquisition->setStreaming(true);
        QVERIFY(r.reads(Acquisition::TofRead, 5));
        // Four frames at least converted (the fifth may still be under
        // way), one paint asked for: nobody took it yet.
        QVERIFY(r.converter.depth >= 4);
        QCOMPARE(int(r.dep), 1);
        QCOMPARE(int(r.ir), 1);
        QCOMPARE(int(r.rgb), 0);
        QCOMPARE(r.camera.count("GetRgbTofData"), 0);

        r.acquisition->paintTaken(ImageKind::Depth);
        QVERIFY(r.reads(Acquisition::TofRead, 5));
        QCOMPARE(int(r.dep), 2);
        QCOMPARE(int(r.ir), 1);
    }

    void colourModelsReadDepthAndColourTogether() {
        Rig r;
        r.acquisition->setRgbFrames(true);
        r.acquisition->setStreaming(true);
        QVERIFY(r.reads(Acquisition::RgbTofRead, 3));
        QCOMPARE(r.acquisition->frameReads(Acquisition::TofRead), 0u);
        QCOMPARE(int(r.rgb), 1);
        QVERIFY(r.converter.rgb >= 2);
        // The colour stream's width picks the full-HD image.
        std::lock_guard<std::mutex> lock(r.acquisition->imageMutex(ImageKind::Rgb));
        QCOMPARE(r.acquisition->frames().currentRgbImage().size(), QSize(1920, 1080));
    }

    void pointsGoToTheCloudOnlyWhenWantedAndOneBufferAtATime() {
        Rig r;
        r.acquisition->setStreaming(true);
        QVERIFY(r.reads(Acquisition::TofRead, 3));
        QCOMPARE(int(r.cloud), 0);
        r.acquisition->setCloudWanted(true);
        QVERIFY(r.reads(Acquisition::TofRead, 3));
        QCOMPARE(int(r.cloud), 1);
        r.acquisition->cloudTaken();
        QVERIFY(r.reads(Acquisition::TofRead, 3));
        QCOMPARE(int(r.cloud), 2);
    }

    // The histogram and region figures come from the workers only when asked
    // for, announced once until taken, like a paint.
    void figuresAreComputedOnlyWhenAskedAndAnnouncedOnce() {
        Rig r;
        std::atomic<int> announced{0};
        FrameAnalysis& analysis = r.acquisition->analysis();
        QObject::connect(
            &analysis, &FrameAnalysis::figuresReady, &analysis, [&announced] { ++announced; }, Qt::DirectConnection);
        r.acquisition->setStreaming(true);
        QVERIFY(r.reads(Acquisition::TofRead, 3));
        QCOMPARE(int(announced), 0);

        analysis.setHistogramWanted(true);
        analysis.setRegion(RegionSource::Ir, 20, 10, 29, 19);
        QVERIFY(r.reads(Acquisition::TofRead, 4));
        QCOMPARE(int(announced), 1);  // nobody took the first yet
        FrameFigures f;
        analysis.take(f);
        QVERIFY(f.histogramValid);
        QCOMPARE(f.histogram.valid, 640u * 480u);  // the fake camera's depth is 1000 mm everywhere
        QCOMPARE(f.histogram.bins[100], 640u * 480u);
        QCOMPARE(f.histogram.low, 1000);
        QCOMPARE(f.regionSource, RegionSource::Ir);
        QCOMPARE(f.channels, 1);
        QCOMPARE(f.stats[0].pixels, uint64_t(100));
        QVERIFY(r.reads(Acquisition::TofRead, 2));
        QCOMPARE(int(announced), 2);

        analysis.setHistogramWanted(false);
        analysis.clearRegion();
        analysis.take(f);
        QVERIFY(r.reads(Acquisition::TofRead, 3));
        QVERIFY(int(announced) <= 3);  // at most a frame that was already under way
        const int settled = announced;
        analysis.take(f);
        QVERIFY(r.reads(Acquisition::TofRead, 3));
        QCOMPARE(int(announced), settled);
    }

    void registrationPicksTheRegisteredRead() {
        Rig r;
        r.acquisition->setCloudWanted(true);
        r.acquisition->setRegistration(true, false);
        r.acquisition->setStreaming(true);
        QVERIFY(r.reads(Acquisition::RgbToDepthRead, 3));
        {
            std::lock_guard<std::mutex> lock(r.acquisition->imageMutex(ImageKind::Rgb));
            QCOMPARE(r.acquisition->frames().currentRgbImage().size(), QSize(640, 480));
        }
        QCOMPARE(int(r.rgbCloud), 1);
        r.acquisition->setRegistration(false, true);
        QVERIFY(r.reads(Acquisition::DepthToRgbRead, 3));
        {
            std::lock_guard<std::mutex> lock(r.acquisition->imageMutex(ImageKind::Depth));
            QCOMPARE(r.acquisition->frames().currentDepthImage().size(), QSize(1920, 1080));
        }
        r.acquisition->setRegistration(false, false);
        QVERIFY(r.reads(Acquisition::TofRead, 3));
    }

    void aFailedReadIsLoggedWithItsLineAndRetried() {
        Rig r;
        r.camera.failNext("GetTofData", TIMEOUT);
        r.acquisition->setStreaming(true);
        QVERIFY(r.reads(Acquisition::TofRead, 2));
        r.camera.failNext("GetRgbTofData", NETWORK_ERROR);
        r.acquisition->setRgbFrames(true);
        QVERIFY(r.reads(Acquisition::RgbTofRead, 2));
        // The line numbers are the ones these reads have always been logged with.
        QCOMPARE(r.lines(), (QStringList{"operator () 1673 code 5", "operator () 1689 code 33"}));
        QCOMPARE(Compatibility::kTofReadFailureLine, 1673);
        QCOMPARE(Compatibility::kRgbTofReadFailureLine, 1689);
    }

    // The start chooses the images for the colour stream's width while a
    // painter may hold an image lock: the switch must wait for it.
    void theStartsBufferSwitchWaitsForThePaintersLock() {
        Rig r;
        std::unique_lock<std::mutex> painting(r.acquisition->imageMutex(ImageKind::Rgb));
        const FrameBuffers::Selection before = r.acquisition->frames().selection();
        sdktest::BlockingCall start([&] { r.acquisition->selectForStart(1600); });
        QVERIFY2(start.blocks(), "the switch went ahead while a paint held the colour image");
        QVERIFY(r.acquisition->frames().selection() == before);
        painting.unlock();
        start.join();
        QCOMPARE(r.acquisition->frames().currentRgbImage().size(), QSize(1600, 1200));
    }
};

QTEST_GUILESS_MAIN(AcquisitionTest)
#include "acquisition_test.moc"
