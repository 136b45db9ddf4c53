// Hand-off of complete frames from the receive thread to frame calls.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// One frame unpacked and ready to copy out: depth/amplitude in host order, IR,
// and RGB already decoded from JPEG.
struct Frame {
    uint32_t frameId = 0;
    uint64_t timestampUs = 0;
    uint32_t exposureUs = 0;
    DataContainer<uint16_t> depth;
    DataContainer<uint8_t> ir;
    DataContainer<uint16_t> amplitude;
    DataContainer<RGB888Pixel> rgb;  // 0x0 for models without colour
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
