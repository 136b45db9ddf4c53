// Log lines of the control panel's handlers. Handlers wired as lambdas name
// themselves "operator ()" in both channels, the way the rest of the log
// reads; slots with a name of their own use WIDGET_LOG / WIDGET_DEBUG.
#pragma once

#include "debug.h"
#include "widgetlog.h"

#define HANDLER_DEBUG(msg)          \
    (qDebug().noquote() << "widget" \
                        << "operator ()" << __LINE__ << (msg))

#define HANDLER_LOG(msg) \
    (debugWindow_->appendLog(QStringLiteral("operator () ") + QString::number(__LINE__) + ' ' + (msg)))

// A named slot's line written from a helper lambda inside it.
#define NAMED_LOG(func, msg) \
    (debugWindow_->appendLog(QString::fromLatin1(func) + ' ' + QString::number(__LINE__) + ' ' + (msg)))
