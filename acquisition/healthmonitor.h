// Reads the stream's counters once a second on a thread of its own (never
// the window's) while frames flow, turns them into the health area's
// figures and writes the log window's lines when loss or drops pass their
// threshold and when they recover. Idle when the camera interface keeps no
// counters.
#pragma once

#include <QObject>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "camerainterface.h"
#include "logline.h"
#include "streamhealth.h"

class Acquisition;

Q_DECLARE_METATYPE(HealthFigures)

class HealthMonitor : public QObject {
    Q_OBJECT
public:
    static constexpr int kIntervalMs = 1000;
    using PaintedFrames = std::function<PaintCounts()>;

    // `painted`: frames painted per pane so far; read from the monitor's
    // thread. `intervalMs` 0: no timer, the owner calls sample() (tests).
    HealthMonitor(CameraInterface& camera, Acquisition& acquisition, PaintedFrames painted, LogSink log,
                  int intervalMs = kIntervalMs);
    ~HealthMonitor() override;

    bool available() const { return camera_.hasStreamStatistics(); }
    // Reads the counters now; `seconds` since the last reading. The timer
    // calls it once a second; tests call it with their own time.
    void sample(double seconds);

signals:
    void figuresChanged(const HealthFigures& figures);

private:
    CameraInterface& camera_;
    Acquisition& acquisition_;
    PaintedFrames painted_;
    LogSink log_;

    // The reading thread: a plain thread whose end the destructor joins.
    std::thread thread_;
    std::mutex wakeMutex_;
    std::condition_variable wake_;
    bool stop_ = false;  // under wakeMutex_

    std::mutex mutex_;  // sample() may come from a test thread too
    bool haveBaseline_ = false;
    StreamStatistics last_;
    PaintCounts lastPainted_{};
    HealthAlarm alarm_;
};
