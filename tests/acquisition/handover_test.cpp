// Functions handed from worker threads to the window's thread: each runs
// once, there, in the order each worker posted it, and never for a context
// that is gone.
#include "handover.h"

#include <QThread>
#include <QtTest>
#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

class HandoverTest : public QObject {
    Q_OBJECT

private slots:
    void functionsRunOnTheHandoversThreadInEachPostersOrder() {
        Handover handover;
        QObject context;
        constexpr int kThreads = 4, kEach = 200;
        std::vector<std::vector<int>> seen(kThreads);
        int offThread = 0;
        std::vector<std::thread> posters;
        for (int t = 0; t < kThreads; ++t)
            posters.emplace_back([&, t] {
                for (int i = 0; i < kEach; ++i)
                    handover.post(&context, [&, t, i] {
                        if (QThread::currentThread() != context.thread()) ++offThread;
                        seen[t].push_back(i);
                    });
            });
        for (std::thread& p : posters) p.join();
        QVERIFY(QTest::qWaitFor([&] {
            std::size_t n = 0;
            for (const auto& s : seen) n += s.size();
            return n == std::size_t(kThreads * kEach);
        }));
        QCOMPARE(offThread, 0);
        for (const auto& s : seen) {
            QCOMPARE(int(s.size()), kEach);
            QVERIFY(std::is_sorted(s.begin(), s.end()));
        }
    }

    void nothingRunsForAContextDeletedBeforeDelivery() {
        Handover handover;
        auto gone = std::make_unique<QObject>();
        QObject kept;
        bool ranForGone = false, ranForKept = false;
        std::thread([&] {
            handover.post(gone.get(), [&] { ranForGone = true; });
            handover.post(&kept, [&] { ranForKept = true; });
        }).join();
        gone.reset();
        QVERIFY(QTest::qWaitFor([&] { return ranForKept; }));
        QVERIFY(!ranForGone);
    }

    void aContextOnAnotherThreadIsServedOnItsOwnThread() {
        Handover handover;
        QThread other;
        other.start();
        auto* context = new QObject;
        context->moveToThread(&other);
        std::atomic<QThread*> ranOn{nullptr};
        std::thread([&] { handover.post(context, [&] { ranOn = QThread::currentThread(); }); }).join();
        QVERIFY(QTest::qWaitFor([&] { return ranOn.load() != nullptr; }));
        QCOMPARE(ranOn.load(), &other);
        context->deleteLater();  // on its own thread, as that ends
        other.quit();
        other.wait();
    }
};

QTEST_GUILESS_MAIN(HandoverTest)
#include "handover_test.moc"
