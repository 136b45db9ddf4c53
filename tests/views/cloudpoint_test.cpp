#include "cloudpoint.h"

#include <gtest/gtest.h>
#include <vtkCallbackCommand.h>
#include <vtkCamera.h>
#include <vtkFloatArray.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>

#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <memory>
#include <vector>

#include "cloudpipeline.h"
#include "qtapp.h"

namespace {

std::vector<float> flatCloud(float z) {
    std::vector<float> xyz(std::size_t(kCloudPoints) * 3);
    for (int i = 0; i < kCloudPoints; ++i) {
        xyz[3 * i] = float(i % kCloudWidth) - 320.0f;
        xyz[3 * i + 1] = float(i / kCloudWidth) - 240.0f;
        xyz[3 * i + 2] = z;
    }
    return xyz;
}

class CloudPointTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (std::getenv("DISPLAY")) qtApp();
    }

    void SetUp() override {
        if (!std::getenv("DISPLAY")) GTEST_SKIP() << "the 3D view needs an X server (run under xvfb-run)";
        view = std::make_unique<CloudPoint>();
        view->resize(640, 480);
        view->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
    }

    // Reads the drawing side once everything asked so far has been drawn.
    template <typename T>
    T drawn(const std::function<T(CloudPipeline&)>& read) {
        T value{};
        view->inspect([&](CloudPipeline& p, vtkRenderWindow&) { value = read(p); });
        return value;
    }
    vtkIdType pointCount() {
        return drawn<vtkIdType>([](CloudPipeline& p) { return p.polyData()->GetNumberOfPoints(); });
    }
    std::array<double, 3> point(vtkIdType i) {
        return drawn<std::array<double, 3>>([i](CloudPipeline& p) {
            std::array<double, 3> xyz{};
            p.polyData()->GetPoints()->GetPoint(i, xyz.data());
            return xyz;
        });
    }
    double depth(vtkIdType i) {
        return drawn<double>([i](CloudPipeline& p) { return p.depth()[i]; });
    }
    std::array<double, 3> cameraPosition() {
        return drawn<std::array<double, 3>>([](CloudPipeline& p) {
            std::array<double, 3> xyz{};
            p.renderer()->GetActiveCamera()->GetPosition(xyz.data());
            return xyz;
        });
    }
    // Non-black pixels of what the window shows of the view.
    int litPixels() {
        const QImage shown = view->canvas()->grab().toImage();
        int lit = 0;
        for (int y = 0; y < shown.height(); y += 4)
            for (int x = 0; x < shown.width(); x += 4) lit += (shown.pixel(x, y) & 0xffffff) != 0;
        return lit;
    }

    vtkIdType cellCount() {
        return drawn<vtkIdType>([](CloudPipeline& p) { return p.polyData()->GetVerts()->GetNumberOfCells(); });
    }
    std::string scalarsName() {
        return drawn<std::string>([](CloudPipeline& p) { return p.polyData()->GetPointData()->GetScalars()->GetName(); });
    }

    std::unique_ptr<CloudPoint> view;
};

