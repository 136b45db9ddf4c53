#include <gtest/gtest.h>

#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <QScrollBar>
#include <QSignalSpy>
#include <QWheelEvent>
#include <array>
#include <cmath>
#include <memory>

#include "graphicsview.h"
#include "qtapp.h"

namespace {

class GraphicsViewTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { qtApp(); }

    void SetUp() override {
        scene = std::make_unique<QGraphicsScene>(0, 0, 640, 480);
        QImage image(640, 480, QImage::Format_RGB32);
        image.fill(Qt::gray);
        scene->addPixmap(QPixmap::fromImage(image));
        view = std::make_unique<GraphicsView>();
        view->setScene(scene.get());
        view->resize(800, 600);
        view->show();
        QApplication::processEvents();
    }

    void mouse(QEvent::Type type, QPoint pos, Qt::MouseButton button) {
        const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
        QMouseEvent event(type, pos, view->viewport()->mapToGlobal(pos), button, held, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &event);
    }

    void wheel(QPoint angle) {
        const QPointF pos(100, 100);
        QWheelEvent event(pos, view->viewport()->mapToGlobal(pos.toPoint()), QPoint(), angle, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(view->viewport(), &event);
    }

    // Shrinks the image to the middle of the viewport so points outside it are clickable.
    void zoomOut() {
        for (int i = 0; i < 4; ++i) wheel(QPoint(0, -120));
    }

    std::unique_ptr<QGraphicsScene> scene;
    std::unique_ptr<GraphicsView> view;
};

TEST_F(GraphicsViewTest, ConstructionDefaults) {
    GraphicsView fresh;
    EXPECT_EQ(fresh.imageSize(), QSize(640, 480));
    EXPECT_FLOAT_EQ(fresh.zoom(), 0.5f);
    EXPECT_EQ(fresh.image().size(), QSize(640, 480));
    EXPECT_EQ(fresh.horizontalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    EXPECT_EQ(fresh.verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
}

TEST_F(GraphicsViewTest, LeftClickStoresClampedAndNormalisedPosition) {
    zoomOut();
    QSignalSpy render(view.get(), &GraphicsView::renderOnce);
    struct Case {
        QPointF scene, clamped;
    };
    const Case cases[] = {
        {{-40, -40}, {0, 0}},
        {{700, 520}, {639, 479}},
        {{-40, 600}, {0, 479}},
        {{639.6, 10}, {639, 10}},  // at or past the last pixel becomes the last pixel
    };
    for (const auto& c : cases) {
        mouse(QEvent::MouseButtonPress, view->mapFromScene(c.scene), Qt::LeftButton);
        mouse(QEvent::MouseButtonRelease, view->mapFromScene(c.scene), Qt::LeftButton);
        const QPointF got = GraphicsView::clickedPosition();
        // The widget position is whole pixels, so allow one pixel of the zoomed-out view.
        EXPECT_NEAR(got.x(), c.clamped.x(), 3.0) << c.scene.x();
        EXPECT_NEAR(got.y(), c.clamped.y(), 3.0) << c.scene.y();
        EXPECT_GE(got.x(), 0.0);
        EXPECT_LE(got.x(), 639.0);
        EXPECT_GE(got.y(), 0.0);
        EXPECT_LE(got.y(), 479.0);
        EXPECT_DOUBLE_EQ(GraphicsView::normalisedPosition().x(), got.x() / 639.0);
        EXPECT_DOUBLE_EQ(GraphicsView::normalisedPosition().y(), got.y() / 479.0);
    }
    EXPECT_EQ(GraphicsView::clickedPosition().x(), 639.0);
    EXPECT_EQ(render.count(), 4);

    // The right button never moves the read-out point.
    mouse(QEvent::MouseButtonPress, view->mapFromScene(QPointF(100, 100)), Qt::RightButton);
    mouse(QEvent::MouseButtonRelease, view->mapFromScene(QPointF(100, 100)), Qt::RightButton);
    EXPECT_EQ(GraphicsView::clickedPosition().x(), 639.0);
    EXPECT_EQ(render.count(), 4);
}

TEST_F(GraphicsViewTest, ClickPositionIsSharedByAllViews) {
    GraphicsView other;
    QGraphicsScene otherScene(0, 0, 640, 480);
    other.setScene(&otherScene);
    other.resize(400, 300);
    other.show();
    QApplication::processEvents();
    QMouseEvent press(QEvent::MouseButtonPress, other.mapFromScene(QPointF(0, 0)), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QApplication::sendEvent(other.viewport(), &press);
    EXPECT_NEAR(GraphicsView::normalisedPosition().x(), 0.0, 0.01);
    mouse(QEvent::MouseButtonPress, view->mapFromScene(QPointF(639, 479)), Qt::LeftButton);
    EXPECT_NEAR(GraphicsView::normalisedPosition().x(), 1.0, 0.01);
    EXPECT_NEAR(GraphicsView::normalisedPosition().y(), 1.0, 0.01);
}

TEST_F(GraphicsViewTest, RectangleCallbackGetsPressAndRelease) {
    std::array<int, 4> got{-1, -1, -1, -1};
    int calls = 0;
    view->setRectangleCallback([&](int x1, int y1, int x2, int y2) {
        got = {x1, y1, x2, y2};
        ++calls;
    });
    const QPoint from = view->mapFromScene(QPointF(100, 50));
    const QPoint to = view->mapFromScene(QPointF(300, 200));
    mouse(QEvent::MouseButtonPress, from, Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, to, Qt::LeftButton);
    ASSERT_EQ(calls, 1);
    const QPointF a = view->mapToScene(from), b = view->mapToScene(to);
    EXPECT_EQ(got, (std::array<int, 4>{int(a.x()), int(a.y()), int(b.x()), int(b.y())}));
    EXPECT_NEAR(got[2], 300, 2);

    mouse(QEvent::MouseButtonPress, from, Qt::RightButton);
    mouse(QEvent::MouseButtonRelease, to, Qt::RightButton);
    EXPECT_EQ(calls, 1) << "a right release only ends panning";

    view->setRectangleCallback(nullptr);  // back to doing nothing, not crashing
    mouse(QEvent::MouseButtonPress, from, Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, to, Qt::LeftButton);
}

TEST_F(GraphicsViewTest, WheelZoomsWithoutLimits) {
    const float start = view->zoom();
    const qreal startScale = view->transform().m11();
    wheel(QPoint(0, 120));
    EXPECT_FLOAT_EQ(view->zoom(), start * 1.2f);
    EXPECT_NEAR(view->transform().m11(), startScale * 1.2, 1e-6);
    for (int i = 0; i < 9; ++i) wheel(QPoint(0, 120));
    for (int i = 0; i < 10; ++i) wheel(QPoint(0, -120));
    EXPECT_NEAR(view->zoom(), start, start * 1e-5);
    EXPECT_NEAR(view->transform().m11(), startScale, startScale * 1e-5);
    const float before = view->zoom();
    wheel(QPoint(120, 0));  // no vertical delta counts as "not positive"
    EXPECT_FLOAT_EQ(view->zoom(), before * 0.8333333f);
    for (int i = 0; i < 60; ++i) wheel(QPoint(0, 120));
    EXPECT_GT(view->zoom(), 10000.0f);
}

TEST_F(GraphicsViewTest, RightDragPansLeftDoesNot) {
    for (int i = 0; i < 8; ++i) wheel(QPoint(0, 120));  // image larger than the viewport
    QScrollBar* h = view->horizontalScrollBar();
    QScrollBar* v = view->verticalScrollBar();
    h->setValue((h->minimum() + h->maximum()) / 2);
    v->setValue((v->minimum() + v->maximum()) / 2);
    const int h0 = h->value(), v0 = v->value();

    mouse(QEvent::MouseButtonPress, QPoint(200, 200), Qt::LeftButton);
    mouse(QEvent::MouseMove, QPoint(150, 170), Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, QPoint(150, 170), Qt::LeftButton);
    EXPECT_EQ(h->value(), h0);
    EXPECT_EQ(v->value(), v0);

    mouse(QEvent::MouseButtonPress, QPoint(200, 200), Qt::RightButton);
    mouse(QEvent::MouseMove, QPoint(150, 170), Qt::RightButton);
    EXPECT_EQ(h->value(), h0 + 50);
    EXPECT_EQ(v->value(), v0 + 30);
    mouse(QEvent::MouseMove, QPoint(160, 190), Qt::RightButton);
    EXPECT_EQ(h->value(), h0 + 40);
    EXPECT_EQ(v->value(), v0 + 10);
    mouse(QEvent::MouseButtonRelease, QPoint(160, 190), Qt::RightButton);
    mouse(QEvent::MouseMove, QPoint(0, 0), Qt::NoButton);
    EXPECT_EQ(h->value(), h0 + 40) << "release ends the drag";
}

TEST_F(GraphicsViewTest, LeftDoubleClickAsksForMaximise) {
    QSignalSpy norm(view.get(), &GraphicsView::showNorm);
    mouse(QEvent::MouseButtonDblClick, QPoint(50, 50), Qt::RightButton);
    EXPECT_EQ(norm.count(), 0);
    mouse(QEvent::MouseButtonDblClick, QPoint(50, 50), Qt::LeftButton);
    ASSERT_EQ(norm.count(), 1);
    EXPECT_EQ(norm.at(0).at(0).value<GraphicsView*>(), view.get());
}

TEST_F(GraphicsViewTest, ResizeFitsTheScene) {
    for (int i = 0; i < 5; ++i) wheel(QPoint(0, 120));
    view->resize(500, 700);
    QApplication::processEvents();
    // Width is the tight side now: the whole image width just fits.
    const QRect shown = view->mapFromScene(view->sceneRect()).boundingRect();
    const QRect port = view->viewport()->rect();
    EXPECT_TRUE(port.adjusted(-2, -2, 2, 2).contains(shown)) << "image must fit after resize";
    EXPECT_NEAR(shown.width(), port.width(), 4);
}

}  // namespace

// A left drag outlines a region in image pixels, cut to the image; a click
// is not a region; Esc clears.
TEST_F(GraphicsViewTest, LeftDragSelectsARegionAndEscClearsIt) {
    QSignalSpy selected(view.get(), &GraphicsView::regionSelected);
    QSignalSpy cleared(view.get(), &GraphicsView::regionCleared);
    const QPoint a = view->mapFromScene(QPointF(100, 50));
    const QPoint b = view->mapFromScene(QPointF(200, 120));
    mouse(QEvent::MouseButtonPress, b, Qt::LeftButton);
    mouse(QEvent::MouseMove, a, Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, a, Qt::LeftButton);
    ASSERT_EQ(selected.count(), 1);
    const QList<QVariant> r = selected.first();
    EXPECT_NEAR(r[0].toInt(), 200, 2);  // the corners as dragged; the statistics order them
    EXPECT_NEAR(r[1].toInt(), 120, 2);
    EXPECT_NEAR(r[2].toInt(), 100, 2);
    EXPECT_NEAR(r[3].toInt(), 50, 2);

    // A click with a shaky hand is a click.
    mouse(QEvent::MouseButtonPress, a, Qt::LeftButton);
    mouse(QEvent::MouseMove, a + QPoint(2, 1), Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, a + QPoint(2, 1), Qt::LeftButton);
    EXPECT_EQ(selected.count(), 1);

    // Dragged beyond the image: cut to its last pixel.
    zoomOut();
    const QPoint inside = view->mapFromScene(QPointF(600, 400));
    const QPoint beyond = view->mapFromScene(QPointF(900, 700));
    mouse(QEvent::MouseButtonPress, inside, Qt::LeftButton);
    mouse(QEvent::MouseMove, beyond, Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, beyond, Qt::LeftButton);
    ASSERT_EQ(selected.count(), 2);
    EXPECT_EQ(selected.last()[2].toInt(), 639);
    EXPECT_EQ(selected.last()[3].toInt(), 479);

    QKeyEvent esc(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(view.get(), &esc);
    EXPECT_EQ(cleared.count(), 1);
}
