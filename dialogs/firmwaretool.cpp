#include "firmwaretool.h"

#include <QRegularExpression>

namespace FirmwareTool {

QStringList arguments(const QString& imageFile, const QString& deviceText) {
    return {"-f", imageFile, "-h", deviceText, "-p", kAccessWord, "-e", "-w", "-r"};
}

bool reportsSuccess(const QByteArray& standardOutput) {
    return QString::fromLocal8Bit(standardOutput).contains(kSuccessMarker, Qt::CaseSensitive);
}

int progressPercent(const QString& line) {
    static const QRegularExpression percent(QStringLiteral("(\\d{1,3})\\s*%"));
    const QRegularExpressionMatch m = percent.match(line);
    if (!m.hasMatch()) return -1;
    const int value = m.captured(1).toInt();
    return value <= 100 ? value : -1;
}

}  // namespace FirmwareTool

FirmwareToolRun::FirmwareToolRun(QObject* parent) : QObject(parent) {
    qRegisterMetaType<FirmwareRunResult>("FirmwareRunResult");
    startTimer_.setSingleShot(true);
    finishTimer_.setSingleShot(true);
    process_.setProcessChannelMode(QProcess::SeparateChannels);

    connect(&process_, &QProcess::started, this, [this] {
        startTimer_.stop();
        finishTimer_.start(timing_.finishMs);
    });
    connect(&process_, &QProcess::readyReadStandardOutput, this, [this] { readOutput(false); });
    connect(&process_, &QProcess::readyReadStandardError, this, [this] { readErrors(); });
    connect(&process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) finish(FirmwareRunResult::Outcome::NotStarted, process_.errorString());
    });
    connect(&process_, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int, QProcess::ExitStatus) {
                readOutput(true);
                readErrors();
                finish(FirmwareTool::reportsSuccess(output_) ? FirmwareRunResult::Outcome::Succeeded
                                                             : FirmwareRunResult::Outcome::NoMarker,
                       lastError_);
            });
    connect(&startTimer_, &QTimer::timeout, this, [this] {
        finish(FirmwareRunResult::Outcome::NotStarted, QStringLiteral("not started within %1 ms").arg(timing_.startMs));
    });
    connect(&finishTimer_, &QTimer::timeout, this, [this] {
        readOutput(true);
        finish(FirmwareRunResult::Outcome::TimedOut, lastError_);
    });
}

FirmwareToolRun::~FirmwareToolRun() {
    done_ = true;
    process_.disconnect(this);
    if (process_.state() != QProcess::NotRunning) {
        process_.kill();
        process_.waitForFinished(1000);
    }
}

void FirmwareToolRun::start(const QString& program, const QStringList& arguments, Timing timing) {
    timing_ = timing;
    output_.clear();
    pendingLine_.clear();
    lastError_.clear();
    done_ = false;
    startTimer_.start(timing_.startMs);
    process_.start(program, arguments, QIODevice::ReadWrite);
}

void FirmwareToolRun::readOutput(bool all) {
    const QByteArray chunk = process_.readAllStandardOutput();
    output_ += chunk;
    pendingLine_ += chunk;
    // The tool prints progress a line at a time; a partial line waits for its end.
    int end;
    while ((end = pendingLine_.indexOf('\n')) >= 0) {
        const QString line = QString::fromLocal8Bit(pendingLine_.left(end)).trimmed();
        pendingLine_.remove(0, end + 1);
        if (!line.isEmpty() && !done_) emit outputLine(line);
    }
    if (all && !pendingLine_.isEmpty()) {
        const QString line = QString::fromLocal8Bit(pendingLine_).trimmed();
        pendingLine_.clear();
        if (!line.isEmpty() && !done_) emit outputLine(line);
    }
}

void FirmwareToolRun::readErrors() {
    const QStringList lines = QString::fromLocal8Bit(process_.readAllStandardError()).split('\n', Qt::SkipEmptyParts);
    for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
        if (!it->trimmed().isEmpty()) {
            lastError_ = it->trimmed();
            break;
        }
    }
}

void FirmwareToolRun::finish(FirmwareRunResult::Outcome outcome, const QString& reason) {
    if (done_) return;
    done_ = true;
    startTimer_.stop();
    finishTimer_.stop();
    FirmwareRunResult result;
    result.outcome = outcome;
    result.reason = reason;
    result.standardOutput = output_;
    if (outcome == FirmwareRunResult::Outcome::NoMarker || outcome == FirmwareRunResult::Outcome::Succeeded)
        result.exitCode = process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
    if (process_.state() != QProcess::NotRunning) {
        // A tool past its time is given up on; it must not go on talking to
        // the camera behind the user's back.
        process_.disconnect(this);
        process_.kill();
    }
    emit finished(result);
}
