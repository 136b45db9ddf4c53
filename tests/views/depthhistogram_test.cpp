// The histogram's handles ask for ranges the editors can take: within their
// limits, the minimum never past the maximum, only on release; auto range
// asks for the frame's percentiles.
#include "depthhistogram.h"

#include <gtest/gtest.h>

#include <QMouseEvent>
#include <QSignalSpy>
#include <QToolButton>

#include "qtapp.h"

namespace {

class DepthHistogramTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { qtApp(); }
    void SetUp() override {
        view.resize(600, view.height());
        view.setRange(1000, 3000);
    }
    void mouse(QEvent::Type type, int x) {
        const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent e(type, QPoint(x, view.height() / 2), Qt::LeftButton, held, Qt::NoModifier);
        QApplication::sendEvent(&view, &e);
    }
    void drag(int from, int to) {
        mouse(QEvent::MouseButtonPress, from);
        mouse(QEvent::MouseMove, to);
        mouse(QEvent::MouseButtonRelease, to);
    }
    DepthHistogramView view;
};

TEST_F(DepthHistogramTest, SpanCoversTheFarPercentileOrTheRange) {
    EXPECT_EQ(DepthHistogramView::spanFor(4000, 5000), 6000);  // 5000 x 1.1, up to whole metres
    EXPECT_EQ(DepthHistogramView::spanFor(6000, 1000), 7000);  // 6000 x 1.15
    EXPECT_EQ(DepthHistogramView::spanFor(-1, 15000), 16000);
    EXPECT_EQ(DepthHistogramView::spanFor(-1, 100), 1000);
}

TEST_F(DepthHistogramTest, HandlesAskForARangeOnlyWhenReleased) {
    QSignalSpy asked(&view, &DepthHistogramView::rangeRequested);
    const int target = view.handleX(1) + 60;
    const int wanted = view.depthAt(target);
    mouse(QEvent::MouseButtonPress, view.handleX(1));
    mouse(QEvent::MouseMove, target);
    EXPECT_EQ(asked.count(), 0);  // dragging only previews
    mouse(QEvent::MouseButtonRelease, target);
    ASSERT_EQ(asked.count(), 1);
    EXPECT_EQ(asked.last()[0].toInt(), 1000);
    EXPECT_EQ(asked.last()[1].toInt(), wanted);
    // The panel has not answered: the handles still show the range in force.
    EXPECT_EQ(view.rangeMax(), 3000);

    // The minimum stops at the maximum, and at the editors' lower limit.
    drag(view.handleX(0), view.width() - 2);
    EXPECT_EQ(asked.last()[0].toInt(), 3000);
    drag(view.handleX(0), 0);
    EXPECT_EQ(asked.last()[0].toInt(), DepthHistogramView::kRangeMin);

    // Far from both handles nothing is picked up.
    const int before = asked.count();
    drag((view.handleX(0) + view.handleX(1)) / 2, 10);
    EXPECT_EQ(asked.count(), before);
}

TEST_F(DepthHistogramTest, AutoRangeAsksForTheFramesPercentiles) {
    QSignalSpy asked(&view, &DepthHistogramView::rangeRequested);
    view.autoRangeButton()->click();
    EXPECT_EQ(asked.count(), 0);  // no frame yet
    DepthHistogram h;
    h.valid = 100;
    h.low = 42;  // nearer than the editors go
    h.high = 2500;
    view.setHistogram(h);
    view.autoRangeButton()->click();
    ASSERT_EQ(asked.count(), 1);
    EXPECT_EQ(asked.last()[0].toInt(), DepthHistogramView::kRangeMin);
    EXPECT_EQ(asked.last()[1].toInt(), 2500);
}

}  // namespace
