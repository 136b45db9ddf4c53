// The viewer's two log channels. The debug stream gets "<file> <function>
// <line> <message>"; the log window gets "<function> <line> <message>". Parts
// below the window write log-window lines through a LogSink, which the window
// points at its log (safe to call from any thread, lines kept in call order).
#pragma once

#include <QDebug>
#include <QString>
#include <functional>
#include <string>

using LogSink = std::function<void(const QString&)>;

// Where a log-window line comes from: a function name and a source line.
struct LogOrigin {
    const char* function;
    int line;

    QString text(const QString& message) const {
        return QString::fromLatin1(function) + ' ' + QString::number(line) + ' ' + message;
    }
};

// A line from the current function, or from a control's handler (handlers
// have always named themselves "operator ()" in the log).
#define LOG_HERE (LogOrigin{__func__, __LINE__})
#define LOG_HANDLER (LogOrigin{"operator ()", __LINE__})
#define LOG_AS(name) (LogOrigin{name, __LINE__})

// Debug-stream line; `file` is the source file's base name.
#define DEBUG_LINE(file, message) (qDebug().noquote() << (file) << __func__ << __LINE__ << (message))
#define DEBUG_HANDLER(file, message) (qDebug().noquote() << (file) << "operator ()" << __LINE__ << (message))

// SDK strings are in the local 8-bit code page.
inline QString fromLocal(const std::string& s) { return QString::fromLocal8Bit(s.c_str()); }
