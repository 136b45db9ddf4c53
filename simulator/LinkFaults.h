// Network faults a simulated camera can be told to show: lost stream
// datagrams (seeded, so a run can be repeated), latency with jitter, a
// bandwidth limit, and a pause (the camera stops answering for a while, as a
// frozen device would). Read by the camera's threads, set from tests or the
// d3sim control socket at any time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>

#include "LinkTimeline.h"

namespace d3sim {

class LinkFaults {
public:
    using Clock = std::chrono::steady_clock;

    // ratio in [0, 1]: the share of stream datagrams silently not sent.
    void setLoss(double ratio, uint64_t seed) {
        std::lock_guard<std::mutex> lock(mutex_);
        loss_ = ratio < 0 ? 0 : (ratio > 1 ? 1 : ratio);
        rng_.seed(seed);
        hasLoss_ = loss_ > 0;
    }
    double loss() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return loss_;
    }
    // One draw per datagram; cheap when no loss is set.
    bool dropPacket() {
        if (!hasLoss_) return false;
        std::lock_guard<std::mutex> lock(mutex_);
        return std::uniform_real_distribution<double>(0.0, 1.0)(rng_) < loss_;
    }

    // One-way delay added to each stream frame and each control reply.
    void setLatencyMs(int ms) { latencyMs_ = ms < 0 ? 0 : ms; }
    int latencyMs() const { return latencyMs_; }
    // Each frame and reply is delayed by a further 0..ms (uniform, seeded with
    // the loss seed); order is kept, as on a TCP connection.
    void setJitterMs(int ms) { jitterMs_ = ms < 0 ? 0 : ms; }
    int jitterMs() const { return jitterMs_; }
    // Stream bandwidth in Mbit/s; 0 lifts the limit. Frames that find the link
    // still busy with an earlier one are not sent.
    void setBandwidthMbit(double mbit) { bandwidthMbit_ = mbit > 0 ? mbit : 0; }
    double bandwidthMbit() const { return bandwidthMbit_; }
    bool shaped() const { return latencyMs_ > 0 || jitterMs_ > 0 || bandwidthMbit_ > 0; }

    // When a control reply of `bytes` handed over now reaches the client.
    Clock::time_point replyArrival(size_t bytes) {
        std::lock_guard<std::mutex> lock(mutex_);
        return replies_.queue(Clock::now(), bytes, shapeLocked(false));
    }
    // When a TCP stream frame handed over now reaches the client; nullopt
    // when the link is still busy with the previous frame (it is dropped).
    std::optional<Clock::time_point> frameArrival(size_t bytes) {
        std::lock_guard<std::mutex> lock(mutex_);
        return frames_.offer(Clock::now(), bytes, shapeLocked(true));
    }
    // When a datagram frame handed over now starts out: the datagram sender
    // paces itself to the bandwidth (transmitTime), so only the delay is here.
    Clock::time_point datagramFrameDue() {
        std::lock_guard<std::mutex> lock(mutex_);
        return datagrams_.queue(Clock::now(), 0, shapeLocked(false));
    }
    // How long `bytes` of stream data occupy the link (0 without a limit).
    std::chrono::microseconds transmitTime(size_t bytes) const {
        return LinkTimeline::transmitTime(bytes, bandwidthMbit_ * 1e6);
    }

    // Nothing is answered or sent until `duration` from now; what arrives
    // meanwhile is handled afterwards, in order. Zero or less ends a pause.
    void pauseFor(std::chrono::milliseconds duration) {
        const auto until = Clock::now() + duration;
        pausedUntil_ = duration.count() > 0 ? until.time_since_epoch().count() : 0;
    }
    bool paused() const { return Clock::now() < pausedUntil(); }
    Clock::time_point pausedUntil() const { return Clock::time_point(Clock::duration(pausedUntil_.load())); }

private:
    LinkTimeline::Shape shapeLocked(bool limited) {
        LinkTimeline::Shape s;
        s.latency = std::chrono::milliseconds(latencyMs_.load());
        const int jitter = jitterMs_;
        if (jitter > 0)
            s.jitter = std::chrono::microseconds(std::uniform_int_distribution<int>(0, jitter * 1000)(rng_));
        if (limited) s.bitsPerSecond = bandwidthMbit_ * 1e6;
        return s;
    }

    mutable std::mutex mutex_;
    double loss_ = 0;
    std::mt19937_64 rng_{1};
    std::atomic<bool> hasLoss_{false};
    std::atomic<int> latencyMs_{0};
    std::atomic<int> jitterMs_{0};
    std::atomic<double> bandwidthMbit_{0};
    LinkTimeline replies_, frames_, datagrams_;
    std::atomic<Clock::rep> pausedUntil_{0};
};

}  // namespace d3sim
