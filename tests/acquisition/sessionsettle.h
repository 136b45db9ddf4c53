// Waits for a camera session to come to rest: every request has run and the
// thread of `context` has taken in everything the session reported, including
// what those reports asked for in turn. A marker script goes through the
// session after everything else; its answer arrives after every earlier
// report, and if nothing new was asked for meanwhile, all is done.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include "camerasession.h"

inline bool settleSession(CameraSession& session, QObject* context, int timeoutMs = 20000) {
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        bool arrived = false;
        CameraScript marker;
        marker.onFinished(context, [&arrived](const ScriptOutcome&) { arrived = true; });
        session.run(marker);
        const unsigned asked = session.requestCount();
        while (!arrived) {
            if (timer.elapsed() > timeoutMs) return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            if (!arrived) QThread::msleep(1);
        }
        if (session.requestCount() == asked) return true;
    }
}
