// Construction, wiring, menus and closing of the main window.
#include "widget.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QFile>
#include <QFontDatabase>
#include <QMenuBar>
#include <QTextCursor>

#include "acquisition.h"
#include "admincommands.h"
#include "camerasession.h"
#include "cloudpoint.h"
#include "configcommands.h"
#include "controlpanel.h"
#include "debug.h"
#include "framedisplay.h"
#include "framefileslots.h"
#include "healthmonitor.h"
#include "netsetting.h"
#include "panearea.h"
#include "promptpresenter.h"
#include "recorder.h"
#include "savecontrols.h"
#include "sessionpanel.h"
#include "tcporudp.h"
#include "ui_widget.h"
#include "uiprompt.h"

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

}  // namespace

Widget::Widget(QWidget* parent, CameraInterface* camera)
    : QWidget(parent), ui(new Ui::Widget), camera_(camera ? *camera : CameraInterface::device()) {
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

    qRegisterMetaType<QVector<QVector<float>>>("QVector<QVector<float>>");
    qRegisterMetaType<PointcloudData*>("PointcloudData *");
    qRegisterMetaType<ReturnCode>("ReturnCode");
    qRegisterMetaType<std::string>("std::string");
    qRegisterMetaType<QTextCursor>("QTextCursor");

    ui->setupUi(this);

    // Log-window lines from the session and the frame workers; the log keeps
    // lines from any thread in call order.
    const LogSink log = [this](const QString& line) { debugWindow_->appendLog(line); };
    recorder_ = std::make_unique<Recorder>(camera_, log);
    acquisition_ = std::make_unique<Acquisition>(camera_, converter_, log);
    acquisition_->setRecorder(recorder_.get());
    session_ = std::make_unique<CameraSession>(camera_, *acquisition_, log);
    prompts_ = new PromptPresenter(this);
    paneArea()->setPaneCheckBoxes(sessionPanel()->paneCheckBoxes());
    display_ = new FrameDisplay(*paneArea(), *acquisition_, converter_, sessionPanel()->trayTable(), this);
    config_ = new ConfigCommands({this, session_.get(), sessionPanel(), controlPanel(), display_, recorder_.get(), log},
                                 this);
    admin_ = new AdminCommands({this, session_.get(), sessionPanel(), netDialog_, log}, this);
    frameFiles_ = new FrameFileSlots(
        *recorder_,
        [this](dataType type) {
            const ImageKind kind = type == DATA_TYPE_IR      ? ImageKind::Ir
                                   : type == DATA_TYPE_DEPTH ? ImageKind::Depth
                                                             : ImageKind::Rgb;
            std::lock_guard<std::mutex> lock(acquisition_->imageMutex(kind));
            FrameBuffers& frames = acquisition_->frames();
            const QImage& shown = kind == ImageKind::Ir      ? frames.irImage
                                  : kind == ImageKind::Depth ? frames.currentDepthImage()
                                                             : frames.currentRgbImage();
            return shown.copy();
        },
        this);

    setWindowIcon(QIcon(":/source/kxlogo.ico"));
    initMenu();
    initInsightViews(log);
    setUiText();
    connectParts();
    getLanguage();
    session_->begin();
}

Widget::~Widget() {
    // The session first: no callback, script or event may reach the parts
    // once they start going; the health monitor, which reads the workers'
    // state; then the frame workers; the recorder last, so every frame
    // handed to it is written.
    session_.reset();
    healthMonitor_.reset();
    acquisition_.reset();
    recorder_.reset();
    delete debugWindow_;
    delete tcpDialog_;
    delete netDialog_;
    delete ui;
}

SessionPanel* Widget::sessionPanel() const { return ui->widget_gl; }
PaneArea* Widget::paneArea() const { return ui->widget_show; }
ControlPanel* Widget::controlPanel() const { return ui->widget_kz; }

