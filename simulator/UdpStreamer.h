// The datagram stream of one camera: a socket on the stream port that takes
// the client's hello and resend requests, and a thread that cuts frames into
// datagrams, paces them out, and answers resends from the last few frames.
// Faults (loss per datagram, latency per frame) apply to everything it sends.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LinkFaults.h"
#include "d3_protocol/Udp.h"

namespace d3sim {

class UdpStreamer {
public:
    struct Stats {
        uint64_t framesSent = 0;        // whole frames sent once (resends not counted)
        uint64_t framesExpired = 0;     // left the history before their turn to be sent
        uint64_t datagramsSent = 0;     // including resent ones
        uint64_t datagramsLost = 0;     // withheld by the loss fault
        uint64_t resendRequests = 0;    // accepted requests
        uint64_t datagramsResent = 0;   // resent, before the loss fault
        uint64_t resendsTooLate = 0;    // requests for frames no longer kept
        uint64_t datagramsIgnored = 0;  // not ours, wrong token, not from the client
        uint64_t bytesSent = 0;         // frame payload bytes sent once
        double delayMsTotal = 0;        // exposure to first datagram, summed over frames sent
    };

    // `onClient` runs on the streamer's thread when a hello with the expected
    // token arrives (the stream is then attached).
    UdpStreamer(LinkFaults& faults, std::function<void()> onClient);
    ~UdpStreamer();
    UdpStreamer(const UdpStreamer&) = delete;
    UdpStreamer& operator=(const UdpStreamer&) = delete;

    // Binds ip:port and starts the thread; false with a reason otherwise.
    bool open(const std::string& ip, uint16_t port, std::string& error);
    // Stops the thread and closes the socket; forgets client and history. Idempotent.
    void close();

    // A datagram session with this token is open: hellos carrying it attach.
    void beginSession(uint32_t token);
    // No session: the client is forgotten and nothing more is sent.
    void endSession();
    bool hasClient() const;

    // Queues one frame payload (copied into the history) for sending, after
    // the link's delay. `frameRate` sets the pacing of its datagrams (slower
    // still under a bandwidth limit); `exposure` is when it was taken.
    void submit(uint32_t frameId, const uint8_t* payload, size_t size, int frameRate,
                std::chrono::steady_clock::time_point exposure = std::chrono::steady_clock::now());

    Stats stats() const;

    // Frames kept for resend requests after they were sent (over half a
    // second at 25 fps). Frames still waiting out the link's delay, and frames
    // a delayed resend will need, are kept besides.
    static constexpr size_t kHistory = 16;
    // Frames held at most, sent or waiting: over two seconds of delay at 25 fps.
    static constexpr size_t kMaxFrames = 80;
    // Datagrams handed to the system in one call.
    static constexpr size_t kMaxBurst = 32;

private:
    struct Slot {
        uint32_t frameId = 0;
        bool valid = false;
        int busy = 0;                         // being sent by the thread: submit() must not overwrite it
        int pending = 0;                      // jobs queued for this frame
        uint64_t sentOrder = 0;               // when its first sending began (0: not yet)
        std::chrono::microseconds pacing{0};  // pause after each burst
        std::chrono::steady_clock::time_point exposure;
        std::vector<uint8_t> payload;
    };
    struct Job {
        uint32_t frameId = 0;
        std::chrono::steady_clock::time_point due;
        std::vector<d3proto::PacketRange> ranges;  // empty: the whole frame
    };

    void run();
    // Waits up to `timeout` for a datagram (or a wake-up) and handles all that arrived.
    void receive(std::chrono::microseconds timeout);
    void handle(const uint8_t* data, size_t size, const sockaddr_in& from);
    bool takeJob(Job& job, std::chrono::microseconds& wait);
    void sendJob(const Job& job);
    void sendQueuedResends();
    // Adds one datagram to the burst being gathered; flush() sends the burst
    // with one system call.
    void gather(const Slot& slot, uint16_t packetId, uint16_t count, const sockaddr_in& to);
    void flush();
    void wake();
    Slot* findSlot(uint32_t frameId);  // under mutex_
    void dropJobs();                   // under mutex_

    LinkFaults& faults_;
    std::function<void()> onClient_;
    // Atomic: the frame pump wakes the thread while a reboot may be closing them.
    std::atomic<int> fd_{-1};
    std::atomic<int> wakeFd_{-1};
    std::thread thread_;
    std::atomic<bool> quit_{false};
    std::vector<uint8_t> rx_;  // thread only
    // The burst being gathered (thread only): headers, and two parts per datagram.
    uint8_t headers_[kMaxBurst][d3proto::kUdpHeaderSize]{};
    iovec parts_[kMaxBurst][2]{};
    mmsghdr burst_[kMaxBurst]{};
    sockaddr_in burstTo_{};
    size_t gathered_ = 0;

    mutable std::mutex mutex_;
    uint32_t token_ = 0;  // 0: no datagram session
    bool haveClient_ = false;
    sockaddr_in client_{};
    std::deque<Slot> slots_;  // grows up to kMaxFrames; a deque keeps references stable
    uint64_t sentOrder_ = 0;  // frames whose sending has begun
    std::deque<Job> jobs_;    // frames in submit order, resends in arrival order
    Stats stats_;
};

}  // namespace d3sim
