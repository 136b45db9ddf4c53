// Network faults a simulated camera can be told to show: lost stream
// datagrams (seeded, so a run can be repeated), added latency and a pause
// (the camera stops answering for a while, as a frozen device would). Read by
// the camera's threads, set from tests or the d3sim control socket at any time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <random>

namespace d3sim {

class LinkFaults {
public:
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

    // Delay added before each stream frame and each control reply.
    void setLatencyMs(int ms) { latencyMs_ = ms < 0 ? 0 : ms; }
    int latencyMs() const { return latencyMs_; }

    // Nothing is answered or sent until `duration` from now; what arrives
    // meanwhile is handled afterwards, in order. Zero or less ends a pause.
    void pauseFor(std::chrono::milliseconds duration) {
        const auto until = std::chrono::steady_clock::now() + duration;
        pausedUntil_ = duration.count() > 0 ? until.time_since_epoch().count() : 0;
    }
    bool paused() const { return std::chrono::steady_clock::now() < pausedUntil(); }
    std::chrono::steady_clock::time_point pausedUntil() const {
        return std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(pausedUntil_.load()));
    }

private:
    mutable std::mutex mutex_;
    double loss_ = 0;
    std::mt19937_64 rng_{1};
    std::atomic<bool> hasLoss_{false};
    std::atomic<int> latencyMs_{0};
    std::atomic<std::chrono::steady_clock::rep> pausedUntil_{0};
};

}  // namespace d3sim