void Widget::connectParts() {
    CameraSession* s = session_.get();
    SessionPanel* left = sessionPanel();
    ControlPanel* panel = controlPanel();

    // The session's news, queued from its thread in the order it happened.
    connect(s, &CameraSession::stateChanged, left, &SessionPanel::applySessionStatus);
    connect(s, &CameraSession::stateChanged, panel, &ControlPanel::applySessionStatus);
    connect(s, &CameraSession::sessionEvent, left, &SessionPanel::applySessionEvent);
    connect(s, &CameraSession::sessionEvent, paneArea(), &PaneArea::applySessionEvent);
    connect(s, &CameraSession::sessionEvent, display_, &FrameDisplay::applySessionEvent);
    connect(s, &CameraSession::sessionEvent, panel, &ControlPanel::applySessionEvent);
    connect(s, &CameraSession::prompt, prompts_, &PromptPresenter::show);
    connect(s, &CameraSession::closeFinished, this, &Widget::onCloseFinished);

    // Requests to the session; each runs on its thread.
    connect(left, &SessionPanel::searchRequested, this, [s] { s->search(); });
    connect(left, &SessionPanel::startRequested, this, [s](int row) { s->start(row); });
    connect(left, &SessionPanel::stopRequested, this, [s] { s->stop(); });
    connect(left, &SessionPanel::disconnectRequested, this, [s] { s->disconnectDevice(); });
    connect(left, &SessionPanel::deviceChangeRequested, this, [s] { s->changeDevice(); });
    connect(panel, &ControlPanel::cameraScript, this, [s](const CameraScript& script) { s->run(script); });
    connect(display_, &FrameDisplay::cameraScript, this, [s](const CameraScript& script) { s->run(script); });
    connect(panel, &ControlPanel::configurationRead, this, [s](bool ok) { s->continueStart(ok); });
    connect(tcpDialog_, &TcpORudp::transportChosen, this, [s](bool tcp) { s->setTransport(tcp); });
    connect(this, &Widget::disCon, this, [s](ReturnCode ret) { s->reportError(ret); });

    // Between the parts.
    connect(panel, &ControlPanel::prompt, prompts_, &PromptPresenter::show);
    connect(panel, &ControlPanel::colourRangeChanged, display_, &FrameDisplay::setColourRange);
    connect(panel, &ControlPanel::fastModeChanged, left, [left](bool on) { left->setRegistrationAllowed(!on); });
    connect(left, &SessionPanel::registrationChanged, display_, &FrameDisplay::applyRegistration);
    connect(left, &SessionPanel::colouredCloudChanged, display_, &FrameDisplay::setColouredCloud);
    connect(this, &Widget::cleanCp, paneArea(), [this] { paneArea()->cloudView()->clearWindow(); });
    connect(config_, &ConfigCommands::prompt, prompts_, &PromptPresenter::show);
    connect(admin_, &AdminCommands::prompt, prompts_, &PromptPresenter::show);
    connect(netDialog_, &netSetting::setNetwork, admin_, &AdminCommands::setNetwork);
    connectSaving();
}

void Widget::connectSaving() {
    SaveControls* save = controlPanel()->saveControls();
    Recorder* recorder = recorder_.get();
    connect(save, &SaveControls::saveRootChanged, this,
            [recorder](const QString& root) { recorder->setSaveRoot(root); });
    connect(save, &SaveControls::singleSaveRequested, this,
            [recorder](const QString& folder) { recorder->requestSingleSave(folder); });
    connect(save, &SaveControls::continuousSavingChanged, this, [recorder](bool on) {
        // A new series counts from zero.
        if (on && !recorder->continuous()) recorder->resetCounts();
        recorder->setContinuous(on);
    });
    // Queued: the counts come from the frame workers and the writer threads.
    connect(recorder, &Recorder::countsChanged, save,
            [save](const RecorderCounts& c) { save->showCounts(c.saved, c.waiting, c.failed); });
    // A stopping stream ends a series; the buttons keep their state.
    connect(session_.get(), &CameraSession::sessionEvent, save, [save](SessionEvent event, const SessionStatus&) {
        if (event == SessionEvent::Stopping) save->streamStopping();
    });

    // Which views a saved frame gets: the pane boxes as they are ticked now.
    const std::array<QCheckBox*, 4> boxes = sessionPanel()->paneCheckBoxes();  // depth, IR, cloud, colour
    auto updateViews = [recorder, boxes] {
        recorder->setViews(boxes[1]->isChecked(), boxes[0]->isChecked(), boxes[3]->isChecked(), boxes[2]->isChecked());
    };
    for (QCheckBox* box : boxes) connect(box, &QCheckBox::toggled, this, updateViews);
    updateViews();

    // Tray information. Its two boxes have always been in Chinese.
    connect(sessionPanel(), &SessionPanel::trayRecordingRequested, this, [this] {
        recorder_->startTrayRecording(this, [this](bool opened) {
            if (!opened)
                prompts_->show(PromptKind::Warning, QString::fromUtf8("保存文件打开失败"),
                               QString::fromUtf8("文件打开失败"));
        });
    });
    connect(display_, &FrameDisplay::traysShown, this,
            [recorder](const std::vector<TrayArea>& trays) { recorder->recordTrays(trays); });
    connect(recorder, &Recorder::trayRecordingFinished, prompts_, [this] {
        prompts_->show(PromptKind::Information, QString::fromUtf8("保存完成"), QString::fromUtf8("保存完成"));
    });
}

