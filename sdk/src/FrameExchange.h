// Hand-off of complete frames from the receive thread to frame calls.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// rows x cols values of T held elsewhere.
template <typename T>
class ImageView {
public:
    unsigned rows() const { return rows_; }
    unsigned cols() const { return cols_; }
    const T* data() const { return data_; }
    void reset(const T* data, unsigned rows, unsigned cols) {
        data_ = data;
        rows_ = rows;
        cols_ = cols;
    }

private:
    const T* data_ = nullptr;
    unsigned rows_ = 0, cols_ = 0;
};

// Storage for a frame payload that receivers fill and hand to a frame by
// swapping, so the megabytes of a frame are written once, by the receive.
//
// The pages come straight from the system and go back to it when the buffer
// is freed or grows. Each session allocates its frames anew on its own
// receive thread and frees them on whichever thread ends it. From malloc,
// once the allocator has raised its mapping threshold past a frame, such
// blocks land in whichever arena that thread got and their freed space stays
// resident there: a client grew with every reconnect. Fresh pages also make
// room a frame does not use cost no memory, as below.
class PayloadBuffer {
public:
    PayloadBuffer() = default;
    ~PayloadBuffer();
    PayloadBuffer(const PayloadBuffer&) = delete;
    PayloadBuffer& operator=(const PayloadBuffer&) = delete;

    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    size_t capacity() const { return capacity_; }
    // Makes room for n bytes; the contents are not kept when it grows. New
    // storage is left untouched, so room a frame does not use costs address
    // space, not memory. Throws std::bad_alloc when the system has no room.
    void reserve(size_t n);
    void swap(PayloadBuffer& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(capacity_, other.capacity_);
    }

private:
    uint8_t* data_ = nullptr;
    size_t capacity_ = 0;
};

// rows x cols values of T in page storage of its own (see PayloadBuffer): the
// decoded colour picture of a frame. Keeps its storage when a size fits.
template <typename T>
class FrameImage {
public:
    unsigned rows() const { return rows_; }
    unsigned cols() const { return cols_; }
    T* data() { return reinterpret_cast<T*>(storage_.data()); }
    const T* data() const { return reinterpret_cast<const T*>(storage_.data()); }
    void resize(unsigned rows, unsigned cols) {
        storage_.reserve(size_t(rows) * cols * sizeof(T));
        rows_ = rows;
        cols_ = cols;
    }

private:
    PayloadBuffer storage_;
    unsigned rows_ = 0, cols_ = 0;
};

// One frame ready to copy out: depth, IR and amplitude in host order, where
// possible straight in the payload as received, and RGB decoded from JPEG.
struct Frame {
    uint32_t frameId = 0;
    uint64_t timestampUs = 0;
    uint32_t exposureUs = 0;
    PayloadBuffer payload;  // the frame payload as it came off the wire
    ImageView<uint16_t> depth;
    ImageView<uint8_t> ir;
    ImageView<uint16_t> amplitude;
    FrameImage<RGB888Pixel> rgb;  // 0x0 for models without colour
    // Host-order copies, used only when a 16-bit section cannot be read in
    // place (odd offset, big-endian host).
    std::vector<uint16_t> depthCopy, amplitudeCopy;
    std::chrono::steady_clock::time_point arrived;
};

// Triple buffer: the receiver always has a slot to fill, the newest complete
// frame waits in `ready`, and a reader owns the slot it copies from. Frames
// stay allocated, so steady streaming does not allocate, and a slow reader
// only ever sees the newest frame (older undelivered ones are overwritten).
class FrameExchange {
public:
    // Receiver side: fill back(), then publish() it.
    Frame& back() { return slots_[back_]; }
    // Returns true when an undelivered frame was overwritten.
    bool publish();

    // Reader side: waits up to `timeout` for a frame not yet handed out and
    // returns it (valid until the next acquire()), or nullptr on timeout or
    // after close(). Readers must not call this concurrently.
    const Frame* acquire(std::chrono::milliseconds timeout);

    // Wakes waiting readers; acquire() returns nullptr until reopen().
    void close();
    void reopen();
    // Forgets an undelivered frame (a new stream must not deliver an old one).
    void discard();

private:
    Frame slots_[3];
    int back_ = 0, ready_ = 1, front_ = 2;
    bool fresh_ = false;  // ready_ holds a frame nobody took yet
    bool closed_ = false;
    std::mutex mutex_;
    std::condition_variable cv_;
};

}  // namespace d3sdk
