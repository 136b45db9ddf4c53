// Waits for a camera session to come to rest: every request has run and the
// thread of `context` has taken in everything the session reported, including
// what those reports asked for in turn. A marker script goes through the
// session after everything else; its answer arrives after every earlier
// report, and if nothing new was asked for meanwhile, all is done.
#pragma once

#include <QElapsedTimer>
#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <memory>

#include "camerasession.h"

inline bool settleSession(CameraSession& session, QObject* context, int timeoutMs = 20000) {
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        // The loop runs until the marker's answer arrives (or time is up);
        // an answer after a timeout finds neither the loop nor this frame.
        QEventLoop loop;
        QPointer<QEventLoop> waiting(&loop);
        auto arrived = std::make_shared<bool>(false);
        CameraScript marker;
        marker.onFinished(context, [arrived, waiting](const ScriptOutcome&) {
            *arrived = true;
            if (waiting) waiting->quit();
        });
        // Counted before the marker goes in: a job that a running job posts
        // between the two would otherwise be counted, yet queued behind it.
        const unsigned asked = session.requestCount();
        session.run(marker);
        const qint64 left = timeoutMs - timer.elapsed();
        if (left <= 0) return false;
        QTimer::singleShot(int(left), &loop, &QEventLoop::quit);
        if (!*arrived) loop.exec();
        if (!*arrived) return false;
        if (session.requestCount() == asked + 1) return true;  // the marker alone
    }
}
