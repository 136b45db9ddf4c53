#include "cloudpoint.h"

#include <QVTKOpenGLWindow.h>
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
#include <cstdlib>
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

    vtkPolyData* poly() { return view->pipeline().polyData(); }
    std::array<double, 3> point(vtkIdType i) {
        std::array<double, 3> p{};
        poly()->GetPoints()->GetPoint(i, p.data());
        return p;
    }
    double depth(vtkIdType i) { return view->pipeline().depth()[i]; }
    std::array<double, 3> cameraPosition() {
        std::array<double, 3> p{};
        view->pipeline().renderer()->GetActiveCamera()->GetPosition(p.data());
        return p;
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
    ASSERT_EQ(poly()->GetNumberOfPoints(), kCloudPoints);
    EXPECT_EQ(point(0), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(depth(0), 0.0);
    EXPECT_EQ(point(1), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(depth(1), 0.0);
    EXPECT_EQ(point(2), (std::array<double, 3>{-318, -240, 100.5}));
    EXPECT_EQ(depth(3), 14999.5);
    EXPECT_EQ(point(kCloudPoints - 1), (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(point(kCloudWidth + 5), (std::array<double, 3>{5 - 320, 1 - 240, 1000}));
    EXPECT_EQ(view->pointcloudeNum(), kCloudPoints - 3);
    EXPECT_TRUE(view->idle());
}

TEST_F(CloudPointTest, BusyWhileRenderingIdleAfter) {
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
    view->renderWindow()->AddObserver(vtkCommand::StartEvent, onRender);
    std::vector<float> xyz = flatCloud(2000);
    view->paintCpDat(xyz.data());
    ASSERT_FALSE(watch.seen.empty()) << "a visible view renders every frame";
    for (bool idle : watch.seen) EXPECT_FALSE(idle) << "the view must not read as idle during the update";
    EXPECT_TRUE(view->idle());
}

TEST_F(CloudPointTest, HiddenViewDropsFrames) {
    std::vector<float> xyz = flatCloud(1000);
    view->paintCpDat(xyz.data());
    view->hide();
    std::vector<float> other = flatCloud(3000);
    view->paintCpDat(other.data());
    EXPECT_TRUE(view->idle());
    EXPECT_EQ(depth(kCloudWidth + 5), 1000.0) << "a hidden view keeps the last frame";
    view->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
    view->paintCpDat(other.data());
    EXPECT_EQ(depth(kCloudWidth + 5), 3000.0);
}

TEST_F(CloudPointTest, FirstFrameAfterClearResetsCameraToMainView) {
    const QWindow* area = view->embeddedOpenGLWindow();
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
    ASSERT_EQ(poly()->GetNumberOfPoints(), 518400);
    EXPECT_EQ(view->pointcloudeNum(), 518399);
    EXPECT_STREQ(poly()->GetPointData()->GetScalars()->GetName(), "colour");
    EXPECT_EQ(view->pipeline().colours()[0], 10);
    EXPECT_EQ(view->pipeline().colours()[3], 0) << "invalid point is black";
    EXPECT_EQ(poly()->GetVerts()->GetNumberOfCells(), 518400);

    view->clearWindow();  // a 1920-wide grid clears 518,400 points
    EXPECT_EQ(poly()->GetNumberOfPoints(), 518400);
    EXPECT_EQ(point(100), (std::array<double, 3>{0, 0, 0}));

    view->configurePoints(false, kCloudPoints, 640, 480);
    std::vector<float> xyz = flatCloud(1000);
    view->paintCpDat(xyz.data());
    EXPECT_EQ(poly()->GetNumberOfPoints(), kCloudPoints);
    EXPECT_EQ(poly()->GetVerts()->GetNumberOfCells(), kCloudPoints);
    EXPECT_STREQ(poly()->GetPointData()->GetScalars()->GetName(), "depth");
}

TEST_F(CloudPointTest, RangeMultisamplingDoubleClickAndButtons) {
    view->setRange(300, 4000);
    double range[2];
    view->pipeline().mapper()->GetScalarRange(range);
    EXPECT_EQ(range[0], 300.0);
    EXPECT_EQ(range[1], 4000.0);
    EXPECT_EQ(view->renderWindow()->GetMultiSamples(), 0);

    QSignalSpy norm(view.get(), &CloudPoint::showNorm);
    QMouseEvent dbl(QEvent::MouseButtonDblClick, QPoint(20, 20), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view->embeddedOpenGLWindow(), &dbl);  // the widget sees what lands on its window
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
