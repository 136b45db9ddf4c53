// Admits one holder at a time, waiting at most until a deadline.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace d3sdk {

// Does the job of std::timed_mutex::try_lock_until with a plain mutex and a
// condition variable, which thread sanitizers understand (they do not follow
// pthread_mutex_clocklock and report false unlock errors).
class TimedGate {
public:
    bool enterBefore(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!free_.wait_until(lock, deadline, [&] { return !busy_; })) return false;
        busy_ = true;
        return true;
    }
    void leave() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            busy_ = false;
        }
        free_.notify_one();
    }

    // Leaves on destruction if it entered.
    class Pass {
    public:
        Pass(TimedGate& gate, std::chrono::steady_clock::time_point deadline)
            : gate_(gate), entered_(gate.enterBefore(deadline)) {}
        ~Pass() {
            if (entered_) gate_.leave();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        explicit operator bool() const { return entered_; }

    private:
        TimedGate& gate_;
        bool entered_;
    };

private:
    std::mutex mutex_;
    std::condition_variable free_;
    bool busy_ = false;
};

}  // namespace d3sdk
