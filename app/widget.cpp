// Construction, signal wiring, the SDK callback and closing of the main window.
#include "widget.h"

#include <QCloseEvent>
#include <QDebug>
#include <QFontDatabase>
#include <QHeaderView>
#include <QTextCursor>
#include <chrono>

#include "debug.h"
#include "netsetting.h"
#include "tcporudp.h"
#include "ui_widget.h"
#include "uiprompt.h"

std::atomic<Widget*> mainWindow{nullptr};

// Resources live in a static library; naming them here makes the linker keep
// them in every program that builds the window. (The macro declares the
// initialisers in the enclosing namespace, so this stays outside one.)
static void initResources() {
    Q_INIT_RESOURCE(resources);
    Q_INIT_RESOURCE(language);
}

namespace {

// The form asks for the usual Chinese UI font; where it is not installed the
// first installed CJK family stands in, so captions never fall back to a
// font without Chinese glyphs.
void installFontFallback() {
    static const QString kFormFont = QStringLiteral("微软雅黑");
    QFontDatabase db;
    if (db.families().contains(kFormFont) || !QFont::substitutes(kFormFont).isEmpty()) return;
    const QStringList preferred{"Noto Sans CJK SC", "Noto Sans SC", "WenQuanYi Micro Hei", "Source Han Sans SC"};
    for (const QString& family : preferred) {
        if (db.families().contains(family)) {
            QFont::insertSubstitution(kFormFont, family);
            return;
        }
    }
    const QStringList chinese = db.families(QFontDatabase::SimplifiedChinese);
    if (!chinese.isEmpty()) QFont::insertSubstitution(kFormFont, chinese.first());
}

// Registered with the SDK; runs on the SDK's own thread, so it only logs,
// emits queued signals and flips atomics.
void linkMonitor(std::string sn, std::string error, void*) {
    Widget* window = mainWindow.load();
    if (!window) return;
    qDebug() << QString::fromLocal8Bit(sn.c_str()) << QString::fromLocal8Bit(error.c_str());
    window->emitcallback(sn, error);
    if (window->streaming.exchange(false)) {
        window->emitcallback(sn, "try to reinit...");
        window->emitReconnect();
    }
}

}  // namespace

Widget::Widget(QWidget* parent, CameraApi* camera)
    : QWidget(parent), ui(new Ui::Widget), camera_(camera ? *camera : CameraApi::device()) {
    initResources();
    installFontFallback();

    debugWindow_ = new debug;
    debugWindow_->setWindowTitle(tr("Debug"));
    tcpDialog_ = new TcpORudp;
    netDialog_ = new netSetting;
    // Helper windows left open must not keep the program alive once the
    // main window has closed.
    for (QWidget* helper : QList<QWidget*>{debugWindow_, tcpDialog_, netDialog_})
        helper->setAttribute(Qt::WA_QuitOnClose, false);
    mainWindow = this;
    buildMap();

    registerMetaTypes();

    connect(this, &Widget::callbackmsg, this, [this](std::string sn, std::string error) {
        debugWindow_->appendLog("sdk callback:" + QString::fromLocal8Bit(sn.c_str()) +
                                QString::fromLocal8Bit(error.c_str()));
    });
    connect(this, &Widget::Reconnect, this, [this] { reconnectRequested.exchange(true); });

    ui->setupUi(this);

    frames_ = std::make_unique<FrameBuffers>();
    config_ = new QJsonObject;
    sceneIR = new QGraphicsScene(this);
    sceneRgb = new QGraphicsScene(this);
    sceneDep = new QGraphicsScene(this);
    ui->widgetCp->configurePoints(false, 640 * 480, 640, 480);
    ui->graphicsViewIR->setScene(sceneIR);
    ui->graphicsViewRgb->setScene(sceneRgb);
    ui->graphicsViewDep->setScene(sceneDep);
    ui->graphicsViewIR->setImageSize(QSize(640, 480));
    ui->graphicsViewDep->setImageSize(QSize(640, 480));
    ui->graphicsViewRgb->setImageSize(QSize(1920, 1080));

    setWindowTitle(tr("Dexalon V2.0.9"));
    setWindowIcon(QIcon(":/source/kxlogo.ico"));

    // The target table is prepared but not used; it stays hidden below.
    ui->tableWidget->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    ui->tableWidget->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    ui->tableWidget->verticalHeader()->setHidden(true);
    ui->tableWidget->setShowGrid(false);
    ui->tableWidget->clear();
    ui->tableWidget->setRowCount(0);
    ui->tableWidget->setColumnCount(3);
    ui->tableWidget->setHorizontalHeaderLabels({"ID", "Position", "Pose"});
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);

    streaming.exchange(false);
    connected.exchange(false);
    ui->label_capture_mode->show();
    ui->comboBox_mode->show();
    ui->pushButton_trigger->show();
    initMenu();

    setUiText();
    ui->pushButton_2->setText(tr("开始"));
    ui->radioButton_manual->setChecked(true);

    setupEditors();

    ui->pushButton_trigger->setEnabled(false);
    ui->widget_kz->setEnabled(false);
    ui->pushButton_6->setEnabled(false);
    ui->pushButton_2->setEnabled(false);
    ui->groupBox_4->setEnabled(false);
    setHide(1);
    setHide(2);
    ui->widget_CP->hide();
    ui->checkBoxCp->setChecked(false);
    ui->widget_RGB->hide();
    ui->checkBoxRgb->setChecked(false);

    initSSlots();
    initThread();
    ui->checkBox_mean_filter->hide();
    controlPanelInit();
    ui->tableWidget->hide();
    ui->pushButton_3->hide();
    ui->checkbox_tof_frequency->show();
    ui->widget_contrast->hide();

    getLanguage();

    switchUi(true);

    camera_.SetTimeout(1000);
    camera_.RegisterNetworkMonitoringCallback(linkMonitor, nullptr);
}

