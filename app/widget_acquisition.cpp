// The long-lived worker threads of the main window.
#include "widget.h"

void Widget::initThread() {
    // Four placeholders end at once; they keep the thread layout the rest of
    // the program expects.
    for (int i = 0; i < 4; ++i) threads_[i] = std::make_unique<std::thread>([] {});
    threads_[4] = std::make_unique<std::thread>([this] { tofWorker(); });
    threads_[5] = std::make_unique<std::thread>([this] { registrationWorker(); });
    threads_[6] = std::make_unique<std::thread>([this] { reconnectLoop(); });
}

bool Widget::idleFor(int ms) {
    std::unique_lock<std::mutex> lock(idleMutex_);
    return !idleWake_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopThreads_.load(); });
}

void Widget::stopThreads() {
    {
        std::lock_guard<std::mutex> lock(idleMutex_);
        stopThreads_ = true;
    }
    idleWake_.notify_all();
    for (auto& thread : threads_) {
        if (thread && thread->joinable()) thread->join();
        thread.reset();
    }
}

// The workers poll the session flags every 200 ms. Reading frames while
// streaming and the reconnect attempts are not part of this loop yet: no
// session can be started, so the flags never call for them.
void Widget::tofWorker() {
    while (idleFor(200)) {
    }
}

void Widget::registrationWorker() {
    while (idleFor(200)) {
    }
}
