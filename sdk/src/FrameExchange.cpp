#include "FrameExchange.h"

#include <algorithm>
#include <utility>

namespace d3sdk {

void PayloadBuffer::reserve(size_t n) {
    if (n <= capacity_) return;
    // A payload that grows (a larger JPEG) usually grows again a little:
    // leave room so that does not mean an allocation each time.
    const size_t grown = std::max(n, capacity_ + capacity_ / 2);
    data_.reset(new uint8_t[grown]);
    capacity_ = grown;
}

bool FrameExchange::publish() {
    bool overwritten;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::swap(back_, ready_);
        overwritten = fresh_;
        fresh_ = true;
    }
    cv_.notify_all();
    return overwritten;
}

const Frame* FrameExchange::acquire(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!cv_.wait_for(lock, timeout, [&] { return fresh_ || closed_; }) || closed_) return nullptr;
    std::swap(front_, ready_);
    fresh_ = false;
    return &slots_[front_];
}

void FrameExchange::close() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    cv_.notify_all();
}

void FrameExchange::reopen() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = false;
    fresh_ = false;
}

void FrameExchange::discard() {
    std::lock_guard<std::mutex> lock(mutex_);
    fresh_ = false;
}

}  // namespace d3sdk
