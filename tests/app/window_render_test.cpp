// Renders the whole window on a real X server and checks the look: dark
// panes, Chinese captions drawn with a font that has the glyphs, and every
// row of the control panel inside the panel in both languages.
#include <QCheckBox>
#include <QFontDatabase>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

#include "cloudpoint.h"
#include "controlpanel.h"
#include "depthhistogram.h"
#include "healtharea.h"
#include "panearea.h"
#include "regiontext.h"
#include "slidereditor.h"
#include "testsupport.h"
#include "widget.h"

namespace {

// One character drawn black on white in the given font.
QImage glyphImage(const QFont& font, QChar c) {
    QImage image(48, 48, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter p(&image);
    QFont big(font);
    big.setPixelSize(32);
    p.setFont(big);
    p.setPen(Qt::black);
    p.drawText(image.rect(), Qt::AlignCenter, QString(c));
    return image;
}

int inkPixels(const QImage& image) {
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) n += qGray(image.pixel(x, y)) < 128;
    return n;
}

}  // namespace

class WindowRenderTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("DISPLAY")) QSKIP("rendering needs an X server (run under xvfb-run)");
    }

    void pointCloudPaneIsWiredToItsView() {
        FakeCamera camera;
        Widget w(nullptr, &camera);
        w.paneArea()->setShow(3);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        auto* cloud = w.findChild<CloudPoint*>("widgetCp");
        QCOMPARE(cloud->dataDimensions(), QSize(640, 480));
        QVERIFY(!cloud->rgbPoint());
        const QPair<const char*, CameraPosType> presets[] = {{"pushButton_top_view", CAMERA_TOP_VIEW},
                                                             {"pushButton_left_view", CAMERA_LEFT_VIEW},
                                                             {"pushButton_main_view", CAMERA_MAIN_VIEW}};
        for (const auto& p : presets) {
            w.findChild<QPushButton*>(p.first)->click();
            QCOMPARE(cloud->cameraType(), p.second);
        }
    }

    void chineseCaptionsUseACjkFontAndDarkTheme() {
        QVERIFY2(!QFontDatabase().families(QFontDatabase::SimplifiedChinese).isEmpty(), "no Chinese font installed");
        FakeCamera camera;
        Widget w(nullptr, &camera);
        // The layout of a running session: all four panes.
        for (int x = 1; x <= 4; ++x) w.paneArea()->setShow(x);
        w.resize(1600, 960);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.paneArea()->setProportion();
        // The new stretch takes effect with the layout requests it posted.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        QCoreApplication::processEvents();

        const QImage shot = w.grab().toImage();
        const QString out = qEnvironmentVariableIsSet("DEXALON_SCREENSHOT")
                                ? qEnvironmentVariable("DEXALON_SCREENSHOT")
                                : QDir::temp().filePath("dexalon-main-window.png");
        QVERIFY2(shot.save(out, "PNG"), qPrintable(out));
        qInfo("window rendered to %s", qPrintable(out));

        // Captions: every character must be in the font the widget uses, and
        // distinct characters must draw distinct ink (missing glyphs all draw
        // the same box).
        const QList<QPair<QWidget*, QString>> captions{
            {w.findChild<QPushButton*>("pushButton"), "搜索设备"},
            {w.findChild<QCheckBox*>("checkBoxDep"), "深度图"},
            {w.findChild<QGroupBox*>("groupBox_flitter_set"), "滤波设置"},
            {w.findChild<QLabel*>("label_statusBar"), "等待搜索"},
            {w.findChild<QMenuBar*>(), "调试信息"},
        };
        for (const auto& [widget, text] : captions) {
            QVERIFY(widget);
            const QFontMetrics metrics(widget->font());
            QList<QImage> glyphs;
            for (QChar c : text) {
                QVERIFY2(metrics.inFontUcs4(c.unicode()),
                         qPrintable(QString("%1 lacks %2 (%3)")
                                        .arg(widget->objectName(), QString(c), QFontInfo(widget->font()).family())));
                glyphs << glyphImage(widget->font(), c);
                QVERIFY(inkPixels(glyphs.last()) > 20);
            }
            for (int i = 1; i < glyphs.size(); ++i) QVERIFY(glyphs[i] != glyphs[0]);
        }

        // Dark theme: black window, panes in rgb(53, 53, 53).
        auto pixelAt = [&](const char* name, QPoint offset) {
            QWidget* c = w.findChild<QWidget*>(name);
            return QColor(shot.pixel(c->mapTo(&w, offset)));
        };
        QCOMPARE(pixelAt("widget_gl", QPoint(3, 200)), QColor(53, 53, 53));
        QCOMPARE(pixelAt("widget_kz", QPoint(3, 200)), QColor(53, 53, 53));
        QCOMPARE(QColor(shot.pixel(1, w.height() - 2)), QColor(Qt::black));
        for (const char* pane : {"widget_DEP", "widget_IR", "widget_CP", "widget_RGB"})
            QVERIFY2(w.findChild<QWidget*>(pane)->isVisible(), pane);

        // The caption on the search button is drawn: more than one colour.
        QWidget* button = w.findChild<QPushButton*>("pushButton");
        const QImage buttonImage = shot.copy(QRect(button->mapTo(&w, QPoint(0, 0)), button->size()));
        QSet<QRgb> colours;
        for (int y = 0; y < buttonImage.height(); ++y)
            for (int x = 0; x < buttonImage.width(); ++x) colours.insert(buttonImage.pixel(x, y));
        QVERIFY(colours.size() > 4);
    }

    // The histogram, the region figures, the health strip, its log lines
    // and the View entries come in English and go back to Chinese.
    void insightTextsFollowTheLanguage() {
        FakeCamera camera;
        Widget w(nullptr, &camera);
        FrameFigures figures;
        figures.regionSource = RegionSource::Depth;
        figures.region = regionInImage(0, 0, 1, 1, 640, 480);
        figures.channels = 1;
        figures.stats[0].pixels = 4;
        auto texts = [&] {
            QStringList t;
            for (QAction* a : w.findChild<QMenuBar*>()->actions()[1]->menu()->actions()) t << a->text();
            t << w.paneArea()->depthHistogram()->autoRangeButton()->text();
            for (QLabel* l : w.healthArea()->findChildren<QLabel*>())
                if (!l->objectName().startsWith("health_")) t << l->text();
            t << regionStatsText(figures).split('\n');
            t << QCoreApplication::translate("HealthMonitor", "网络丢包 %1%，丢帧 %2%");
            return t;
        };
        w.switchLanguage(1);
        const QStringList english = texts();
        for (const char* text :
             {"Network Health", "Depth Histogram", "Auto range", "Transport", "Received", "Painted depth/IR/RGB",
              "Data rate", "Dropped frames", "Datagrams lost/asked again/recovered", "Latency mean/max", "2x2 pixels",
              "No valid pixels", "Valid pixels 0.0%", "Network loss %1%, frames dropped %2%"})
            QVERIFY2(english.contains(text), text);
        w.switchLanguage(0);
        const QStringList chinese = texts();
        for (const char* text : {"网络状态", "深度直方图", "自动范围", "传输", "无有效像素"})
            QVERIFY2(chinese.contains(QString::fromUtf8(text)), text);
    }

    // Every number field, check box and button of the control panel lies
    // inside the part of the panel that is shown, at the window's default
    // size: for the program started in each language and after switching.
    // DEXALON_LAYOUT_SHOTS=<folder> keeps a picture of each language.
    void everyPanelRowFitsInBothLanguages_data() {
        QTest::addColumn<QByteArray>("startLanguage");
        QTest::addColumn<int>("switchTo");
        QTest::newRow("started in Chinese") << QByteArray("0") << -1;
        QTest::newRow("started in English") << QByteArray("1") << -1;
        QTest::newRow("switched to English") << QByteArray("0") << 1;
        QTest::newRow("switched back to Chinese") << QByteArray("1") << 0;
    }
    void everyPanelRowFitsInBothLanguages() {
        QFETCH(QByteArray, startLanguage);
        QFETCH(int, switchTo);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString previous = QDir::currentPath();
        QDir::setCurrent(dir.path());
        {
            QFile file("language.info");
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(startLanguage);
        }
        FakeCamera camera;
        Widget w(nullptr, &camera);
        QDir::setCurrent(previous);
        for (int x = 1; x <= 4; ++x) w.paneArea()->setShow(x);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QCOMPARE(w.size(), QSize(1600, 960));
        if (switchTo >= 0) w.switchLanguage(switchTo);
        // The new texts reach the layouts through posted events.
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        const bool english = switchTo >= 0 ? switchTo == 1 : startLanguage == "1";
        QCOMPARE(w.findChild<QPushButton*>("pushButton")->text(),
                 english ? QString("Search device") : QString("搜索设备"));

        auto* area = w.controlPanel()->findChild<QScrollArea*>("scrollArea_kz");
        QWidget* viewport = area->viewport();
        const QRect shown(QPoint(0, 0), viewport->size());
        auto inside = [&](QWidget* c) {
            const QRect r(c->mapTo(viewport, QPoint(0, 0)), c->size());
            return shown.left() <= r.left() && r.right() <= shown.right();
        };
        int checked = 0;
        for (SliderEditer* e : w.controlPanel()->findChildren<SliderEditer*>()) {
            if (!e->isVisibleTo(&w)) continue;
            QVERIFY2(inside(e->findChild<QLineEdit*>("lineEdit")), qPrintable(e->objectName() + " field cut off"));
            ++checked;
        }
        for (QCheckBox* box : w.controlPanel()->findChildren<QCheckBox*>()) {
            if (!box->isVisibleTo(&w)) continue;
            QVERIFY2(inside(box), qPrintable(box->objectName() + " cut off"));
            ++checked;
        }
        for (QPushButton* button : w.controlPanel()->findChildren<QPushButton*>()) {
            if (!button->isVisibleTo(&w)) continue;
            QVERIFY2(inside(button), qPrintable(button->objectName() + " cut off"));
        }
        QVERIFY(checked > 15);
        const QString folder = qEnvironmentVariable("DEXALON_LAYOUT_SHOTS");
        if (!folder.isEmpty() && switchTo < 0) {
            const QString file = folder + (english ? "/main-window-en.png" : "/main-window-zh.png");
            QVERIFY(w.grab().save(file, "PNG"));
        }
        w.switchLanguage(0);
    }
};

QTEST_MAIN(WindowRenderTest)
#include "window_render_test.moc"
