// The main window with a fake camera: start-up state, form names, menus,
// view switching, language, closing and the link callback path.
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QGridLayout>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSlider>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QtTest>
#include <memory>
#include <thread>

#include "acquisition.h"
#include "camerasession.h"
#include "cloudpoint.h"
#include "controlpanel.h"
#include "debug.h"
#include "graphicsview.h"
#include "panearea.h"
#include "sessionpanel.h"
#include "sessionsettle.h"
#include "slidereditor.h"
#include "tcporudp.h"
#include "testsupport.h"
#include "panegrid.h"
#include "widget.h"

namespace {

QStringList logLines(Widget& w) {
    return w.debugWindow()->findChild<QTextBrowser*>("textBrowser")->toPlainText().split('\n', Qt::SkipEmptyParts);
}

void clearLog(Widget& w) { w.debugWindow()->findChild<QTextBrowser*>("textBrowser")->clear(); }

QAction* menuAction(Widget& w, const QString& text) {
    for (QAction* a : w.findChildren<QAction*>())
        if (a->text() == text) return a;
    return nullptr;
}

}  // namespace

class WidgetShellTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir workDir_;
    std::unique_ptr<FakeCamera> camera_;
    std::unique_ptr<Widget> w_;

    PaneArea* panes() { return w_->paneArea(); }
    // Waits until the session has run everything and the window took in
    // what it reported.
    bool settle() { return settleSession(w_->session(), w_.get()); }
    // Search, start the first camera, and wait until it streams.
    bool stream() {
        child<QPushButton>("pushButton")->click();
        if (!settle()) return false;
        child<QPushButton>("pushButton_2")->click();
        return settle() && w_->session().status().state == SessionState::Streaming;
    }
    // The colour parts of the window for a camera with or without colour.
    void switchUi(bool rgb) {
        w_->sessionPanel()->switchUi(rgb);
        w_->controlPanel()->switchUi(rgb);
        panes()->setColourPaneAvailable(rgb);
    }

    template <typename T = QWidget>
    T* child(const char* name) {
        T* c = w_->findChild<T*>(name);
        if (!c) qWarning("missing child %s", name);
        return c;
    }
    QWidget* pane(int x) {
        static const char* const kNames[] = {"", "widget_DEP", "widget_IR", "widget_CP", "widget_RGB"};
        return child(kNames[x]);
    }
    QCheckBox* box(int x) {
        static const char* const kNames[] = {"", "checkBoxDep", "checkBoxIr", "checkBoxCp", "checkBoxRgb"};
        return child<QCheckBox>(kNames[x]);
    }
    QGridLayout* grid() { return qobject_cast<QGridLayout*>(child("widget_show")->layout()); }
    // Pane shown state as (hidden, checked) pairs, to compare before/after.
    QVector<QPair<bool, bool>> paneState() {
        QVector<QPair<bool, bool>> s;
        for (int x = 1; x <= 4; ++x) s.append({pane(x)->isHidden(), box(x)->isChecked()});
        return s;
    }

