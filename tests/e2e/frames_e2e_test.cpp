// Frames through the real window, workers and SDK: every visible pane gets
// the stream, a camera without colour never touches the RGB pane, the
// registration boxes switch the frame call and exclude each other, and
// hidden panes are not repainted. Cameras: model 3 (1080p colour) and
// model 1 (no colour), both at 10 fps.
#include <QCheckBox>
#include <QGraphicsScene>
#include <QLabel>
#include <QScreen>
#include <QtTest>
#include <algorithm>
#include <cstdlib>

#include "cloudpoint.h"
#include "e2esupport.h"
#include "framedisplay.h"
#include "frameitem.h"
#include "graphicsview.h"

namespace {
constexpr int kRgbCam = 0;
constexpr int kPlainCam = 1;
constexpr int kFps = 10;
}  // namespace

class FramesE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.95.2", 48795, {'3', '1'}, 3000, 300, kFps}};

    Widget& w() { return s.window(); }
    static bool haveDisplay() { return qEnvironmentVariableIsSet("DISPLAY"); }

    // The frame the pane's scene shows, or a null image.
    QImage paneImage(const char* view) {
        auto* v = s.child<GraphicsView>(view);
        if (!v || !v->scene()) return {};
        for (QGraphicsItem* item : v->scene()->items())
            if (auto* f = dynamic_cast<FrameItem*>(item)) return f->frame();
        return {};
    }
    int fpsShown(const char* label) {
        const QString text = s.labelText(label);
        return text.endsWith("fps") ? text.chopped(3).toInt() : -1;
    }
    // Waits until `counter` has grown by at least `frames`.
    template <typename F>
    bool advances(F counter, unsigned frames) {
        const unsigned start = counter();
        return e2e::waitFor([&] { return counter() >= start + frames; });
    }
    bool clickBox(const char* name) {
        auto* box = s.child<QCheckBox>(name);
        if (!box || !box->isEnabled() || !box->isVisibleTo(&w())) return false;
        box->click();
        return true;
    }
    bool start(int cam) {
        if (!s.search(2) || !s.startCamera(cam)) return false;
        // Every pane is shown and checked by the start.
        return !s.child<QWidget>("widget_DEP")->isHidden() && !s.child<QWidget>("widget_CP")->isHidden();
    }

    // DEXALON_STREAMING_SCREENSHOT=<file.png>: the streaming window as the X
    // server shows it (a widget grab would miss the GL pane).
    void saveScreenshot() {
        const QString out = qEnvironmentVariable("DEXALON_STREAMING_SCREENSHOT");
        if (out.isEmpty() || !haveDisplay()) return;
        // Read-out at the middle of every pane.
        auto* dep = s.child<GraphicsView>("graphicsViewDep");
        QTest::mouseClick(dep->viewport(), Qt::LeftButton, {}, dep->mapFromScene(QPointF(320, 240)));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(1); }, 5));
        const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(w().winId());
        QVERIFY2(shot.save(out, "PNG"), qPrintable(out));
    }

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kRgbCam));
        QVERIFY(s.ensureUp(kPlainCam));
        s.openWindow();
        // The 3D view draws only while it is on screen, and needs GL for it:
        // without an X server the window stays unshown and the 3D view drops
        // every frame, while the 2D panes still paint.
        w().resize(1600, 960);
        if (!haveDisplay()) return;
        w().show();
        QVERIFY(QTest::qWaitForWindowExposed(&w()));
    }
    void cleanup() { s.closeWindow(); }

    void colourCameraFillsEveryPane() {
        QVERIFY(start(kRgbCam));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(1); }, 3));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(2); }, 3));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(4); }, 3));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(3); }, 3));
        QCOMPARE(paneImage("graphicsViewDep").size(), QSize(640, 480));
        QCOMPARE(paneImage("graphicsViewIR").size(), QSize(640, 480));
        QCOMPARE(paneImage("graphicsViewRgb").size(), QSize(1920, 1080));
        QVERIFY(w().acquisition().frameReads(Acquisition::RgbTofRead) > 0);
        QCOMPARE(w().acquisition().frameReads(Acquisition::TofRead), 0u);

        // The simulated scene is a room: most of the IR and depth image is
        // lit and in range, so the pictures are not black.
        const QImage ir = paneImage("graphicsViewIR");
        QVERIFY(qGray(ir.pixel(320, 240)) > 0 || qGray(ir.pixel(100, 100)) > 0);
        const QImage dep = paneImage("graphicsViewDep");
        QCOMPARE(qAlpha(dep.pixel(320, 240)) | qAlpha(dep.pixel(100, 100)), 255);

        auto* cloud = s.child<CloudPoint>("widgetCp");
        if (haveDisplay()) QVERIFY(e2e::waitFor([&] { return cloud->pointcloudeNum() > 1000; }));

        // Each pane's label shows the rate it is painted at (the meter's
        // arithmetic is tested in views_logic_test): some frames, and never
        // more than the camera sends.
        QVERIFY(e2e::waitFor([&] {
            return fpsShown("label_dep_fps") > 0 && fpsShown("label_ir_fps") > 0 && fpsShown("label_rgb_fps") > 0;
        }));
        for (const char* label : {"label_dep_fps", "label_ir_fps", "label_rgb_fps"})
            QVERIFY2(fpsShown(label) <= kFps + 2, label);
        QVERIFY(s.labelText("label_dep").endsWith("mm"));
        QVERIFY(s.labelText("label_rgb").startsWith("rgb("));
        saveScreenshot();

        // Stop: the workers idle and the panes keep the last frame. A read in
        // progress at the stop still delivers its frame; once it has ended no
        // read starts, so nothing more is painted.
        QVERIFY(s.stop());
        QVERIFY(!w().acquisition().streaming());
        w().acquisition().waitForReadsToEnd();
        QCoreApplication::processEvents();
        const unsigned depAfterStop = w().frameDisplay().paintedFrames(1);
        QVERIFY(s.settle());
        QCOMPARE(w().frameDisplay().paintedFrames(1), depAfterStop);
        QCOMPARE(paneImage("graphicsViewDep").size(), QSize(640, 480));
    }

    void plainCameraNeverTouchesRgbPane() {
        QVERIFY(start(kPlainCam));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(1); }, 5));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(2); }, 2));
        QVERIFY(w().acquisition().frameReads(Acquisition::TofRead) >= 5);
        QCOMPARE(w().acquisition().frameReads(Acquisition::RgbTofRead), 0u);
        QCOMPARE(w().frameDisplay().paintedFrames(4), 0u);
        QVERIFY(paneImage("graphicsViewRgb").isNull());
        QCOMPARE(s.labelText("label_rgb_fps"), QString("0fps"));
        // No read failed: the worker chose the frame call the camera has.
        QCOMPARE(s.logCount("operator () 1673"), 0);
        QCOMPARE(s.logCount("operator () 1689"), 0);
    }

    void registrationBoxesSwitchTheFrameCall() {
        QVERIFY(start(kRgbCam));
        QVERIFY(advances([&] { return w().acquisition().frameReads(Acquisition::RgbTofRead); }, 2));
        auto* rgb2dep = s.child<QCheckBox>("checkBox_rgb2dep");
        auto* dep2rgb = s.child<QCheckBox>("checkBox_dep2rgb");

        QVERIFY(clickBox("checkBox_rgb2dep"));
        QVERIFY(rgb2dep->isChecked());
        QVERIFY(advances([&] { return w().acquisition().frameReads(Acquisition::RgbToDepthRead); }, 3));
        // Colour sampled at every depth pixel: both panes at ToF size.
        QVERIFY(e2e::waitFor([&] { return paneImage("graphicsViewRgb").size() == QSize(640, 480); }));
        QCOMPARE(paneImage("graphicsViewDep").size(), QSize(640, 480));

        QVERIFY(clickBox("checkBox_dep2rgb"));
        QVERIFY(dep2rgb->isChecked());
        QVERIFY(!rgb2dep->isChecked());
        const unsigned toDepth = w().acquisition().frameReads(Acquisition::RgbToDepthRead);
        QVERIFY(advances([&] { return w().acquisition().frameReads(Acquisition::DepthToRgbRead); }, 3));
        // Depth projected into the colour camera: both panes at its size.
        QVERIFY(e2e::waitFor([&] { return paneImage("graphicsViewDep").size() == QSize(1920, 1080); }));
        QCOMPARE(paneImage("graphicsViewRgb").size(), QSize(1920, 1080));
        QVERIFY(w().acquisition().frameReads(Acquisition::RgbToDepthRead) <= toDepth + 1);

        // Clearing the box returns to the combined read and the ToF-size depth.
        QVERIFY(clickBox("checkBox_dep2rgb"));
        QVERIFY(!dep2rgb->isChecked() && !rgb2dep->isChecked());
        QVERIFY(advances([&] { return w().acquisition().frameReads(Acquisition::RgbTofRead); }, 3));
        QVERIFY(e2e::waitFor([&] { return paneImage("graphicsViewDep").size() == QSize(640, 480); }));
        QVERIFY(e2e::waitFor([&] { return paneImage("graphicsViewRgb").size() == QSize(1920, 1080); }));
        QVERIFY(!s.child<QCheckBox>("checkBox_rgb2pointcloud")->isEnabled());
        QVERIFY(s.prompts().requests.isEmpty());
    }

    void hiddenPanesAreNotRepainted() {
        QVERIFY(start(kRgbCam));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(2); }, 2));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(3); }, 2));

        QVERIFY(clickBox("checkBoxIr"));
        QVERIFY(clickBox("checkBoxCp"));
        QVERIFY(s.child<QWidget>("widget_IR")->isHidden());
        QVERIFY(s.child<QWidget>("widget_CP")->isHidden());
        // A frame read before the click may still be handed over; the reads
        // after it see the panes hidden.
        w().acquisition().waitForReadsToEnd();
        QCoreApplication::processEvents();
        const unsigned ir = w().frameDisplay().paintedFrames(2), cloud = w().frameDisplay().paintedFrames(3);
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(1); }, 8));
        QCOMPARE(w().frameDisplay().paintedFrames(2), ir);
        QCOMPARE(w().frameDisplay().paintedFrames(3), cloud);

        // Shown again, both pick the stream up.
        QVERIFY(clickBox("checkBoxIr"));
        QVERIFY(clickBox("checkBoxCp"));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(2); }, 3));
        QVERIFY(advances([&] { return w().frameDisplay().paintedFrames(3); }, 3));
    }
};

int main(int argc, char** argv) {
    // The 3D pane needs GL: use the X server when there is one.
    if (qEnvironmentVariableIsSet("DISPLAY")) qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    FramesE2eTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "frames_e2e_test.moc"
