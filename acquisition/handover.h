// Hands functions from worker threads to the thread an object of this class
// was made on (the window's, in practice).
#pragma once

#include <QObject>
#include <QPointer>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

// A function posted here waits in a queue under a std::mutex, and the event
// that runs it names a method instead of carrying the function. So a function
// built on one thread is read on the other only through that mutex, which
// ThreadSanitizer follows; a functor passed through Qt's own event queue is
// synchronised inside libQt5Core, where it cannot, and shows up as a race.
class Handover : public QObject {
    Q_OBJECT
public:
    Handover() = default;

    // Runs `fn` on this object's thread, unless `context` is gone by then.
    // A context living on another thread gets `fn` on its own thread, by the
    // same kind of queue.
    void post(QObject* context, std::function<void()> fn);

private:
    Q_INVOKABLE void deliver();

    std::mutex mutex_;
    std::deque<std::pair<QPointer<QObject>, std::function<void()>>> queue_;
};
