// The SDK's link callback and the recovery of a stream whose link broke.
#include <QDateTime>
#include <chrono>
#include <thread>

#include "camerasession.h"
#include "heaptrim.h"

void CameraSession::onLinkCallback(const std::string& sn, const std::string& error) {
    // The SDK's thread: flip the workers' switch, log and hand over. The
    // switch goes first: an SDK whose frame reads fail at once after a loss
    // has the workers logging a failure per read until it is off, and they
    // share the log's lock with the lines below.
    // Only a callback while frames flow starts a recovery, and only once
    // until they flow again.
    const bool wasStreaming = !shuttingDown_ && acquisition_.stopStreaming();
    qDebug().noquote() << fromLocal(sn) << fromLocal(error);
    log_("sdk callback:" + fromLocal(sn) + fromLocal(error));
    if (wasStreaming) {
        log_("sdk callback:" + fromLocal(sn) + "try to reinit...");
        post([this] { beginRecovery(); });
    }
}

void CameraSession::beginRecovery() {
    // A stop or disconnect handled meanwhile has the last word.
    if (state_.state != SessionState::Streaming) return;
    ++recoveryGeneration_;
    state_.recoveryFailed = false;
    state_.activity = tr("正在重新连接...");
    setState(SessionState::Recovering);
    const unsigned generation = recoveryGeneration_;
    post([this, generation] { recoveryPass(kRecoveryAttempts - 1, generation); });
}

// One attempt per job, counting i down to 0, so a stop or disconnect asked
// for meanwhile runs between two attempts.
void CameraSession::recoveryPass(int i, unsigned generation) {
    if (state_.state != SessionState::Recovering || generation != recoveryGeneration_) return;
    const unsigned ends = endRequests_;
    DEBUG_LINE("camerasession", QString("i:%1").arg(i));
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    DEBUG_LINE("camerasession", QString::number(QDateTime::currentMSecsSinceEpoch()));
    const ReturnCode ret = camera_.ReconnectDevice(kReconnectWaitMs);
    DEBUG_LINE("camerasession", QString::number(QDateTime::currentMSecsSinceEpoch()));
    if (ret == SUCCESS) {
        // Stop (or disconnect, or a search) was asked for while this attempt
        // ran: the session is back but the user no longer wants frames; the
        // queued request decides what comes next.
        if (endRequests_ != ends) return;
        camera_.StartStream();
        log_(LOG_AS("reconnectLoop").text("reconnect succeed"));
        state_.activity.clear();
        setState(SessionState::Streaming);
        acquisition_.setStreaming(true);
        releaseFreeHeap();
        return;
    }
    log_(LOG_AS("reconnectLoop").text("reconnect " + QString::number(i) + " " + describe(ret)));
    if (i == 0) {
        // Told in the log only: the buttons keep their streaming face and the
        // message asks for a new search.
        log_(LOG_AS("reconnectLoop").text("reconnect err! please search once again!!!"));
        state_.recoveryFailed = true;
        state_.activity.clear();
        publish();
        return;
    }
    post([this, i, generation] { recoveryPass(i - 1, generation); });
}
