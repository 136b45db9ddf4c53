// The external firmware tool: where it is, what it is given, how its success
// is recognised, and one run of it that never blocks the thread it lives on.
// The tool talks to the camera itself; the viewer only starts it, shows what
// it prints and reads the verdict from its standard output.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>

namespace FirmwareTool {

// Relative to the working folder, where the tool ships beside the program.
inline const QString kProgram = QStringLiteral("./firmwareUpdateTool-v1.0.3");
// The word the camera asks of whoever updates it.
inline const QString kAccessWord = QStringLiteral("qm-tbrwkex");
// The tool's own spelling, compared case-sensitively.
inline const QString kSuccessMarker = QStringLiteral("update successed!");
constexpr int kStartTimeoutMs = 5000;
constexpr int kFinishTimeoutMs = 30000;

// "-f FILE -h DEVICE -p WORD -e -w -r": erase, write and reboot into the image.
QStringList arguments(const QString& imageFile, const QString& deviceText);
// The tool succeeded only if its standard output says so.
bool reportsSuccess(const QByteArray& standardOutput);
// The share a progress line reports ("... 40% ..."), or -1 when it names none.
int progressPercent(const QString& line);

}  // namespace FirmwareTool

// How one run of the tool ended.
struct FirmwareRunResult {
    enum class Outcome {
        Succeeded,   // the marker was in its output
        NotStarted,  // missing, not executable, or not started in time
        TimedOut,    // still running when the finish time was up; it was stopped
        NoMarker,    // it ended without saying it succeeded
    };
    Outcome outcome = Outcome::NotStarted;
    int exitCode = -1;  // for NoMarker; -1 when it crashed
    QString reason;     // why it did not start, or the last line it wrote on standard error
    QByteArray standardOutput;
};

// How long the tool may take to start, and then to finish.
struct FirmwareToolTiming {
    int startMs = FirmwareTool::kStartTimeoutMs;
    int finishMs = FirmwareTool::kFinishTimeoutMs;
};

// One run: start(), then lines as the tool prints them, then finished() once.
// The process object lives as long as this run.
class FirmwareToolRun : public QObject {
    Q_OBJECT
public:
    using Timing = FirmwareToolTiming;
    explicit FirmwareToolRun(QObject* parent = nullptr);
    ~FirmwareToolRun() override;

    void start(const QString& program, const QStringList& arguments, Timing timing = Timing());
    bool running() const { return !done_; }

signals:
    void outputLine(const QString& line);
    void finished(const FirmwareRunResult& result);

private:
    void readOutput(bool all);
    void readErrors();
    void finish(FirmwareRunResult::Outcome outcome, const QString& reason = QString());

    QProcess process_;
    QTimer startTimer_;
    QTimer finishTimer_;
    Timing timing_;
    QByteArray output_;
    QByteArray pendingLine_;
    QString lastError_;
    bool done_ = true;
};

Q_DECLARE_METATYPE(FirmwareRunResult)
