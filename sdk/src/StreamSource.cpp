#include "StreamSource.h"

namespace d3sdk {

using Clock = std::chrono::steady_clock;

Clock::time_point StreamSource::lastReceived() const {
    std::lock_guard<std::mutex> lock(statsMutex_);
    return lastReceived_;
}

void StreamSource::noteReceived(uint64_t bytes) {
    std::lock_guard<std::mutex> lock(statsMutex_);
    lastReceived_ = Clock::now();
    stats_.bytesReceived += bytes;
}

void StreamSource::countPublished(uint32_t frameId, bool overwritten, double latencyMs, bool gapsDropped) {
    std::lock_guard<std::mutex> lock(statsMutex_);
    // Gaps in frame ids are frames that never arrived whole, skipped by the
    // camera because we were slow.
    if (gapsDropped && haveLastId_ && frameId > stats_.lastFrameId + 1)
        stats_.framesDropped += frameId - stats_.lastFrameId - 1;
    haveLastId_ = true;
    stats_.lastFrameId = frameId;
    ++stats_.framesComplete;
    if (overwritten) {
        ++stats_.framesDropped;
        ++stats_.framesOverwritten;
    }
    latencyMsSum_ += latencyMs;
    if (latencyMs > stats_.maxUnpackMs) stats_.maxUnpackMs = latencyMs;
}

void StreamSource::noteDelivered() {
    std::lock_guard<std::mutex> lock(statsMutex_);
    ++stats_.framesDelivered;
}

StreamStats StreamSource::stats() const {
    std::lock_guard<std::mutex> lock(statsMutex_);
    StreamStats s = stats_;
    s.meanUnpackMs = s.framesComplete ? latencyMsSum_ / double(s.framesComplete) : 0.0;
    s.seconds = std::chrono::duration<double>(Clock::now() - statsStart_).count();
    return s;
}

void StreamSource::resetStats() {
    std::lock_guard<std::mutex> lock(statsMutex_);
    const uint32_t last = stats_.lastFrameId;
    const bool udp = stats_.udp;
    const uint16_t port = stats_.localPort;
    stats_ = StreamStats{};
    stats_.lastFrameId = last;
    stats_.udp = udp;
    stats_.localPort = port;
    latencyMsSum_ = 0;
    statsStart_ = Clock::now();
    lastReceived_ = statsStart_;
}

}  // namespace d3sdk
