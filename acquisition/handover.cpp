#include "handover.h"

#include <QThread>

void Handover::post(QObject* context, std::function<void()> fn) {
    if (context->thread() != thread()) {
        QMetaObject::invokeMethod(context, std::move(fn), Qt::QueuedConnection);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        queue_.emplace_back(QPointer<QObject>(context), std::move(fn));
    }
    QMetaObject::invokeMethod(this, "deliver", Qt::QueuedConnection);
}

void Handover::deliver() {
    std::deque<std::pair<QPointer<QObject>, std::function<void()>>> ready;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ready.swap(queue_);
    }
    for (auto& [context, fn] : ready)
        if (context) fn();
}
