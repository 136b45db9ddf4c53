// The health monitor against a fake camera's counters, driven reading by
// reading: nothing while no stream runs, a baseline first, then figures,
// and one log line when loss passes its threshold and one when it is gone.
#include "healthmonitor.h"

#include <QtTest>

#include "acquisition.h"
#include "fakecamera.h"
#include "nullconverter.h"

namespace {

StreamStatistics udpCounters(uint64_t frames, uint64_t received, uint64_t lost) {
    StreamStatistics s;
    s.udp = true;
    s.framesComplete = frames;
    s.bytesReceived = frames * 700'000;
    s.packetsReceived = received;
    s.packetsLost = lost;
    s.packetsResendRequested = lost;
    return s;
}

}  // namespace

class HealthMonitorTest : public QObject {
    Q_OBJECT

private slots:
    void withoutCountersTheMonitorIsUnavailable() {
        FakeCamera camera;
        NullConverter converter;
        Acquisition acquisition(camera, converter, [](const QString&) {});
        HealthMonitor monitor(
            camera, acquisition, nullptr, [](const QString&) {}, 0);
        QVERIFY(!monitor.available());
        camera.keepsStreamStatistics = true;
        QVERIFY(monitor.available());
    }

    void readingsBecomeFiguresAndLossLinesOnce() {
        FakeCamera camera;
        camera.keepsStreamStatistics = true;
        NullConverter converter;
        Acquisition acquisition(camera, converter, [](const QString&) {});
        QStringList log;
        PaintCounts painted{};
        HealthMonitor monitor(
            camera, acquisition, [&painted] { return painted; }, [&log](const QString& l) { log << l; }, 0);
        QList<HealthFigures> figures;
        connect(&monitor, &HealthMonitor::figuresChanged, this, [&](const HealthFigures& f) { figures << f; });

        camera.setStreamStatistics(udpCounters(10, 1000, 0));
        monitor.sample(1.0);  // no stream: nothing
        QVERIFY(figures.isEmpty());

        acquisition.setStreaming(true);
        monitor.sample(1.0);  // the baseline
        QVERIFY(figures.isEmpty());
        camera.setStreamStatistics(udpCounters(30, 1900, 100));  // 100 of 1000 lost
        painted = {18, 20, 0};
        monitor.sample(1.0);
        QCOMPARE(figures.size(), 1);
        QCOMPARE(figures.last().receivedFps, 20.0);
        QCOMPARE(figures.last().paintedFps[0], 18.0);
        QCOMPARE(figures.last().lossShare, 0.1);
        QCOMPARE(log.size(), 1);
        QVERIFY2(log.last().contains(QString::fromUtf8("网络丢包 10.0%")), qPrintable(log.last()));

        camera.setStreamStatistics(udpCounters(50, 2800, 200));
        monitor.sample(1.0);
        QCOMPARE(log.size(), 1);  // still lossy: no new line
        camera.setStreamStatistics(udpCounters(70, 3800, 200));
        monitor.sample(1.0);
        QCOMPARE(log.size(), 2);
        QVERIFY2(log.last().contains(QString::fromUtf8("网络已恢复")), qPrintable(log.last()));

        // A stop ends the series; the next stream starts with a new baseline.
        acquisition.setStreaming(false);
        monitor.sample(1.0);
        acquisition.setStreaming(true);
        camera.setStreamStatistics(udpCounters(5, 100, 0));
        const int before = figures.size();
        monitor.sample(1.0);
        QCOMPARE(figures.size(), before);
        acquisition.setStreaming(false);
    }
};

QTEST_MAIN(HealthMonitorTest)
#include "healthmonitor_test.moc"
