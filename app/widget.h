// The main window. One class owns the whole program (buffers, threads,
// dialogs, the camera session); its code is split by concern over the
// widget_*.cpp files.
#pragma once

#include <QGraphicsScene>
#include <QJsonObject>
#include <QTranslator>
#include <QWidget>
#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cameraapi.h"
#include "framebuffers.h"
#include "frameratelimits.h"
#include "metatypes.h"

class QAction;
class QCheckBox;
class QCloseEvent;
class QMenu;
class QMenuBar;
class debug;
class netSetting;
class TcpORudp;

namespace Ui {
class Widget;
}

class Widget : public QWidget {
    Q_OBJECT
public:
    // camera: the SDK boundary; null means the real device.
    explicit Widget(QWidget* parent = nullptr, CameraApi* camera = nullptr);
    ~Widget() override;

    // --- Session flags, shared with the worker threads and the SDK callback.
    std::atomic<bool> streaming{false};
    std::atomic<bool> connected{false};
    std::atomic<bool> reconnectRequested{false};

    debug* debugWindow() const { return debugWindow_; }
    // Index 1..4 of the pane shown alone, 0 when none is maximised.
    int maximizedPane() const { return maximizedPane_; }

signals:
    void paintIR();
    void paintRgb();
    void paintDep();
    void paintCp(float* Dat);
    void paintCp(RgbPointcloudData* rgbcDat);
    void disCon(ReturnCode ret);
    void cleanCp();
    void callbackmsg(std::string sn, std::string error);
    void Reconnect();

public slots:
    // --- Layout and view switching (widget_layout.cpp)
    void initMenu();
    void setHide(int x);
    void setShow(int x);
    void setProportion();
    void swapAction();
    void resetMinSzie();
    void switchUi(bool isRGB);
    void setControlIsEnable(bool on);
    void maximizePane(int x);
    void restorePanes();
    void restoreDefaultLayout();

    // --- Language (widget_language.cpp)
    void switchLanguage(int index);
    void getLanguage();
    void saveLanguage();
    void setUiText();

    // --- Control panel set-up (widget_panel.cpp)
    void controlPanelInit();
    void setupEditors();
    void setEditorLabels();  // again after a language switch
    void buildMap();

    // --- SDK link monitoring
    void emitcallback(std::string sn, std::string msg);
    void emitReconnect();

    // --- Session: search, start/stop, disconnect (widget_session.cpp)
    void resetView();
    void on_pushButton_clicked();    // search
    void on_pushButton_2_clicked();  // start/stop, chosen by the button text
    void on_pushButton_6_clicked();  // disconnect
    // Shows or hides the trigger-mode and trigger-delay controls.
    void setCaptureMode(bool on);

    // --- Errors and recovery (widget_recovery.cpp)
    // True only for SUCCESS; otherwise shows the box (33 also ends the session).
    bool checkError(ReturnCode ret);
    // Ends the session on our side after the link is lost; sends nothing.
    void deviceDisconnect();
    // Starts a 1 s timer that shows the camera's exposure while ToF auto
    // exposure runs. Reachable only through the meta-object system.
    void timedService();

    // --- Frame display (widget_paint.cpp)

    // --- Parameter handlers (widget_params.cpp, widget_capture.cpp)
    // Lowers the exposures to what fps allows and narrows their editors
    // before sending fps, so the camera never holds a too-long exposure.
    void setExposureTime(int fps);
    void FastMode(bool on);

    // --- Defaults and read-back (widget_readback.cpp)
    // Fills the panel from the camera; false (panel untouched) on a failed read.
    bool readConfigurationFromDevice();
    void filteringDefaultConfiguration();
    void DefaultConfigurationSlots();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    // Camera calls beyond the small CameraApi seam go straight to the SDK;
    // tests run them against simulated cameras in the same process.
    static DeviceManager& sdk() { return DeviceManager::GetInstance(); }

    // --- Construction (widget.cpp)
    void registerMetaTypes();
    void initSSlots();
    void connectViewSwitching();

    // --- Worker threads (widget_acquisition.cpp)
    void initThread();
    void stopThreads();
    void tofWorker();
    void registrationWorker();
    void reconnectLoop();
    // Sleeps up to ms; returns false when the threads are being stopped.
    bool idleFor(int ms);

    // --- Layout helpers (widget_layout.cpp)
    QWidget* paneAt(int x) const;
    QCheckBox* paneCheckBox(int x) const;
    void onPaneCheckBox(int x, bool checked);

    Ui::Widget* ui;

    // --- Dialogs and the camera
    debug* debugWindow_ = nullptr;
    TcpORudp* tcpDialog_ = nullptr;
    netSetting* netDialog_ = nullptr;
    CameraApi& camera_;

    // --- Session data (filled when a device is opened)
    std::string serialNumber;
    std::string firmwareVersion;
    std::string deviceVersion;
    std::vector<std::string> deviceList;
    int rgbWidth = 0;
    int rgbHeight = 0;

    // --- Frames: every buffer, image and value table, allocated once.
    std::unique_ptr<FrameBuffers> frames_;
    QGraphicsScene* sceneIR = nullptr;
    QGraphicsScene* sceneRgb = nullptr;
    QGraphicsScene* sceneDep = nullptr;
    // Lock order: frameMutex first, then at most one image mutex.
    std::mutex frameMutex;
    std::mutex depthImageMutex;
    std::mutex irImageMutex;
    std::mutex rgbImageMutex;

    // --- Control panel
    FrameRateLimits frameRateMap;
    QJsonObject* config_ = nullptr;

    // --- Language
    QTranslator translator;

    // --- Menus (texts re-applied by setUiText)
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

    int maximizedPane_ = 0;

    // --- Session state (widget_session.cpp). rgbCamera_ is set at start for
    // models whose acquisition uses the RGB frame call.
    std::atomic<bool> rgbCamera_{false};
    void connectSessionSignals();
    void onDeviceChanged();
    // Recovery thread: the start/stop button's text as the GUI thread sees
    // it; empty when the window is going away.
    QString startButtonTextFromWorker();

    // --- Acquisition and display state (widget_acquisition.cpp, widget_paint.cpp)

    // --- Control-panel state (widget_params.cpp, widget_capture.cpp, widget_readback.cpp)
    void connectParameterHandlers();
    void connectCaptureModes();
    // Silently shows the spatial filter state; the kernel combo only talks
    // to the camera while the filter is on.
    void showSpatialFilter(bool on, int comboIndex);
    // Answer of IsRgbDevice at the last read-back.
    bool rgbDevice_ = false;

    // --- Threads. They idle until a session streams; the stop flag lets
    // the destructor end and join them so nothing outlives the window.
    std::array<std::unique_ptr<std::thread>, 7> threads_;
    std::atomic<bool> stopThreads_{false};
    std::mutex idleMutex_;
    std::condition_variable idleWake_;
};

// The one main window, for the plain function registered as SDK callback.
extern std::atomic<Widget*> mainWindow;
