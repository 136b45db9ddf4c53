#include "FrameExchange.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <utility>

namespace d3sdk {

PayloadBuffer::~PayloadBuffer() {
    if (data_) ::munmap(data_, capacity_);
}

void PayloadBuffer::reserve(size_t n) {
    if (n <= capacity_) return;
    // A payload that grows (a larger JPEG) usually grows again a little:
    // leave room so that does not mean an allocation each time.
    static const size_t page = size_t(::sysconf(_SC_PAGESIZE));
    const size_t wanted = std::max(n, capacity_ + capacity_ / 2);
    const size_t grown = (wanted + page - 1) / page * page;
    void* p = ::mmap(nullptr, grown, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    if (data_) ::munmap(data_, capacity_);
    data_ = static_cast<uint8_t*>(p);
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
