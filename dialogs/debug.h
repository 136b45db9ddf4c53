// Operational log window: SDK callbacks, start/stop steps, parameter changes
// and their failures, one line each.
#pragma once

#include <QDateTime>
#include <QStringList>
#include <QWidget>
#include <mutex>

namespace Ui {
class debug;
}

class debug : public QWidget {
    Q_OBJECT
public:
    explicit debug(QWidget* parent = nullptr);
    ~debug() override;

    // Callable from any thread. Lines from other threads are handed to the
    // GUI thread; all lines appear in the order the calls were made.
    void appendLog(const QString& line);
    void retranslate();
    // Lines shown since the window was made, the dropped and cleared ones
    // included (GUI thread).
    quint64 linesWritten() const { return linesWritten_; }

    // "<working dir>/yyyyMMddhhmmsszzz.log" for the given moment.
    static QString logFileName(const QDateTime& when);

    // How far (in scroll-bar units) the user may have scrolled up and still
    // have the view follow new lines.
    static constexpr int kFollowDistance = 50;
    // Lines the window keeps; the oldest go first. Some failures are logged
    // once per attempt and the attempts follow at once (a failed frame read),
    // so a camera in trouble can write thousands of lines (4,600 within one
    // cycle of the soak, around a failed start); kept for the life of the
    // window, they only grew.
    static constexpr int kMaxLines = 10000;

private slots:
    void on_pushButton_clicked();
    void on_pushButton_2_clicked();

private:
    void flushPending();
    // True when the view followed the new line to the bottom.
    bool appendLine(const QString& line);
    quint64 linesWritten_ = 0;

    Ui::debug* ui;

    std::mutex pendingMutex_;
    QStringList pending_;
    bool flushScheduled_ = false;
};
