#include "debug.h"

#include <QDir>
#include <QFile>
#include <QScrollBar>
#include <QThread>
#include <string>

#include "ui_debug.h"
#include "uiprompt.h"

debug::debug(QWidget* parent) : QWidget(parent), ui(new Ui::debug) {
    ui->setupUi(this);
    ui->textBrowser->document()->setMaximumBlockCount(kMaxLines);
}

debug::~debug() { delete ui; }

void debug::retranslate() { ui->retranslateUi(this); }

QString debug::logFileName(const QDateTime& when) {
    return QDir::currentPath() + "/" + when.toString("yyyyMMddhhmmsszzz") + ".log";
}

void debug::appendLog(const QString& line) {
    {
        // One queue for every caller keeps the call order, whichever thread
        // a line comes from; only the GUI thread drains it into the view.
        std::lock_guard<std::mutex> lock(pendingMutex_);
        pending_.append(line);
        if (QThread::currentThread() != thread()) {
            if (!flushScheduled_) {
                flushScheduled_ = true;
                QMetaObject::invokeMethod(this, &debug::flushPending, Qt::QueuedConnection);
            }
            return;
        }
    }
    flushPending();
}

void debug::flushPending() {
    QStringList lines;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        lines.swap(pending_);
        flushScheduled_ = false;
    }
    if (lines.isEmpty()) return;
    linesWritten_ += quint64(lines.size());
    // The first line decides: a view that follows it would follow each of
    // the others too (a line is shorter than the follow distance), and one
    // that stays keeps staying. Moving the cursor once per batch instead of
    // once per line keeps a burst of thousands of lines from stalling the GUI.
    const bool following = appendLine(lines.first());
    for (int i = 1; i < lines.size(); ++i) ui->textBrowser->append(lines[i]);
    if (following && lines.size() > 1) ui->textBrowser->moveCursor(QTextCursor::End);
}

bool debug::appendLine(const QString& line) {
    ui->textBrowser->append(line);
    const QScrollBar* bar = ui->textBrowser->verticalScrollBar();
    // Someone scrolled up to read: leave the view where it is.
    if (bar->maximum() - bar->value() > kFollowDistance) return false;
    ui->textBrowser->moveCursor(QTextCursor::End);
    return true;
}

void debug::on_pushButton_clicked() { ui->textBrowser->clear(); }

void debug::on_pushButton_2_clicked() {
    QFile file(logFileName(QDateTime::currentDateTime()));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        UiPrompt::warning(this, "can't open", "openerr!");
        return;
    }
    const std::string text = ui->textBrowser->toPlainText().toStdString();
    file.write(text.data(), qint64(text.size()));
    file.close();
    UiPrompt::information(this, "succeed", "succeed");
}
