// A sequence of camera operations that the session runs as one job on its own
// thread: the calls in order, the log lines around them, the pauses between
// them and how each result is judged. The part that owns a behaviour builds
// the script from what it shows; the session runs scripts one after another
// in the order they arrive, so the camera sees every sequence whole while the
// window stays responsive.
#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "camerainterface.h"
#include "logline.h"

// How a step's result is judged.
enum class ResultCheck {
    Error,      // anything but success shows the error box; a lost link (33) ends the session
    Box,        // anything but success shows the error text under the step's own title, nothing more
    ZeroFails,  // only 0 counts as failure, logged without a box (the exposure-mode calls)
    Ignored,    // the result is not looked at
};

// Whether a step runs, by what the user sees of the session when it is reached.
enum class StepWhen { Always, Streaming, NotStreaming };

// Stopping and starting the stream around a mode change: the frame workers
// idle meanwhile instead of reporting failed reads, while the user still sees
// a streaming session.
enum class StreamEffect { None, Stop, Start };

struct ScriptOutcome;

struct CameraStep {
    QString before;  // log-window line written before the call
    std::function<ReturnCode(CameraInterface&)> call;
    // Log-window line after a successful call, made after it so it can show
    // what a read returned.
    std::function<QString()> after;
    QStringList failure;  // log-window lines after a failed call
    ResultCheck check = ResultCheck::Error;
    QString boxTitle;  // for ResultCheck::Box
    // For ResultCheck::Box: the text with %1 for the SDK's description of the
    // result; empty means the usual "错误信息：%1".
    QString boxText;
    StepWhen when = StepWhen::Always;
    // A further condition on earlier results; `self` is this step's index,
    // so a condition can look at the step before it wherever the script is appended.
    std::function<bool(const ScriptOutcome&, std::size_t self)> onlyIf;
    StreamEffect stream = StreamEffect::None;
    bool endOnFailure = false;
    int pauseMs = 0;  // waited after the step, whatever its result
};

struct ScriptOutcome {
    std::vector<std::optional<ReturnCode>> results;  // per step; empty for a step that did not run
    bool ran = false;          // false: refused as a whole (the session was not in the state it needs)
    bool failed = false;       // a judged call failed
    bool ended = false;        // stopped before its last step
    bool sessionLost = false;  // the session ended while it ran

    std::optional<ReturnCode> result(std::size_t step) const {
        return step < results.size() ? results[step] : std::nullopt;
    }
    bool ok() const { return ran && !failed && !ended; }
};

class CameraScript {
public:
    using Call = std::function<ReturnCode(CameraInterface&)>;
    using Finished = std::function<void(const ScriptOutcome&)>;

    CameraScript() = default;
    // `activity`: untranslated text the status line shows while it runs (empty: none).
    explicit CameraScript(QString activity) : activity_(std::move(activity)) {}

    // A call with the usual lines: `before` ahead of it and `failure` after a
    // failed result (either may be empty), both prefixed with the origin.
    CameraStep& call(LogOrigin origin, const QString& before, Call fn, const QString& failure = QString(),
                     ResultCheck check = ResultCheck::Error);
    // A log-window line in the script's order.
    CameraStep& log(LogOrigin origin, const QString& line);
    CameraStep& pause(int ms);
    CameraStep& last() { return steps_.back(); }

    // Runs only while the session streams; otherwise nothing of it runs.
    CameraScript& whileStreaming() {
        needsStreaming_ = true;
        return *this;
    }
    // Called on `context`'s thread once the script has run (or was refused).
    // The context must outlive the session that runs the script.
    CameraScript& onFinished(QObject* context, Finished finished) {
        context_ = context;
        finished_ = std::move(finished);
        return *this;
    }
    // The steps of `other` after these.
    CameraScript& append(const CameraScript& other);

    const std::vector<CameraStep>& steps() const { return steps_; }
    std::size_t size() const { return steps_.size(); }
    bool empty() const { return steps_.empty(); }
    const QString& activity() const { return activity_; }
    bool needsStreaming() const { return needsStreaming_; }
    QObject* context() const { return context_; }
    bool hasFinished() const { return bool(finished_); }
    const Finished& finished() const { return finished_; }

private:
    std::vector<CameraStep> steps_;
    QString activity_;
    bool needsStreaming_ = false;
    QObject* context_ = nullptr;
    Finished finished_;
};

Q_DECLARE_METATYPE(CameraScript)
