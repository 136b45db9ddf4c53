#include "streamhealth.h"

#include <algorithm>

namespace {

uint64_t grown(uint64_t before, uint64_t now) { return now >= before ? now - before : now; }

}  // namespace

HealthFigures healthFigures(const StreamStatistics& before, const StreamStatistics& now,
                            const PaintCounts& paintedBefore, const PaintCounts& paintedNow, double seconds) {
    // A new stream restarts the counters: measure from zero then.
    const bool restarted = now.framesComplete < before.framesComplete || now.bytesReceived < before.bytesReceived;
    const StreamStatistics base = restarted ? StreamStatistics() : before;
    HealthFigures f;
    f.udp = now.udp;
    const double s = std::max(seconds, 1e-3);
    const uint64_t complete = grown(base.framesComplete, now.framesComplete);
    const uint64_t dropped = grown(base.framesDropped, now.framesDropped);
    f.receivedFps = double(complete) / s;
    for (size_t i = 0; i < 3; ++i) f.paintedFps[i] = double(grown(paintedBefore[i], paintedNow[i])) / s;
    f.megabytesPerSecond = double(grown(base.bytesReceived, now.bytesReceived)) / 1e6 / s;
    f.framesDropped = now.framesDropped;
    f.packetsLost = now.packetsLost;
    f.packetsResendRequested = now.packetsResendRequested;
    f.packetsRecovered = now.packetsRecovered;
    f.meanLatencyMs = now.meanLatencyMs;
    f.maxLatencyMs = now.maxLatencyMs;
    f.dropShare = complete + dropped ? double(dropped) / double(complete + dropped) : 0.0;
    const uint64_t lost = grown(base.packetsLost, now.packetsLost);
    const uint64_t received = grown(base.packetsReceived, now.packetsReceived);
    const uint64_t recovered = grown(base.packetsRecovered, now.packetsRecovered);
    // Datagrams sent the first time: those that came at once, and the lost
    // ones (a recovered one is counted received when its resend came).
    const uint64_t sent = (received > recovered ? received - recovered : 0) + lost;
    f.lossShare = sent ? double(lost) / double(sent) : 0.0;
    return f;
}

HealthAlarm::Change HealthAlarm::update(const HealthFigures& f) {
    const double worst = std::max(f.dropShare, f.lossShare);
    if (!raised_ && worst > kRaiseShare) {
        raised_ = true;
        return Change::Raised;
    }
    if (raised_ && worst <= kClearShare) {
        raised_ = false;
        return Change::Cleared;
    }
    return Change::None;
}
