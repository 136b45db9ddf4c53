// The camera session through the real window and SDK: search, start/stop,
// disconnect, device change, link loss and recovery, result 33 and the
// transport choice. Cameras: model 3 (colour) and model 1 (no colour).
#include <QAction>
#include <QCheckBox>
#include <QRadioButton>
#include <QSpinBox>
#include <QtTest>

#include "e2esupport.h"
#include "slidereditor.h"
#include "tcporudp.h"

namespace {
constexpr int kRgbCam = 0;
constexpr int kPlainCam = 1;
}  // namespace

class SessionE2eTest : public QObject {
    Q_OBJECT

    e2e::Session s{{"127.0.90.2", 48790, {'3', '1'}, 3000, 300, 0}};

private slots:
    void initTestCase() { QVERIFY2(s.ok(), qPrintable(s.error())); }
    void init() {
        QVERIFY(s.ensureUp(kRgbCam));
        QVERIFY(s.ensureUp(kPlainCam));
        s.openWindow();
        s.clearCommandLogs();
    }
    void cleanup() { s.closeWindow(); }

    void searchListsBothCameras() {
        QCOMPARE(s.combo()->count(), 0);
        QVERIFY(!s.button("pushButton_2")->isEnabled());
        QVERIFY(s.search(2));
        QVERIFY(s.rowOf(kRgbCam) >= 0);
        QVERIFY(s.rowOf(kPlainCam) >= 0);
        QCOMPARE(s.labelText("label_statusBar"), QString("已搜索到设备"));
        QVERIFY(s.button("pushButton_2")->isEnabled());
        QVERIFY(!s.button("pushButton_6")->isEnabled());
        QVERIFY(s.button("pushButton")->isEnabled());
        QVERIFY(s.prompts().requests.isEmpty());
    }
};

QTEST_MAIN(SessionE2eTest)
#include "session_e2e_test.moc"
