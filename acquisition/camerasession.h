// The camera session: the one place the viewer talks to the camera from, on a
// thread of its own. It runs the user's requests (search, start, stop,
// disconnect, another camera chosen) and the panels' camera scripts one after
// another, with the pauses the camera needs, and recovers a stream whose link
// broke. Its state is a value published with stateChanged; the window's
// captions and enabled states follow it. Boxes are requested through prompt,
// log-window lines go to the log sink, so nothing here blocks the window.
#pragma once

#include <QObject>
#include <QThread>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "acquisition.h"
#include "camerainterface.h"
#include "camerascript.h"
#include "handover.h"
#include "logline.h"
#include "sessionstate.h"

class CameraSession : public QObject {
    Q_OBJECT
public:
    // The session's own pace: the SDK call timeout set at start-up, the
    // recovery attempts and the wait each gets.
    static constexpr unsigned kSdkTimeoutMs = 1000;
    static constexpr int kRecoveryAttempts = 30;
    static constexpr unsigned kReconnectWaitMs = 1000;

    CameraSession(CameraInterface& camera, Acquisition& acquisition, LogSink log);
    // Ends the thread; the link callback is unregistered first, which waits
    // for a callback in flight.
    ~CameraSession() override;

    // --- Requests, from the GUI thread; each runs later on the session thread.
    // Sets the SDK timeout and registers the link callback.
    void begin();
    void search();
    // `row` of the device list the user chose.
    void start(int row);
    void stop();
    void disconnectDevice();
    // The user chose another camera in the list.
    void changeDevice();
    // The panel has read the camera's settings (ok) or failed to; the start
    // goes on to the stream only after a good read.
    void continueStart(bool ok);
    // Stops and closes the camera for a closing window; answers closeFinished.
    void closeSession();
    void run(CameraScript script);
    // Drops entry `row` of the list when it still reads `device` (a camera
    // that is moving to another address); anything else leaves the list.
    void forgetDevice(int row, const QString& device);
    // The open camera is restarting on new firmware: its details are
    // cleared and the status line asks for a search. The session stays open.
    void cameraRestarting();
    // Shows the "abnormal state" box for a result reported from elsewhere.
    void reportError(ReturnCode ret);
    // Transport of the next start: TCP (true, the default) or UDP.
    void setTransport(bool tcp) { tcp_ = tcp; }
    bool tcpTransport() const { return tcp_; }

    // --- Thread-safe views
    SessionStatus status() const;
    // A request or script is queued or running.
    bool busy() const { return pending_.load() > 0; }
    // Requests and scripts asked for so far.
    unsigned requestCount() const { return requests_.load(); }

signals:
    void stateChanged(const SessionStatus& status);
    void sessionEvent(SessionEvent event, const SessionStatus& status);
    void prompt(PromptKind kind, const QString& title, const QString& text);
    void closeFinished(bool accepted);
    // Everything requested so far has run.
    void idle();

private:
    template <typename Job>
    void post(Job job);
    // Invoked by name through the event queue: a functor passed to
    // invokeMethod is built on the posting thread and read on the session
    // thread inside Qt, where the thread sanitizer cannot see the handover.
    Q_INVOKABLE void runNextJob();
    // The session thread's last job, from the destructor (same handover).
    Q_INVOKABLE void runLastJob();
    // Sleeps, unless the session is going away.
    void pause(int ms);
    void publish();
    void emitEvent(SessionEvent event);
    // The signals above are emitted on the window's thread, through the
    // handover: their arguments are copied here, under its lock, rather than
    // by Qt's queue, which ThreadSanitizer cannot follow (handover.h).
    template <typename Emit>
    void tellWindow(Emit emitIt) {
        handover_.post(&handover_, std::move(emitIt));
    }
    void setState(SessionState state);
    QString describe(ReturnCode code);
    void warn(const QString& title, const QString& text);

    // Jobs (session thread)
    void searchJob();
    void startJob(int row);
    void finishStart();
    void stopJob();
    void disconnectJob();
    void changeDeviceJob();
    void closeJob();
    void runScript(const CameraScript& script);
    void beginRecovery();
    void recoveryPass(int i, unsigned generation);
    void onLinkCallback(const std::string& sn, const std::string& error);

    // True only for success. Otherwise shows the error box; a lost link ends
    // the session first.
    bool checkError(ReturnCode ret);
    // The camera is regarded as gone: the session ends without a call.
    void deviceDisconnect();
    // The stop half of the start/stop button.
    void stopBranch();
    bool sessionGone() const;

    CameraInterface& camera_;
    Acquisition& acquisition_;
    LogSink log_;
    QThread thread_;

    // Session thread only.
    std::vector<std::string> deviceList_;
    bool starting_ = false;
    unsigned recoveryGeneration_ = 0;
    SessionStatus state_;

    mutable std::mutex statusMutex_;
    SessionStatus published_;

    std::atomic<bool> tcp_{true};
    std::atomic<int> pending_{0};
    std::atomic<unsigned> requests_{0};
    std::atomic<bool> shuttingDown_{false};
    // Bumped by every request that ends a stream, at the moment the user asks:
    // a recovery attempt already under way then leaves the stream stopped.
    std::atomic<unsigned> endRequests_{0};
    std::mutex pauseMutex_;
    std::condition_variable pauseWake_;
    // Posted jobs in order; one event per job runs them on the session thread.
    std::mutex jobsMutex_;
    std::deque<std::function<void()>> jobs_;
    std::function<void()> lastJob_;
    // Signals and scripts' outcomes to the window's thread; made there and
    // staying there while the session moves to its own thread.
    Handover handover_;
};

template <typename Job>
void CameraSession::post(Job job) {
    ++pending_;
    ++requests_;
    {
        // The job itself goes through a queue of ours, under a lock the
        // thread sanitizer can see; the event only says "run the next one".
        std::lock_guard<std::mutex> lock(jobsMutex_);
        jobs_.emplace_back(std::move(job));
    }
    QMetaObject::invokeMethod(this, "runNextJob", Qt::QueuedConnection);
}
