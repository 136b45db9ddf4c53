// The main window: the three parts of the form (management panel, panes,
// control panel), the menus, the language, the helper windows and closing.
// It wires the parts to the camera session and to each other and holds no
// camera logic of its own.
#pragma once

#include <QTranslator>
#include <QWidget>
#include <memory>

#include "camerainterface.h"
#include "imageconverter.h"
#include "logline.h"
#include "metatypes.h"

class Acquisition;
class AdminCommands;
class CameraSession;
class ConfigCommands;
class ControlPanel;
class FrameDisplay;
class FrameFileSlots;
class HealthArea;
class HealthMonitor;
class PaneArea;
class PromptPresenter;
class QAction;
class QCloseEvent;
class QMenu;
class QMenuBar;
class Recorder;
class SessionPanel;
class TcpORudp;
class debug;
class netSetting;

namespace Ui {
class Widget;
}

class Widget : public QWidget {
    Q_OBJECT
public:
    // camera: every camera operation goes through it; null means the SDK.
    explicit Widget(QWidget* parent = nullptr, CameraInterface* camera = nullptr);
    ~Widget() override;

    CameraSession& session() { return *session_; }
    Acquisition& acquisition() { return *acquisition_; }
    FrameDisplay& frameDisplay() { return *display_; }
    Recorder& recorder() { return *recorder_; }
    ConfigCommands* configCommands() const { return config_; }
    AdminCommands* adminCommands() const { return admin_; }
    netSetting* networkDialog() const { return netDialog_; }
    FrameFileSlots* frameFiles() const { return frameFiles_; }
    SessionPanel* sessionPanel() const;
    PaneArea* paneArea() const;
    ControlPanel* controlPanel() const;
    debug* debugWindow() const { return debugWindow_; }
    TcpORudp* transportDialog() const { return tcpDialog_; }
    HealthMonitor* healthMonitor() const { return healthMonitor_.get(); }
    HealthArea* healthArea() const { return healthArea_; }

signals:
    // Kept for a future emitter: nothing emits them today.
    void disCon(ReturnCode ret);
    void cleanCp();

public slots:
    void initMenu();
    // Chinese (the source texts) for any index but 1, which is English.
    void switchLanguage(int index);
    // The language remembered in "./language.info" ("1" first: English).
    void getLanguage();
    void saveLanguage();
    void setUiText();
    // Both panels back, the panes in their default arrangement.
    void restoreDefaultLayout();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void connectParts();
    void connectSaving();
    void onCloseFinished(bool accepted);
    // widget_insight.cpp: the health strip and the depth histogram.
    void initInsightViews(const LogSink& log);
    void retranslateInsightViews();

    Ui::Widget* ui;
    debug* debugWindow_ = nullptr;
    TcpORudp* tcpDialog_ = nullptr;
    netSetting* netDialog_ = nullptr;
    PromptPresenter* prompts_ = nullptr;
    CameraInterface& camera_;
    ImageConverter converter_;
    std::unique_ptr<Recorder> recorder_;
    std::unique_ptr<Acquisition> acquisition_;
    std::unique_ptr<CameraSession> session_;
    FrameDisplay* display_ = nullptr;
    ConfigCommands* config_ = nullptr;
    AdminCommands* admin_ = nullptr;
    FrameFileSlots* frameFiles_ = nullptr;
    QTranslator translator;

    // A close waits for the session to stop the camera; then it goes through.
    bool closePending_ = false;
    bool closeApproved_ = false;

    // Menus (texts re-applied by setUiText)
    QMenuBar* menuBar_ = nullptr;
    QMenu* menuNetwork_ = nullptr;
    QMenu* menuView_ = nullptr;
    QMenu* menuConfig_ = nullptr;
    QMenu* menuLanguage_ = nullptr;
    QAction* actionNetworkSettings_ = nullptr;
    QAction* actionControlPanel_ = nullptr;
    QAction* actionManagementPanel_ = nullptr;
    QAction* actionUpdate_ = nullptr;
    QAction* actionImportConfig_ = nullptr;
    QAction* actionExportConfig_ = nullptr;
    QAction* actionResetConfig_ = nullptr;
    QAction* actionResetDevice_ = nullptr;
    QAction* actionDefaultLayout_ = nullptr;
    QAction* actionSwitchProtocol_ = nullptr;
    QAction* actionChinese_ = nullptr;
    QAction* actionEnglish_ = nullptr;
    QAction* actionDebug_ = nullptr;
    QAction* actionHealth_ = nullptr;
    QAction* actionHistogram_ = nullptr;
    std::unique_ptr<HealthMonitor> healthMonitor_;
    HealthArea* healthArea_ = nullptr;
};