Widget::~Widget() {
    // The SDK may still call back; it must not find a half-destroyed window.
    Widget* self = this;
    mainWindow.compare_exchange_strong(self, nullptr);
    stopThreads();
    delete debugWindow_;
    delete tcpDialog_;
    delete netDialog_;
    delete config_;
    delete ui;
}

void Widget::registerMetaTypes() {
    qRegisterMetaType<QVector<QVector<float>>>("QVector<QVector<float>>");
    qRegisterMetaType<PointcloudData*>("PointcloudData *");
    qRegisterMetaType<ReturnCode>("ReturnCode");
    qRegisterMetaType<std::string>("std::string");
    qRegisterMetaType<QTextCursor>("QTextCursor");
}

void Widget::initSSlots() {
    // Nothing emits disCon today; link loss goes through checkError. The
    // connection stays so a future emitter gets the usual box.
    connect(this, &Widget::disCon, this, [this](ReturnCode ret) {
        const std::string text = camera_.GetReturnCodeDescriptor(ret);
        UiPrompt::warning(this, tr("状态异常"), tr("错误信息：%1").arg(QString::fromLocal8Bit(text.c_str())));
    });
    connect(this, &Widget::cleanCp, this, [this] { ui->widgetCp->clearWindow(); });
    connect(ui->pushButton_main_view, &QPushButton::clicked, this, [this] {
        qDebug() << "widget"
                 << "operator ()" << __LINE__ << "main view";
        ui->widgetCp->SetCamera(CAMERA_MAIN_VIEW);
    });
    connect(ui->pushButton_top_view, &QPushButton::clicked, this, [this] {
        qDebug() << "widget"
                 << "operator ()" << __LINE__ << "top view";
        ui->widgetCp->SetCamera(CAMERA_TOP_VIEW);
    });
    connect(ui->pushButton_left_view, &QPushButton::clicked, this, [this] {
        qDebug() << "widget"
                 << "operator ()" << __LINE__ << "left view";
        ui->widgetCp->SetCamera(CAMERA_LEFT_VIEW);
    });
    connectViewSwitching();
    connectFrameDisplay();
    connectParameterHandlers();
    connectCaptureModes();
    connect(ui->pushButton_save_config, &QPushButton::clicked, this, &Widget::filteringDefaultConfiguration);
    connectSessionSignals();
}

void Widget::emitcallback(std::string sn, std::string msg) { emit callbackmsg(sn, msg); }

void Widget::emitReconnect() { emit Reconnect(); }

void Widget::closeEvent(QCloseEvent* event) {
    debugWindow_->close();
    if (!streaming) {
        event->accept();
        return;
    }
    const ReturnCode stopResult = camera_.StopStream();
    camera_.DisconnectFromDevice();
    if (stopResult == SUCCESS) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        event->accept();
    } else if (stopResult == NETWORK_ERROR) {
        event->accept();
    } else {
        // The camera did not stop cleanly: keep the window so the user sees
        // the session is still there.
        event->ignore();
    }
}
