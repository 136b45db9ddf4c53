// Runs a call on a thread of its own and tells whether it blocks: asleep in
// the kernel (on a lock, a condition variable, a socket) without having
// returned. Linux only: the state comes from /proc.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

namespace sdktest {

// The scheduler state of thread `tid` of this process ('R' running, 'S'
// asleep, ...), or 0 once the thread is gone.
inline char threadState(pid_t tid) {
    std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::stringstream text;
    text << in.rdbuf();
    // The name in parentheses may hold anything, spaces and ')' included.
    const std::string stat = text.str();
    const auto close = stat.rfind(')');
    if (close == std::string::npos || close + 2 >= stat.size()) return 0;
    return stat[close + 2];
}

class BlockingCall {
public:
    explicit BlockingCall(std::function<void()> call)
        : thread_([this, call = std::move(call)] {
              tid_ = pid_t(::syscall(SYS_gettid));
              call();
              returned_ = true;
          }) {}
    ~BlockingCall() { join(); }
    BlockingCall(const BlockingCall&) = delete;
    BlockingCall& operator=(const BlockingCall&) = delete;

    // Waits until the call is asleep or has returned; true when it is asleep
    // and has not returned. The caller makes sure nothing but the wait under
    // test can put it to sleep. Gives up (false) after 10 s so a call that
    // spins fails the test instead of hanging it.
    bool blocks() {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < giveUp) {
            if (returned_) return false;
            const pid_t tid = tid_;
            if (tid != 0 && threadState(tid) == 'S') return !returned_;
            std::this_thread::yield();
        }
        return false;
    }
    bool returned() const { return returned_; }
    void join() {
        if (thread_.joinable()) thread_.join();
    }

private:
    std::atomic<pid_t> tid_{0};
    std::atomic<bool> returned_{false};
    std::thread thread_;
};

}  // namespace sdktest