void Widget::initMenu() {
    menuBar_ = new QMenuBar(this);
    QFile style(":/source/style/menubar.qss");
    if (style.open(QIODevice::ReadOnly)) menuBar_->setStyleSheet(QString::fromUtf8(style.readAll()));
    layout()->setMenuBar(menuBar_);

    menuNetwork_ = menuBar_->addMenu(tr("网络"));
    actionNetworkSettings_ = menuNetwork_->addAction(tr("设备网络设置"));

    menuView_ = menuBar_->addMenu(tr("视图"));
    actionControlPanel_ = menuView_->addAction(tr("控制面板"));
    actionManagementPanel_ = menuView_->addAction(tr("管理面板"));
    for (QAction* action : {actionControlPanel_, actionManagementPanel_}) {
        action->setCheckable(true);
        action->setChecked(true);
    }

    menuConfig_ = menuBar_->addMenu(tr("配置"));
    actionUpdate_ = menuConfig_->addAction(tr("更新"));
    actionImportConfig_ = menuConfig_->addAction(tr("导入配置"));
    actionExportConfig_ = menuConfig_->addAction(tr("导出配置"));
    actionResetConfig_ = menuConfig_->addAction(tr("设备配置初始化"));
    actionResetDevice_ = menuConfig_->addAction(tr("设备初始化"));
    actionDefaultLayout_ = menuConfig_->addAction(tr("界面默认配置"));
    actionSwitchProtocol_ = menuConfig_->addAction(tr("切换网络协议"));

    menuLanguage_ = menuBar_->addMenu(tr("切换语言"));
    actionChinese_ = menuLanguage_->addAction(tr("中文"));
    actionEnglish_ = menuLanguage_->addAction(tr("English"));

    actionDebug_ = menuBar_->addAction(tr("调试信息"));

    connect(actionNetworkSettings_, &QAction::triggered, netDialog_, &QWidget::show);
    connect(actionControlPanel_, &QAction::toggled, controlPanel(), &QWidget::setVisible);
    connect(actionManagementPanel_, &QAction::toggled, sessionPanel(), &QWidget::setVisible);
    connect(actionDefaultLayout_, &QAction::triggered, this, &Widget::restoreDefaultLayout);
    connect(actionUpdate_, &QAction::triggered, admin_, &AdminCommands::updateFirmware);
    connect(actionExportConfig_, &QAction::triggered, config_, &ConfigCommands::exportConfiguration);
    connect(actionImportConfig_, &QAction::triggered, config_, &ConfigCommands::importConfiguration);
    connect(actionResetConfig_, &QAction::triggered, config_, &ConfigCommands::resetConfiguration);
    connect(actionResetDevice_, &QAction::triggered, config_, &ConfigCommands::resetDevice);
    connect(actionSwitchProtocol_, &QAction::triggered, this, [this] {
        // The session keeps the transport it opened with.
        if (session_->status().state == SessionState::Streaming) {
            UiPrompt::warning(this, tr("警告"), tr("请先停止设备数据输出！"));
            return;
        }
        tcpDialog_->setWindowTitle(tr("net"));
        tcpDialog_->show();
    });
    connect(actionChinese_, &QAction::triggered, this, [this] { switchLanguage(0); });
    connect(actionEnglish_, &QAction::triggered, this, [this] { switchLanguage(1); });
    connect(actionDebug_, &QAction::triggered, this, [this] {
        debugWindow_->show();
        debugWindow_->raise();
        debugWindow_->activateWindow();
    });
}

void Widget::restoreDefaultLayout() {
    actionControlPanel_->setChecked(true);
    actionManagementPanel_->setChecked(true);
    controlPanel()->show();
    sessionPanel()->show();
    paneArea()->restoreDefaultLayout();
}

void Widget::closeEvent(QCloseEvent* event) {
    debugWindow_->close();
    if (closeApproved_ || session_->status().state != SessionState::Streaming) {
        event->accept();
        return;
    }
    // The camera is stopped and closed on the session's thread; the window
    // stays (and keeps painting) until it knows whether it may go.
    event->ignore();
    if (closePending_) return;
    closePending_ = true;
    session_->closeSession();
}

void Widget::onCloseFinished(bool accepted) {
    closePending_ = false;
    if (!accepted) return;
    closeApproved_ = true;
    close();
}
