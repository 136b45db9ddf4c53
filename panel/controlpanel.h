// The control panel: the camera's acquisition settings (exposure, frame rate,
// trigger, HDR, fast mode, frequency, filters, colour sensor) and the
// colour-mapping range. Each control turns the user's input into a camera
// script, which the window hands to the session; the panel shows the result
// and never waits for the camera. Its enabled states follow the session.
#pragma once

#include <QWidget>
#include <functional>

#include "camerascript.h"
#include "exposurelimits.h"
#include "panelconfig.h"
#include "sessionstate.h"

class QCheckBox;
class QTimer;
class SaveControls;
class SliderEditer;

namespace Ui {
class ControlPanel;
}

class ControlPanel : public QWidget {
    Q_OBJECT
public:
    explicit ControlPanel(QWidget* parent = nullptr);
    ~ControlPanel() override;

    // Texts set in code, again after a language switch; the panel widens
    // when a language needs more room.
    void retranslate();
    // Every panel and editor switch together (the display group is the
    // session panel's); editors take input only through their own switch.
    void setControlIsEnable(bool on);
    // Shows or hides the trigger-mode and trigger-delay controls.
    void setCaptureMode(bool on);
    // The colour sensor's controls, for a camera with or without one; the
    // contrast editor is never shown.
    void switchUi(bool isRGB);
    // Scripts submitted and not finished that keep the panel disabled.
    int pendingModeChanges() const { return holds_; }
    // The save group: save root, single and continuous saving, counts.
    SaveControls* saveControls() const { return saveControls_; }

    // The panel's part of a configuration file (the display group fills in
    // its own).
    void fillConfiguration(PanelConfig& config) const;
    // Shows `config` and sends it to the camera as one script, the panel
    // disabled until it has run: frequency, trigger, gamma, exposure, HDR,
    // filters, frame rate, fast mode and, for a camera with a colour sensor,
    // the colour settings; then `tail`. A failed setting shows its box and
    // the panel goes back to what the camera kept; the rest still runs.
    // `done` follows on the GUI thread.
    void applyConfiguration(const PanelConfig& config, bool colourSensor, const CameraScript& tail,
                            std::function<void(const ScriptOutcome&)> done);

public slots:
    void applySessionStatus(const SessionStatus& status);
    void applySessionEvent(SessionEvent event, const SessionStatus& status);

    // Lowers the exposures to what fps allows and narrows their editors
    // before sending fps, so the camera never holds a too-long exposure.
    void setExposureTime(int fps);
    void FastMode(bool on);
    // Reads the camera's settings into the panel; configurationRead tells
    // how it went. Nothing read is sent back except what the frame-rate
    // limits and fast mode need.
    void readConfigurationFromDevice();
    void filteringDefaultConfiguration();
    void DefaultConfigurationSlots();
    // Starts a 1 s timer that shows the camera's exposure while ToF auto
    // exposure runs. Reachable only through the meta-object system.
    void timedService();
    // Stores the camera's current settings in the camera.
    void saveTheConfigurationToDevice();
    // A colour range chosen outside the panel (the depth histogram): each
    // limit that differs is committed through its editor, as if typed there,
    // so the editors' rules and handlers run as for the user's own input.
    // The maximum goes first when the range moves up, so the minimum never
    // passes it on the way.
    void commitColourRange(int minDistance, int maxDistance);

signals:
    void cameraScript(const CameraScript& script);
    void prompt(PromptKind kind, const QString& title, const QString& text);
    void configurationRead(bool ok);
    // Minimum and maximum colour-mapping distance in millimetres. The depth
    // colouring always follows them; the point cloud's range only when
    // `cloud` is set (the program's own editor changes leave it as it is).
    void colourRangeChanged(int minDistance, int maxDistance, bool cloud);
    // Registered views need the dual-integration, filtered frames that fast
    // mode gives up.
    void fastModeChanged(bool on);

protected:
    // Labels and width are measured again once shown: the style sheet's
    // fonts apply only then.
    void showEvent(QShowEvent* event) override;

private:
    // --- controlpanel.cpp
    void setupEditors();
    void setEditorLabels();
    void fitWidth();
    void controlPanelInit();
    void updateEnabled();
    void submit(CameraScript script);
    // Keeps the panel disabled until the script has run.
    void submitHolding(CameraScript script);
    void emitColourRange(bool cloud = true);

    // --- controlpanel_params.cpp
    void connectParameterHandlers();
    // Silently shows the spatial filter state; the kernel combo only talks
    // to the camera while the filter is on.
    void showSpatialFilter(bool on, int comboIndex);
    CameraScript exposureLimitScript(int fps);

    // --- controlpanel_capture.cpp
    void connectCaptureModes();
    void onTriggerMode(int i);

    // --- controlpanel_fastmode.cpp
    CameraScript fastModeOn();
    CameraScript fastModeOff();

    // --- controlpanel_defaults.cpp
    void appendFilterDefaults(CameraScript& script, const char* slot);

    Ui::ControlPanel* ui;
    FrameRateLimits frameRateMap;
    SessionStatus status_;
    bool controlsOn_ = false;
    int holds_ = 0;
    // Answer of IsRgbDevice at the last read-back.
    bool rgbDevice_ = false;
    QTimer* exposureTimer_ = nullptr;
    SaveControls* saveControls_ = nullptr;
};