TEST_F(CloudPointTest, ValidityRuleAtTheLimits) {
    std::vector<float> xyz = flatCloud(1000);
    xyz[2] = 100;                         // point 0: exactly the near limit
    xyz[5] = 15000;                       // point 1: exactly the far limit
    xyz[8] = 100.5f;                      // point 2: just inside
    xyz[11] = 14999.5f;                   // point 3: just inside
    xyz[3 * (kCloudPoints - 1) + 2] = 0;  // last: no measurement
    view->paintCpDat(xyz.data());
    ASSERT_EQ(pointCount(), kCloudPoints);
    EXPECT_EQ(point(0), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(depth(0), 0.0);
    EXPECT_EQ(point(1), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(depth(1), 0.0);
    EXPECT_EQ(point(2), (std::array<double, 3>{-318, -240, 100.5}));
    EXPECT_EQ(depth(3), 14999.5);
    EXPECT_EQ(point(kCloudPoints - 1), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(point(kCloudWidth + 5), (std::array<double, 3>{5 - 320, 1 - 240, 1000}));
    EXPECT_EQ(view->pointcloudeNum(), kCloudPoints - 3) << "counted when the frame is taken, not when drawn";
    EXPECT_TRUE(view->idle());
}

TEST_F(CloudPointTest, BusyUntilDrawnThenOnScreen) {
    struct Watch {
        CloudPoint* view;
        std::vector<bool> seen;
    } watch{view.get(), {}};
    vtkNew<vtkCallbackCommand> onRender;
    onRender->SetClientData(&watch);
    onRender->SetCallback([](vtkObject*, unsigned long, void* data, void*) {
        auto* w = static_cast<Watch*>(data);
        w->seen.push_back(w->view->idle());
    });
    std::vector<float> xyz = flatCloud(2000);
    view->paintCpDat(xyz.data());  // the first frame also moves the camera, after the frame is done
    view->inspect([&](CloudPipeline&, vtkRenderWindow& window) { window.AddObserver(vtkCommand::StartEvent, onRender); });
    view->paintCpDat(xyz.data());
    const uint64_t before = view->renders();
    view->inspect([](CloudPipeline&, vtkRenderWindow&) {});
    ASSERT_FALSE(watch.seen.empty()) << "a visible view draws every frame it takes";
    for (bool idle : watch.seen) EXPECT_FALSE(idle) << "the view must not read as idle during the update";
    EXPECT_TRUE(view->idle());
    EXPECT_GT(view->renders(), before);
    view->inspect([&](CloudPipeline&, vtkRenderWindow& window) { window.RemoveObserver(onRender); });

    // The drawn picture reaches the screen: a flat cloud at 2 m fills the
    // middle of the main view.
    ASSERT_TRUE(QTest::qWaitFor([&] { return litPixels() > 500; }, 5000)) << litPixels() << " lit";
    EXPECT_GT(view->picturesShown(), 0u);
    view->clearWindow();
    ASSERT_TRUE(QTest::qWaitFor([&] { return litPixels() < 50; }, 5000)) << "a cleared view shows only the axes";
}

TEST_F(CloudPointTest, FramesArrivingDuringARenderAreDrawnOnceAsTheNewest) {
    const std::vector<float> clouds[] = {flatCloud(1000), flatCloud(2000), flatCloud(3000), flatCloud(4000)};
    // The drawing side is held until all four are in, so they meet in one batch.
    std::mutex gate;
    std::unique_lock<std::mutex> hold(gate);
    std::atomic<bool> held{false};
    std::thread blocker([&] {
        view->inspect([&](CloudPipeline&, vtkRenderWindow&) {
            held = true;
            std::lock_guard<std::mutex> wait(gate);
        });
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return held.load(); }, 5000));
    const uint64_t before = view->renders();
    for (const auto& c : clouds) view->paintCpDat(const_cast<float*>(c.data()));
    EXPECT_FALSE(view->idle());
    hold.unlock();
    blocker.join();
    EXPECT_EQ(depth(kCloudWidth + 5), 4000.0);
    EXPECT_TRUE(view->idle()) << "replaced frames count as done";
    EXPECT_EQ(view->renders() - before, 1u);
}

TEST_F(CloudPointTest, DraggingRotatesTheCamera) {
    std::vector<float> xyz = flatCloud(1500);
    view->paintCpDat(xyz.data());
    const auto start = cameraPosition();
    QWidget* canvas = view->canvas();
    const QPoint from = canvas->rect().center();
    QTest::mousePress(canvas, Qt::LeftButton, Qt::NoModifier, from);
    for (int dx = 10; dx <= 100; dx += 10) {
        QMouseEvent move(QEvent::MouseMove, from + QPoint(dx, 0), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(canvas, &move);
    }
    QTest::mouseRelease(canvas, Qt::LeftButton, Qt::NoModifier, from + QPoint(100, 0));
    const auto turned = cameraPosition();
    EXPECT_NE(turned[0], start[0]) << "a sideways drag swings the camera round the cloud";

    QWheelEvent wheel(QPointF(from), QPointF(canvas->mapToGlobal(from)), QPoint(), QPoint(0, 120), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(canvas, &wheel);
    const auto zoomed = cameraPosition();
    const double focus = drawn<double>([](CloudPipeline& p) { return p.renderer()->GetActiveCamera()->GetDistance(); });
    EXPECT_NE(zoomed, turned);
    EXPECT_GT(focus, 0.0);
}

TEST_F(CloudPointTest, HiddenViewDropsFrames) {
    std::vector<float> xyz = flatCloud(1000);
    view->paintCpDat(xyz.data());
    EXPECT_EQ(depth(kCloudWidth + 5), 1000.0);
    view->hide();
    std::vector<float> other = flatCloud(3000);
    const uint64_t renders = view->renders();
    view->paintCpDat(other.data());
    EXPECT_TRUE(view->idle()) << "dropped at once";
    EXPECT_EQ(view->renders(), renders);
    EXPECT_EQ(depth(kCloudWidth + 5), 1000.0) << "a hidden view keeps the last frame";
    view->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
    view->paintCpDat(other.data());
    EXPECT_EQ(depth(kCloudWidth + 5), 3000.0);
}

TEST_F(CloudPointTest, FirstFrameAfterClearResetsCameraToMainView) {
    const QWidget* area = view->canvas();
    const double add = cameraPreset(CAMERA_MAIN_VIEW, area->width(), area->height()).cameraAddDis;
    std::vector<float> xyz = flatCloud(1000);
    view->paintCpDat(xyz.data());
    EXPECT_FALSE(view->firstFrame());
    view->SetCamera(CAMERA_TOP_VIEW);
    view->paintCpDat(xyz.data());
    EXPECT_EQ(view->cameraType(), CAMERA_TOP_VIEW) << "later frames leave the user's camera alone";
    EXPECT_DOUBLE_EQ(cameraPosition()[1], -8000 - add);

    view->clearWindow();
    EXPECT_TRUE(view->firstFrame());
    EXPECT_EQ(point(kCloudWidth + 5), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(view->pointcloudeNum(), 0);
    view->paintCpDat(xyz.data());
    EXPECT_FALSE(view->firstFrame());
    EXPECT_EQ(view->cameraType(), CAMERA_MAIN_VIEW);
    const auto pos = cameraPosition();
    EXPECT_DOUBLE_EQ(pos[2], -1200 - add);
    EXPECT_EQ(pos[0], 0.0);
}

TEST_F(CloudPointTest, TallWindowMovesCameraBack) {
    view->resize(400, 600);
    QApplication::processEvents();
    view->SetCamera(CAMERA_LEFT_VIEW);
    const double add = (600.0 / 400.0 - kBestProportion) * 3000;
    EXPECT_DOUBLE_EQ(cameraPosition()[0], -6000 - add);
    view->SetCamera(CameraPosType(9));  // unknown: main view
    EXPECT_DOUBLE_EQ(cameraPosition()[2], -1200 - add);
}

TEST_F(CloudPointTest, ColouredFramesAndDimensions) {
    RgbPointcloudData frame(1080, 1920);
    for (unsigned i = 0; i < 1080u * 1920u; ++i) frame.data()[i] = {1, 2, 1500, 10, 20, 30, 0};
    frame.data()[2].z = 100;  // grid point 1 samples source column 2
    view->configurePoints(true, kCloudPoints, 1920, 1080);
    EXPECT_EQ(view->dataDimensions(), QSize(1920, 1080));
    view->paintCpDat(&frame);
    ASSERT_EQ(pointCount(), 518400);
    EXPECT_EQ(view->pointcloudeNum(), 518399);
    EXPECT_EQ(scalarsName(), "colour");
    EXPECT_EQ(drawn<int>([](CloudPipeline& p) { return p.colours()[0]; }), 10);
    EXPECT_EQ(drawn<int>([](CloudPipeline& p) { return p.colours()[3]; }), 0) << "invalid point is black";
    EXPECT_EQ(cellCount(), 518400);

    view->clearWindow();  // a 1920-wide grid clears 518,400 points
    EXPECT_EQ(pointCount(), 518400);
    EXPECT_EQ(point(100), (std::array<double, 3>{0, 0, 0}));

    view->configurePoints(false, kCloudPoints, 640, 480);
    std::vector<float> xyz = flatCloud(1000);
    view->paintCpDat(xyz.data());
    EXPECT_EQ(pointCount(), kCloudPoints);
    EXPECT_EQ(cellCount(), kCloudPoints);
    EXPECT_EQ(scalarsName(), "depth");
}

TEST_F(CloudPointTest, RangeMultisamplingDoubleClickAndButtons) {
    view->setRange(300, 4000);
    view->inspect([](CloudPipeline& p, vtkRenderWindow& window) {
        double range[2];
        p.mapper()->GetScalarRange(range);
        EXPECT_EQ(range[0], 300.0);
        EXPECT_EQ(range[1], 4000.0);
        EXPECT_EQ(window.GetMultiSamples(), 0);
    });

    QSignalSpy norm(view.get(), &CloudPoint::showNorm);
    QMouseEvent dbl(QEvent::MouseButtonDblClick, QPoint(20, 20), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view->canvas(), &dbl);  // the view sees what lands on its drawing area
    ASSERT_EQ(norm.count(), 1);
    EXPECT_EQ(norm.at(0).at(0).value<CloudPoint*>(), view.get());

    view->addButton();
    view->addButton();  // once only
    const auto buttons = view->findChildren<QPushButton*>();
    ASSERT_EQ(buttons.size(), 3);
    buttons[1]->click();
    EXPECT_EQ(view->cameraType(), CAMERA_TOP_VIEW);
    buttons[2]->click();
    EXPECT_EQ(view->cameraType(), CAMERA_LEFT_VIEW);
}

}  // namespace
