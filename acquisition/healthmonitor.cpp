#include "healthmonitor.h"

#include <QCoreApplication>
#include <QTimer>
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
    thread_.setObjectName(QStringLiteral("health"));
    timer_ = new QTimer;
    timer_->setInterval(intervalMs);
    timer_->moveToThread(&thread_);
    // The time between two readings is measured, not assumed: a loaded
    // machine fires the timer late.
    auto last = std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
    connect(timer_, &QTimer::timeout, timer_, [this, last] {
        const auto now = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(now - *last).count();
        *last = now;
        sample(seconds);
    });
    connect(&thread_, &QThread::started, timer_, [this] { timer_->start(); });
    connect(&thread_, &QThread::finished, timer_, &QObject::deleteLater);
    thread_.start();
}

HealthMonitor::~HealthMonitor() {
    thread_.quit();
    thread_.wait();
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
