// The window's two log channels. The debug stream gets "widget <function>
// <line> <message>"; the log window gets "<function> <line> <message>".
// Both macros are usable from any thread (the log window queues lines from
// other threads to the GUI thread in call order).
#pragma once

#include <QDebug>
#include <QString>

#define WIDGET_DEBUG(msg) (qDebug().noquote() << "widget" << __func__ << __LINE__ << (msg))

#define WIDGET_LOG(msg) \
    (debugWindow_->appendLog(QString::fromLatin1(__func__) + ' ' + QString::number(__LINE__) + ' ' + (msg)))
