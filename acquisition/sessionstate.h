// The camera session as values: its state, what it shows of the open camera,
// and the one-off events the window's parts react to. Captions and enabled
// states are derived from these, never read back from a widget.
#pragma once

#include <QMetaType>
#include <QSize>
#include <QString>
#include <QStringList>
#include <optional>

#include "cameramodel.h"

enum class SessionState {
    Idle,        // nothing found, or the session ended
    Listed,      // a search found cameras; none is open
    Open,        // a camera is open and not streaming (stopped, or a start that failed after opening)
    Streaming,   // frames flow
    Recovering,  // the link broke while streaming; the session tries to re-open it
};

// What the camera showed when the stream started; cleared when the view is reset.
struct DeviceDetails {
    bool present = false;
    QString serial;
    QString firmware;
    QString deviceVersion;
    QString address;                   // the part of the list entry after its last ':'
    std::optional<CameraModel> model;  // none for an empty serial number
};

struct SessionStatus {
    SessionState state = SessionState::Idle;
    QStringList devices;  // the last search, in list order
    DeviceDetails device;
    QSize colourSize;   // colour image size reported by the open camera
    bool busy = false;  // a session operation (search, start, stop, disconnect) is under way
    QString activity;   // untranslated text of what runs, for the status line; empty when idle
    bool recoveryFailed = false;
    // The camera has streamed since it was opened (what importing a
    // configuration and resetting the camera ask for).
    bool startedOnce = false;
    // The camera went away to restart on the user's request (new firmware):
    // what it showed no longer holds and the list wants a new search.
    bool searchDue = false;

    bool streamingFace() const { return state == SessionState::Streaming || state == SessionState::Recovering; }
    bool connected() const {
        return state == SessionState::Open || state == SessionState::Streaming || state == SessionState::Recovering;
    }
};

// One-off moments of a session that parts of the window act on. The status
// sent with an event is the session's status at that moment.
enum class SessionEvent {
    ControlsOn,        // a start opened the camera: the panel takes input
    PreparingStream,   // a start read the colour size (only without registration)
    ReadBack,          // a start wants the panel filled from the camera
    ShowPanes,         // a start is about to stream: every pane shown and ticked
    StreamStarted,     // frames flow; the status carries the device details
    Stopping,          // the stream is being stopped: frame rates back to "0fps"
    ControlsOff,       // stop or a lost link: panel and editors off
    ControlsReleased,  // disconnect or another camera chosen: editors off, filters unticked
    ResetView,         // information cleared, panes hidden and unticked
    ClearScenes,       // disconnect: pictures and the point cloud emptied
};

enum class PromptKind { Warning, Information };

Q_DECLARE_METATYPE(SessionStatus)
Q_DECLARE_METATYPE(SessionEvent)
Q_DECLARE_METATYPE(PromptKind)