private slots:
    void initTestCase() {
        QVERIFY(workDir_.isValid());
        QDir::setCurrent(workDir_.path());
    }
    void init() {
        QFile::remove("language.info");
        camera_ = std::make_unique<FakeCamera>();
        w_ = std::make_unique<Widget>(nullptr, camera_.get());
        QVERIFY(settle());
    }
    void cleanup() {
        w_.reset();
        camera_.reset();
    }

    void startsWithTheStatedWindowState() {
        QCOMPARE(w_->windowTitle(), QString("Dexalon V2.0.9"));
        QVERIFY(!w_->windowIcon().isNull());
        QCOMPARE(w_->session().status().state, SessionState::Idle);
        for (int x = 1; x <= 3; ++x) QVERIFY2(pane(x)->isHidden(), qPrintable(pane(x)->objectName()));
        QVERIFY2(!pane(4)->isHidden(), "the full layout with the colour pane is the start-up layout");
        for (int x = 1; x <= 4; ++x) QVERIFY(!box(x)->isChecked());
        for (const char* disabled : {"widget_kz", "pushButton_2", "pushButton_6", "groupBox_4", "pushButton_trigger"})
            QVERIFY2(!child(disabled)->isEnabled(), disabled);
        for (const char* hidden :
             {"tableWidget", "pushButton_3", "checkBox_mean_filter", "widget_contrast", "label_14"})
            QVERIFY2(child(hidden)->isHidden(), hidden);
        QCOMPARE(child<QPushButton>("pushButton")->text(), QString("搜索设备"));
        QCOMPARE(child<QPushButton>("pushButton_2")->text(), QString("开始"));
        QCOMPARE(box(2)->text(), QString("IR图"));
        QCOMPARE(box(1)->text(), QString("深度图"));
        QVERIFY(child<QAbstractButton>("radioButton_manual")->isChecked());
        QCOMPARE(w_->debugWindow()->windowTitle(), QString("Debug"));
        QVERIFY2(!w_->debugWindow()->testAttribute(Qt::WA_QuitOnClose), "an open log must not outlive the window");
        // Link monitoring is set up last, with a one-second SDK timeout.
        QCOMPARE(camera_->calls(), (std::vector<std::string>{"SetTimeout 1000", "RegisterNetworkMonitoringCallback"}));
        QVERIFY(camera_->callbackRegistered());
    }

    void formHasItsViewsAndLists() {
        for (const char* view : {"graphicsViewDep", "graphicsViewIR", "graphicsViewRgb"})
            QVERIFY2(w_->findChild<GraphicsView*>(view), view);
        QVERIFY(w_->findChild<CloudPoint*>("widgetCp"));
        QCOMPARE(child<QComboBox>("comboBox_mode")->count(), 4);
        QCOMPARE(child<QComboBox>("comboBox_median_filtering")->itemText(2), QString("3"));
    }

    void menusAreBuiltInOrder() {
        QMenuBar* bar = w_->findChild<QMenuBar*>();
        QVERIFY(bar);
        QStringList top;
        for (QAction* a : bar->actions()) top << a->text();
        QCOMPARE(top, (QStringList{"网络", "视图", "配置", "切换语言", "调试信息"}));
        auto items = [&](int i) {
            QStringList texts;
            for (QAction* a : bar->actions()[i]->menu()->actions()) texts << a->text();
            return texts;
        };
        QCOMPARE(items(0), QStringList{"设备网络设置"});
        QCOMPARE(items(1), (QStringList{"控制面板", "管理面板", "网络状态", "深度直方图"}));
        QCOMPARE(items(2), (QStringList{"更新", "导入配置", "导出配置", "设备配置初始化", "设备初始化", "界面默认配置",
                                        "切换网络协议"}));
        QCOMPARE(items(3), (QStringList{"中文", "English"}));
        // The panels are shown, the health strip and the histogram are not;
        // a camera interface without stream counters has no health entry.
        const QList<QAction*> view = bar->actions()[1]->menu()->actions();
        for (QAction* a : view) QVERIFY(a->isCheckable() && a->isChecked() == (a == view[0] || a == view[1]));
        QVERIFY(!view[2]->isVisible());
        QVERIFY(view[3]->isVisible());
    }

    void hideAndShowActOnOneToFourOnly() {
        for (int x = 1; x <= 4; ++x) {
            panes()->setShow(x);
            QVERIFY(!pane(x)->isHidden() && box(x)->isChecked());
            panes()->setHide(x);
            QVERIFY(pane(x)->isHidden() && !box(x)->isChecked());
        }
        panes()->setShow(2);
        const auto before = paneState();
        for (int x : {0, 5, -1, 42}) {
            panes()->setHide(x);
            panes()->setShow(x);
        }
        QCOMPARE(paneState(), before);
    }

    void swapActionLeavesIrAboveRgbWhateverTheOrder() {
        QGridLayout* g = grid();
        for (int round = 0; round < 2; ++round) {
            if (round == 1) {
                // Put them the other way round first.
                pane(2)->setParent(nullptr);
                pane(4)->setParent(nullptr);
                g->addWidget(pane(4), 0, 1);
                g->addWidget(pane(2), 1, 1);
            }
            panes()->swapAction();
            QCOMPARE(g->itemAtPosition(0, 1)->widget(), pane(2));
            QCOMPARE(g->itemAtPosition(1, 1)->widget(), pane(4));
            QCOMPARE(g->itemAtPosition(0, 0)->widget(), pane(1));
            QCOMPARE(g->itemAtPosition(1, 0)->widget(), pane(3));
            QCOMPARE(g->count(), 4);
            QCOMPARE(pane(2)->parentWidget(), child("widget_show"));
        }
    }

    void switchUiFollowsTheCameraButNeverShowsContrast() {
        const char* const rgbOnly[] = {"checkBox_dep2rgb",     "checkBox_rgb2dep",       "checkBox_rgb2pointcloud",
                                       "checkBoxRgb",          "widget_brightness",      "widget_rgb_manual_exposure",
                                       "radioButton_rgb_auto", "radioButton_rgb_manual", "widget_RGB"};
        for (const char* name : {"checkBoxRgb", "checkBox_rgb2pointcloud", "checkBox_dep2rgb", "checkBox_rgb2dep"})
            child<QCheckBox>(name)->setChecked(true);
        switchUi(false);
        for (const char* name : rgbOnly) QVERIFY2(child(name)->isHidden(), name);
        for (const char* name : {"checkBoxRgb", "checkBox_rgb2pointcloud", "checkBox_dep2rgb"})
            QVERIFY2(!child<QCheckBox>(name)->isChecked(), name);
        QVERIFY2(child<QCheckBox>("checkBox_rgb2dep")->isChecked(), "only three boxes are cleared");

        switchUi(true);
        for (const char* name : rgbOnly) QVERIFY2(!child(name)->isHidden(), name);
        QVERIFY(child("widget_contrast")->isHidden());
        QVERIFY(child("label_14")->isHidden());
    }

    void proportionFollowsTheCheckBoxes() {
        QGridLayout* g = grid();
        auto stretch = [&] {
            return QVector<int>{g->rowStretch(0), g->rowStretch(1), g->columnStretch(0), g->columnStretch(1)};
        };
        auto setBoxes = [&](bool dep, bool ir, bool cp) {
            box(1)->setChecked(dep);
            box(2)->setChecked(ir);
            box(3)->setChecked(cp);
            panes()->setProportion();
        };
        setBoxes(true, true, true);
        QCOMPARE(stretch(), (QVector<int>{1, 1, 1, 1}));
        setBoxes(true, false, true);
        QCOMPARE(stretch(), (QVector<int>{1, 1, 0, 0}));
        setBoxes(false, true, true);  // a combination that keeps the factors
        QCOMPARE(stretch(), (QVector<int>{1, 1, 0, 0}));
        setBoxes(false, false, true);
        QCOMPARE(stretch(), (QVector<int>{0, 0, 0, 0}));
    }

    void controlEnableSwitchesPanelAndEditors() {
        const char* const controlled[] = {"widget_kz",
                                          "widget_exposure_time",
                                          "widget_fps",
                                          "widget_max_color_mapping",
                                          "widget_min_color_mapping",
                                          "widget_rgb_manual_exposure",
                                          "widget_rgb_maximum_exposure_time",
                                          "widget_brightness",
                                          "widget_contrast",
                                          "widget_gamma_value",
                                          "widget_fly_filter",
                                          "widget_kalman_filter",
                                          "widget_time_filter",
                                          "widget_confidence_filter"};
        for (bool on : {true, false, true}) {
            w_->controlPanel()->setControlIsEnable(on);
            for (const char* name : controlled) QVERIFY2(child(name)->isEnabled() == on, name);
            // The editors themselves accept input only through their own switch.
            for (SliderEditer* e : w_->findChildren<SliderEditer*>())
                QVERIFY2(e->findChild<QSlider*>("horizontalSlider")->isEnabled() == on, qPrintable(e->objectName()));
        }
    }

    // One shared, fixed label width lines the sliders up, in either language.
    void editorLabelsShareOneWidthAndFollowTheLanguage() {
        const QList<SliderEditer*> editors = w_->controlPanel()->findChildren<SliderEditer*>();
        QVERIFY(editors.size() >= 13);
        const int width = editors.first()->findChild<QLabel*>("label")->maximumWidth();
        for (SliderEditer* e : editors) {
            auto* label = e->findChild<QLabel*>("label");
            QVERIFY2(label->minimumWidth() == width && label->maximumWidth() == width, qPrintable(e->objectName()));
        }
        auto fpsLabel = [this] { return child<SliderEditer>("widget_fps")->findChild<QLabel*>("label")->text(); };
        w_->switchLanguage(1);
        QCOMPARE(fpsLabel(), QString("Frame Rate Setting"));
        w_->switchLanguage(0);
        QCOMPARE(fpsLabel(), QString::fromUtf8("帧率设置"));
    }

    void maximisedPaneComesBackWithTheCheckedOthers() {
        for (int x : {1, 2, 3}) panes()->setShow(x);
        panes()->setHide(4);
        child<QPushButton>("pushButton_ir_max")->click();
        QCOMPARE(panes()->maximizedPane(), 2);
        QVERIFY(!pane(2)->isHidden());
        for (int x : {1, 3, 4}) QVERIFY(pane(x)->isHidden());
        for (int x : {1, 2, 3}) QVERIFY2(box(x)->isChecked(), "maximising does not touch the boxes");

        child<QPushButton>("pushButton_ir_max")->click();
        QCOMPARE(panes()->maximizedPane(), 0);
        for (int x : {1, 2, 3}) QVERIFY(!pane(x)->isHidden());
        QVERIFY(pane(4)->isHidden());
        const QGridLayout* g = grid();
        const QSize cell = paneCellSize(child("widget_show")->size(), g->horizontalSpacing(), g->verticalSpacing(),
                                        g->contentsMargins());
        QCOMPARE(pane(1)->size(), cell);

        // The views ask for the same through their signals.
        emit child<GraphicsView>("graphicsViewDep")->showFul(child<GraphicsView>("graphicsViewDep"));
        QCOMPARE(panes()->maximizedPane(), 1);
        emit child<CloudPoint>("widgetCp")->showFul(child<CloudPoint>("widgetCp"));
        QCOMPARE(panes()->maximizedPane(), 3);
        QVERIFY(pane(1)->isHidden() && !pane(3)->isHidden());
        emit child<CloudPoint>("widgetCp")->showNorm(child<CloudPoint>("widgetCp"));
        for (int x : {1, 2, 3}) QVERIFY(!pane(x)->isHidden());

        // A double-click on the shown pane asks for the others back, and a
        // second one for itself alone again.
        emit child<CloudPoint>("widgetCp")->showNorm(child<CloudPoint>("widgetCp"));
        QCOMPARE(panes()->maximizedPane(), 3);
        auto* ir = child<GraphicsView>("graphicsViewIR");
        QTest::mouseDClick(ir->viewport(), Qt::LeftButton);
        QCOMPARE(panes()->maximizedPane(), 2);
        QVERIFY(!pane(2)->isHidden() && pane(1)->isHidden());
        QTest::mouseDClick(ir->viewport(), Qt::LeftButton);
        QCOMPARE(panes()->maximizedPane(), 0);
        QTest::mouseDClick(ir->viewport(), Qt::RightButton);
        QCOMPARE(panes()->maximizedPane(), 0);

        // Unticking a pane while another is maximised brings the layout back.
        child("groupBox_4")->setEnabled(true);
        panes()->maximizePane(2);
        box(1)->click();
        QCOMPARE(panes()->maximizedPane(), 0);
        QVERIFY(pane(1)->isHidden() && !pane(2)->isHidden() && !pane(3)->isHidden());
        child<QPushButton>("pushButton_cp_close")->click();
        QVERIFY(pane(3)->isHidden() && !box(3)->isChecked());
    }

    void viewActionsAndDefaultLayout() {
        menuAction(*w_, "控制面板")->trigger();
        QVERIFY(child("widget_kz")->isHidden());
        menuAction(*w_, "管理面板")->trigger();
        QVERIFY(child("widget_gl")->isHidden());
        menuAction(*w_, "控制面板")->trigger();
        QVERIFY(!child("widget_kz")->isHidden());

        panes()->setHide(1);
        panes()->maximizePane(4);
        menuAction(*w_, "界面默认配置")->trigger();
        QVERIFY(!child("widget_kz")->isHidden() && !child("widget_gl")->isHidden());
        QVERIFY(menuAction(*w_, "管理面板")->isChecked());
        for (int x = 1; x <= 4; ++x) QVERIFY(!pane(x)->isHidden() && box(x)->isChecked());
        QCOMPARE(panes()->maximizedPane(), 0);
        QCOMPARE(grid()->itemAtPosition(0, 1)->widget(), pane(2));

        // On a camera without colour the default has no colour pane.
        switchUi(false);
        menuAction(*w_, "界面默认配置")->trigger();
        QVERIFY(pane(4)->isHidden());
        QVERIFY(!pane(1)->isHidden());
    }

    // The health strip, where the camera interface keeps stream counters:
    // off by default, and on again in the next run once the user showed it.
    void healthStripIsRememberedAcrossRuns() {
        w_.reset();
        QFile::remove("view.info");
        FakeCamera camera;
        camera.keepsStreamStatistics = true;
        {
            Widget w(nullptr, &camera);
            QAction* health = menuAction(w, "网络状态");
            QVERIFY(health && health->isVisible() && !health->isChecked());
            QWidget* strip = w.findChild<QWidget*>("healthArea");
            QVERIFY(strip->isHidden());
            health->trigger();
            QVERIFY(!strip->isHidden());
            // Written by a writer thread, not the window's.
            QVERIFY(QTest::qWaitFor([] {
                QFile f("view.info");
                return f.open(QIODevice::ReadOnly) && f.readAll() == "health=1";
            }));
        }
        {
            Widget w(nullptr, &camera);
            QVERIFY(menuAction(w, "网络状态")->isChecked());
            QVERIFY(!w.findChild<QWidget*>("healthArea")->isHidden());
        }
        // Without counters the remembered choice shows nothing.
        FakeCamera plain;
        Widget w(nullptr, &plain);
        QVERIFY(w.findChild<QWidget*>("healthArea")->isHidden());
        QVERIFY(!menuAction(w, "网络状态")->isVisible());
        QFile::remove("view.info");
    }

    void closeStopsAStreamingCameraAndMayRefuse_data() {
        QTest::addColumn<bool>("streaming");
        QTest::addColumn<int>("stopResult");
        QTest::addColumn<bool>("closes");
        QTest::addColumn<int>("minMs");
        QTest::newRow("idle") << false << int(FAILED) << true << 0;
        QTest::newRow("stopped cleanly") << true << int(SUCCESS) << true << 100;
        QTest::newRow("link already lost") << true << int(NETWORK_ERROR) << true << 0;
        QTest::newRow("stop failed") << true << int(FAILED) << false << 0;
        QTest::newRow("stop timed out") << true << int(TIMEOUT) << false << 0;
    }
    void closeStopsAStreamingCameraAndMayRefuse() {
        QFETCH(bool, streaming);
        QFETCH(int, stopResult);
        QFETCH(bool, closes);
        QFETCH(int, minMs);
        if (streaming) QVERIFY(stream());
        camera_->clearCalls();
        camera_->failNext("StopStream", ReturnCode(stopResult));
        // Shown, to see it go; the 3D pane needs GL, which this platform lacks.
        panes()->setHide(3);
        w_->show();
        w_->debugWindow()->show();

        QElapsedTimer timer;
        timer.start();
        // Without a stream the window goes at once; with one it waits for
        // the camera, painting meanwhile, then goes or stays.
        QCOMPARE(w_->close(), !streaming);
        QVERIFY(w_->debugWindow()->isHidden());
        QVERIFY(settle());
        QCOMPARE(w_->isVisible(), !closes);
        if (closes) QVERIFY(timer.elapsed() >= minMs);
        const auto expected =
            streaming ? std::vector<std::string>{"StopStream", "DisconnectFromDevice"} : std::vector<std::string>{};
        QCOMPARE(camera_->commands(), expected);
    }

    void sdkCallbackReachesTheLogAndStartsOneRecovery() {
        std::thread([&] { camera_->fireLinkCallback("SN01", "heartbeat lost"); }).join();
        QVERIFY(settle());
        QVERIFY(logLines(*w_).contains("sdk callback:SN01heartbeat lost"));
        QCOMPARE(camera_->count("ReconnectDevice"), 0);

        QVERIFY(stream());
        // While an attempt runs no setting can reach the camera: the panel is
        // off, the stop button still says stop.
        camera_->holdNext("ReconnectDevice");
        std::thread([&] { camera_->fireLinkCallback("SN01", "link down"); }).join();
        QTRY_VERIFY(camera_->waiting("ReconnectDevice"));
        QTRY_VERIFY(!w_->controlPanel()->isEnabled());
        QCOMPARE(child<QPushButton>("pushButton_2")->text(), QString("停止"));
        QVERIFY(child<QPushButton>("pushButton_2")->isEnabled());
        camera_->release("ReconnectDevice");
        QVERIFY(settle());
        QVERIFY(w_->controlPanel()->isEnabled());
        QCOMPARE(camera_->count("ReconnectDevice"), 1);
        camera_->clearCalls();
        clearLog(*w_);
        // The fake camera is back at the first attempt. A burst of callbacks
        // starts one recovery: the attempt is held until the burst is over,
        // so a fast recovery cannot end between the two.
        camera_->holdNext("ReconnectDevice");
        std::thread([&] {
            camera_->fireLinkCallback("SN01", "link down");
            camera_->fireLinkCallback("SN01", "link down");
        }).join();
        QTRY_VERIFY(camera_->waiting("ReconnectDevice"));
        camera_->release("ReconnectDevice");
        QVERIFY(settle());
        QCOMPARE(logLines(*w_).filter("try to reinit...").size(), 1);
        QCOMPARE(logLines(*w_).filter("sdk callback:SN01link down").size(), 2);
        QCOMPARE(camera_->count("ReconnectDevice"), 1);
        QCOMPARE(logLines(*w_).filter("reconnect succeed").size(), 1);
        QCOMPARE(w_->session().status().state, SessionState::Streaming);
    }

    // The model digit of the serial number shapes the window; an empty serial
    // number says nothing, so the window stays as the last camera left it.
    void emptySerialNumberLeavesTheLayoutAlone() {
        QVERIFY(stream());
        auto shown = [this](const char* name) { return child(name)->isVisibleTo(w_.get()); };
        QVERIFY(shown("checkBox_rgb2dep") && shown("widget_brightness") && shown("comboBox_mode"));
        child<QPushButton>("pushButton_6")->click();
        QVERIFY(settle());

        camera_->settings.serial.clear();
        QVERIFY(stream());
        QVERIFY(child<QLabel>("label_Model")->text().isEmpty());
        QCOMPARE(child<QLabel>("label_SN")->text(), QString(": "));
        QVERIFY2(shown("checkBox_rgb2dep") && shown("widget_brightness"), "the colour parts were switched");
        QVERIFY2(shown("comboBox_mode"), "the trigger controls were switched");
        // Without a model digit the frames come through the depth-only read.
        // (A read of the last camera may still finish late; the worker makes
        // one read at a time, so none can follow a depth-only one.)
        const unsigned reads = w_->acquisition().frameReads(Acquisition::TofRead);
        QTRY_VERIFY(w_->acquisition().frameReads(Acquisition::TofRead) > reads + 2);
        const auto calls = camera_->calls();
        const auto firstTof = std::find(calls.begin(), calls.end(), std::string("GetTofData"));
        QVERIFY(firstTof != calls.end());
        QVERIFY(std::find(firstTof, calls.end(), std::string("GetRgbTofData")) == calls.end());

        // A camera without colour or trigger input hides those parts.
        child<QPushButton>("pushButton_6")->click();
        QVERIFY(settle());
        camera_->settings.serial = "KX0000000001";
        QVERIFY(stream());
        QCOMPARE(child<QLabel>("label_Model")->text(), QString(": KX-110"));
        QVERIFY(!shown("checkBox_rgb2dep") && !shown("widget_brightness") && !shown("widget_RGB"));
        QVERIFY(!shown("comboBox_mode") && !shown("pushButton_set_time"));
    }

    void disConShowsTheAbnormalStateBox() {
        PromptRecorder prompts;
        emit w_->disCon(DEVICE_BUSY);
        QVERIFY(settle());
        QCOMPARE(prompts.requests.size(), 1);
        QCOMPARE(prompts.requests[0].title, QString("状态异常"));
        QCOMPARE(prompts.requests[0].text, QString("错误信息：code 6"));
        QCOMPARE(prompts.requests[0].parent, w_.get());
    }

    void protocolDialogIsRefusedWhileStreaming() {
        PromptRecorder prompts;
        QVERIFY(stream());
        menuAction(*w_, "切换网络协议")->trigger();
        QCOMPARE(prompts.requests.size(), 1);
        QCOMPARE(prompts.requests[0].text, QString("请先停止设备数据输出！"));
        child<QPushButton>("pushButton_2")->click();
        QVERIFY(settle());
        menuAction(*w_, "切换网络协议")->trigger();
        QCOMPARE(prompts.requests.size(), 1);
        QVERIFY(w_->transportDialog()->isVisible());
        menuAction(*w_, "调试信息")->trigger();
        QVERIFY(w_->debugWindow()->isVisible());
    }

    void languageFileSelectsTheStartLanguage_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QString>("searchText");
        QTest::newRow("1 is English") << QByteArray("1") << true << "Search device";
        QTest::newRow("only the first byte counts") << QByteArray("10") << true << "Search device";
        QTest::newRow("0 is Chinese") << QByteArray("0") << true << "搜索设备";
        QTest::newRow("empty file") << QByteArray() << true << "搜索设备";
        QTest::newRow("other byte first") << QByteArray(" 1") << true << "搜索设备";
        QTest::newRow("no file") << QByteArray() << false << "搜索设备";
    }
    void languageFileSelectsTheStartLanguage() {
        QFETCH(QByteArray, content);
        QFETCH(bool, exists);
        QFETCH(QString, searchText);
        w_.reset();
        if (exists) {
            QFile f("language.info");
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(content);
        }
        FakeCamera camera;
        Widget w(nullptr, &camera);
        QCoreApplication::processEvents();
        QCOMPARE(w.findChild<QPushButton*>("pushButton")->text(), searchText);
        const bool english = searchText == "Search device";
        QCOMPARE(w.findChild<QMenuBar*>()->actions().first()->text(), english ? QString("Network") : QString("网络"));
        QCOMPARE(w.findChild<QPushButton*>("pushButton_2")->text(), english ? QString("Start") : QString("开始"));
        QCOMPARE(w.findChild<QLabel*>("label_statusBar")->text(),
                 english ? QString(" Waiting for search...") : QString(" 等待搜索..."));
        QCOMPARE(w.windowTitle(), QString("Dexalon V2.0.9"));
        // Reading the choice never writes it back.
        QCOMPARE(QFile::exists("language.info"), exists);
    }

    void switchingKeepsSessionTextsAndStopButton() {
        QVERIFY(stream());
        QCOMPARE(child<QLabel>("label_SN")->text(), QString(": KX0000003001"));

        w_->switchLanguage(1);
        QCOMPARE(child<QPushButton>("pushButton_2")->text(), QString("Stop"));
        QCOMPARE(child<QLabel>("label_statusBar")->text(), QString("Device Searched"));
        QCOMPARE(child<QLabel>("label_SN")->text(), QString(": KX0000003001"));
        QCOMPARE(child<QLabel>("label_IP")->text(), QString(": 192.168.1.80"));
        QCOMPARE(child<QLabel>("label_Model")->text(), QString(": KX-120RGB"));
        QCOMPARE(child<QCheckBox>("checkBox_hdr")->text(), QString("HDR"));
        QVERIFY(menuAction(*w_, "Debugging Information"));
        QCOMPARE(w_->debugWindow()->findChild<QPushButton*>("pushButton")->text(), QString("Clear"));
        w_->saveLanguage();
        QFile english("language.info");
        QVERIFY(english.open(QIODevice::ReadOnly));
        QCOMPARE(english.readAll(), QByteArray("1"));

        w_->switchLanguage(1);  // again: nothing changes
        QCOMPARE(child<QPushButton>("pushButton_2")->text(), QString("Stop"));
        QCOMPARE(child<QPushButton>("pushButton")->text(), QString("Search device"));

        w_->switchLanguage(0);
        QCOMPARE(child<QPushButton>("pushButton_2")->text(), QString("停止"));
        QCOMPARE(child<QLabel>("label_statusBar")->text(), QString("已搜索到设备"));
        QCOMPARE(child<QPushButton>("pushButton")->text(), QString("搜索设备"));
        QCOMPARE(child<QLabel>("label_SN")->text(), QString(": KX0000003001"));
        w_->saveLanguage();
        QFile saved("language.info");
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(saved.readAll(), QByteArray("0"));
    }
};

QTEST_MAIN(WidgetShellTest)
#include "widget_shell_test.moc"
