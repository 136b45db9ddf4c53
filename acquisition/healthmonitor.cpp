#include "healthmonitor.h"

#include <QCoreApplication>
#include <chrono>

#include "acquisition.h"

namespace {
QString percent(double share) { return QString::number(share * 100.0, 'f', 1); }
}  // namespace

HealthMonitor::HealthMonitor(CameraInterface& camera, Acquisition& acquisition, PaintedFrames painted, LogSink log,
                             int intervalMs)
    : camera_(camera), acquisition_(acquisition), painted_(std::move(painted)), log_(std::move(log)) {
    qRegisterMetaType<HealthFigures>("HealthFigures");
    if (!available() || intervalMs <= 0) return;
    thread_ = std::thread([this, intervalMs] {
        using Clock = std::chrono::steady_clock;
        // The time between two readings is measured, not assumed: a loaded
        // machine wakes the thread late.
        Clock::time_point last = Clock::now();
        std::unique_lock<std::mutex> lock(wakeMutex_);
        while (!wake_.wait_for(lock, std::chrono::milliseconds(intervalMs), [this] { return stop_; })) {
            lock.unlock();
            const Clock::time_point now = Clock::now();
            sample(std::chrono::duration<double>(now - last).count());
            last = now;
            lock.lock();
        }
    });
}

HealthMonitor::~HealthMonitor() {
    {
        std::lock_guard<std::mutex> lock(wakeMutex_);
        stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void HealthMonitor::sample(double seconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    StreamStatistics now;
    if (!acquisition_.streaming() || !camera_.readStreamStatistics(now)) {
        // The next stream is measured from its own start.
        haveBaseline_ = false;
        if (alarm_.raised()) alarm_.reset();
        return;
    }
    const PaintCounts painted = painted_ ? painted_() : PaintCounts{};
    if (!haveBaseline_) {
        haveBaseline_ = true;
        last_ = now;
        lastPainted_ = painted;
        return;
    }
    const HealthFigures f = healthFigures(last_, now, lastPainted_, painted, seconds);
    last_ = now;
    lastPainted_ = painted;
    switch (alarm_.update(f)) {
        case HealthAlarm::Change::Raised:
            log_(LOG_HERE.text(tr("网络丢包 %1%，丢帧 %2%").arg(percent(f.lossShare), percent(f.dropShare))));
            break;
        case HealthAlarm::Change::Cleared:
            log_(LOG_HERE.text(tr("网络已恢复：丢包 %1%，丢帧 %2%").arg(percent(f.lossShare), percent(f.dropShare))));
            break;
        case HealthAlarm::Change::None:
            break;
    }
    emit figuresChanged(f);
}
