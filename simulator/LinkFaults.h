// Network faults a simulated camera can be told to show: lost stream
// datagrams (seeded, so a run can be repeated) and added latency. Read by the
// sending threads, set from tests or the d3sim control command at any time.
#pragma once

#include <atomic>
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

private:
    mutable std::mutex mutex_;
    double loss_ = 0;
    std::mt19937_64 rng_{1};
    std::atomic<bool> hasLoss_{false};
    std::atomic<int> latencyMs_{0};
};

}  // namespace d3sim
