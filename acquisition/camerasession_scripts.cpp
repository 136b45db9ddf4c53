// Running the panels' camera scripts: each step's lines, call, judgement and
// pause, in order, on the session's thread.
#include "camerasession.h"
#include "compatibility.h"

void CameraSession::runScript(const CameraScript& script) {
    ScriptOutcome outcome;
    outcome.results.resize(script.size());
    const bool allowed = !script.needsStreaming() || state_.state == SessionState::Streaming;
    if (allowed && !script.activity().isEmpty()) {
        state_.activity = script.activity();
        publish();
    }
    // Whether this script stopped the frame workers, so its restart resumes them.
    bool workersStopped = false;
    for (std::size_t i = 0; allowed && i < script.size(); ++i) {
        const CameraStep& step = script.steps()[i];
        if (shuttingDown_) {
            outcome.ended = true;
            break;
        }
        if (sessionGone()) {
            outcome.ended = outcome.sessionLost = true;
            break;
        }
        const bool streaming = state_.state == SessionState::Streaming;
        if ((step.when == StepWhen::Streaming && !streaming) || (step.when == StepWhen::NotStreaming && streaming))
            continue;
        if (step.onlyIf && !step.onlyIf(outcome, i)) continue;

        if (!step.before.isEmpty()) log_(step.before);
        if (step.call) {
            if (step.stream == StreamEffect::Stop && acquisition_.stopStreaming()) workersStopped = true;
            const ReturnCode rc = step.call(camera_);
            outcome.results[i] = rc;
            bool ok = true;
            switch (step.check) {
                case ResultCheck::Error:
                    ok = checkError(rc);
                    break;
                case ResultCheck::Box:
                    ok = rc == SUCCESS;
                    if (!ok)
                        warn(step.boxTitle,
                             (step.boxText.isEmpty() ? tr("错误信息：%1") : step.boxText).arg(describe(rc)));
                    break;
                case ResultCheck::ZeroFails:
                    ok = !Compatibility::exposureModeCallFailed(rc);
                    break;
                case ResultCheck::Ignored:
                    break;
            }
            if (step.stream == StreamEffect::Start && workersStopped && state_.state == SessionState::Streaming) {
                acquisition_.setStreaming(true);
                workersStopped = false;
            }
            if (ok && step.after) log_(step.after());
            if (!ok) {
                for (const QString& line : step.failure) log_(line);
                outcome.failed = true;
                if (step.endOnFailure) {
                    outcome.ended = true;
                    break;
                }
            }
        }
        if (step.pauseMs > 0) pause(step.pauseMs);
    }
    // A script that stopped the stream and ended before its restart leaves
    // the workers to whoever restarts the stream; a streaming session must
    // not stay without them.
    if (workersStopped && state_.state == SessionState::Streaming && !outcome.ended) acquisition_.setStreaming(true);
    if (sessionGone() && !outcome.ended && allowed) outcome.sessionLost = true;
    outcome.ran = allowed;
    if (allowed && !script.activity().isEmpty()) {
        state_.activity.clear();
        publish();
    }
    if (script.hasFinished() && script.context()) {
        handover_.post(script.context(), [finished = script.finished(), outcome] { finished(outcome); });
    }
}
