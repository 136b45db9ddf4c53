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
#include "frameconvert.h"
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

    // --- Frame counters (widget_acquisition.cpp, widget_paint.cpp): what the
    // workers read and what the panes painted, for diagnostics and tests.
    enum FrameRead { TofRead, RgbTofRead, RgbToDepthRead, DepthToRgbRead, FrameReadKinds };
    unsigned frameReads(FrameRead kind) const { return frameReads_[kind].load(); }
    // Pane 1 depth, 2 IR, 3 point cloud hand-offs, 4 RGB (the pane numbering of setShow).
    unsigned paintedFrames(int pane) const { return paintedFrames_[pane & 3].load(); }

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
    void paintDepSlots();
    void paintIRSlots();
    void paintRgbSlots();
    // Queues a tray rectangle with its id for the IR image's next paint.
    void drawRect(int id, PalletArea rect);
    // Trays to outline on the IR image and list in the table, from the next
    // IR paint on; empty by default.
    void setTrayAreas(const std::vector<TrayArea>& areas);

    // --- Registration switching (widget_acquisition.cpp). Connected by name;
    // clicked only, so the program's own check-state changes do not re-run them.
    void on_checkBox_dep2rgb_clicked(bool checked);
    void on_checkBox_rgb2dep_clicked(bool checked);
    void on_checkBox_rgb2pointcloud_clicked(bool checked);

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
    // One read-convert-hand-off cycle of each worker, frameMutex held.
    void tofFrame();
    void registrationFrame();
    // Conversions into the current images, each under its image mutex; each
    // hands the pane a paint unless one is still queued.
    void getDepDat();
    void getIrDat();
    void getRgbDat();
    void getCpDat();
    void getCpDat(RgbPointcloudData& rgbcDat);
    // Switches the current images; the paint slots never see half a switch.
    void selectBuffers(FrameBuffers::Selection selection);
    // Registration check boxes: shared tail of the two handlers.
    void applyRegistration(QCheckBox* other, std::atomic<bool>& ownFlag, std::atomic<bool>& otherFlag,
                           bool checked);
    void resizeImageViewsForMode();

    // --- Frame display helpers (widget_paint.cpp)
    void connectFrameDisplay();
    void syncColorMapping();

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
    // Registration: convertMode is set while either direction is selected.
    std::atomic<bool> convertMode{false};
    std::atomic<bool> rgbToDepthOn{false};
    std::atomic<bool> depthToRgbOn{false};
    // Width of the colour stream, taken from the frames themselves.
    std::atomic<uint32_t> rgbStreamWidth{1920};
    // Controls the workers depend on, mirrored by the GUI thread (workers
    // never read widgets).
    std::atomic<bool> cloudWanted_{false};
    std::atomic<int> minColorMapping_{100};
    std::atomic<int> maxColorMapping_{5000};
    // A paint or 3D hand-off queued and not yet run: the worker skips the next
    // one, so a slow GUI sees the newest frame instead of a backlog, and the
    // worker never rewrites a point buffer the 3D view is reading.
    std::array<std::atomic<bool>, 4> paintPending_{};
    std::atomic<bool> cloudPending_{false};
    std::array<std::atomic<unsigned>, FrameReadKinds> frameReads_{};
    std::array<std::atomic<unsigned>, 4> paintedFrames_{};
    DepthColorTable depthColors_;  // acquisition side only
    struct PaneDisplay;
    // GUI side only; shared_ptr because the type is private to widget_paint.cpp.
    std::shared_ptr<PaneDisplay> paneDisplay_;

    // --- Control-panel state (widget_params.cpp, widget_capture.cpp, widget_readback.cpp)
    void connectParameterHandlers();
    void connectCaptureModes();
    // Silently shows the spatial filter state; the kernel combo only talks
    // to the camera while the filter is on.
    void showSpatialFilter(bool on, int comboIndex);
    // The filter defaults sent one by one, shared by both default slots;
    // false when the session was lost on the way.
    bool sendFilterDefaults(const char* slot);
    // Stop and restart of the camera's stream around a mode change. The
    // session still counts as streaming for the user, but the frame workers
    // idle meanwhile instead of logging a failed read per spin.
    ReturnCode pauseStream();
    ReturnCode resumeStream();
    bool streamPaused_ = false;
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
