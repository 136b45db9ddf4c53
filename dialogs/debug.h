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

    // "<working dir>/yyyyMMddhhmmsszzz.log" for the given moment.
    static QString logFileName(const QDateTime& when);

    // How far (in scroll-bar units) the user may have scrolled up and still
    // have the view follow new lines.
    static constexpr int kFollowDistance = 50;

private slots:
    void on_pushButton_clicked();
    void on_pushButton_2_clicked();

private:
    void flushPending();
    // True when the view followed the new line to the bottom.
    bool appendLine(const QString& line);

    Ui::debug* ui;

    std::mutex pendingMutex_;
    QStringList pending_;
    bool flushScheduled_ = false;
};
