#include "handover.h"

#include <QThread>

namespace {

// Carries one function to a context on another thread than the hand-over's.
// It lives on the context's thread and is invoked there by name; the
// function waits in it under a std::mutex, for the same reason as in
// Handover itself. It deletes itself after the run.
class Courier : public QObject {
    Q_OBJECT
public:
    Courier(QObject* context, std::function<void()> fn) {
        std::lock_guard<std::mutex> lock(mutex_);
        context_ = context;
        fn_ = std::move(fn);
    }

    Q_INVOKABLE void run() {
        std::function<void()> fn;
        QPointer<QObject> context;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            fn.swap(fn_);
            context.swap(context_);
        }
        if (context && fn) fn();
        deleteLater();
    }

private:
    std::mutex mutex_;
    std::function<void()> fn_;
    QPointer<QObject> context_;
};

}  // namespace

void Handover::post(QObject* context, std::function<void()> fn) {
    if (context->thread() != thread()) {
        auto* courier = new Courier(context, std::move(fn));
        courier->moveToThread(context->thread());
        QMetaObject::invokeMethod(courier, "run", Qt::QueuedConnection);
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

#include "handover.moc"
