// Datagram stream: says hello to the camera's stream port with the session
// token, reassembles frames from their datagrams into buffers sized once,
// asks for missing datagrams with bounded retries, and publishes complete
// frames to the FrameExchange from its own thread. Frames that cannot be
// completed in time are dropped and counted, never published in part.
//
// A frame is over a thousand datagrams, and waking the thread costs far more
// than taking a datagram, so while a frame streams in the thread sleeps
// between batches instead of waking on each arrival: about until the frame
// should be whole, no longer than a few milliseconds, and never so long that
// the socket buffer could fill at the rate the frame arrives.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "FrameUnpacker.h"
#include "StreamSource.h"
#include "d3_protocol/Payloads.h"
#include "d3_protocol/Udp.h"

namespace d3sdk {

class UdpReceiver : public StreamSource {
public:
    // `image`: the sizes the camera reported for this session. Frames of
    // other sizes are refused, and so are announcements of payloads larger
    // than those sizes allow. Buffers are allocated here.
    UdpReceiver(FrameExchange& exchange, const d3proto::ImageInfo& image);
    ~UdpReceiver() override;
    UdpReceiver(const UdpReceiver&) = delete;
    UdpReceiver& operator=(const UdpReceiver&) = delete;

    // Binds a local port, sends hellos until the camera echoes one (or the
    // timeout passes: 5) and starts the receive thread.
    int32_t open(const std::string& ip, uint16_t port, uint32_t token, std::chrono::milliseconds timeout) override;
    void close() override;

    // Frames reassembled at once; more in flight than this evicts the oldest.
    static constexpr size_t kSlots = 6;
    // Resend rounds after the first request, and the age at which a frame is
    // given up: generous, as a loaded machine may starve either end for a while.
    static constexpr int kMaxRounds = 12;
    static constexpr std::chrono::milliseconds kFrameDeadline{1000};
    static constexpr std::chrono::milliseconds kMaxHold{150};
    // Only stale datagrams for this long: forget the horizon.
    static constexpr std::chrono::milliseconds kStaleReset{1000};
    // Sleep between batches of a frame that is streaming in.
    static constexpr std::chrono::microseconds kGatherMin{300};
    static constexpr std::chrono::microseconds kGatherMax{4000};

private:
    using Clock = std::chrono::steady_clock;

    struct Slot {
        bool active = false;
        bool whole = false;  // every datagram is in: waits for older frames to finish
        Clock::time_point wholeAt;
        uint32_t frameId = 0;
        uint32_t frameBytes = 0;
        uint16_t count = 0;
        uint32_t received = 0;
        uint32_t recovered = 0;
        uint32_t highest = 0;     // one past the highest packet id seen
        uint32_t nackedUpTo = 0;  // missing packets below this were asked for
        int rounds = 0;
        // Requests are numbered; the newest answer so far (request, packet)
        // shows which asked packets the camera has passed over: lost again.
        uint32_t requests = 0;
        uint32_t answeredRequest = 0, answeredPacket = 0;
        bool answerNews = false;  // a newer answer came since the last look
        Clock::time_point first, lastData, lastRequest;
        PayloadBuffer data;             // maxFrameBytes; handed to the frame it becomes
        std::vector<uint8_t> have;      // per packet: arrived
        std::vector<uint32_t> askedIn;  // per packet: the request that last asked for it, 0 none
        std::vector<uint8_t> asks;      // per packet: times asked for, at most kMaxRounds + 1
    };

    bool sayHello(uint32_t token, std::chrono::milliseconds timeout);
    // The receive thread: waits for datagrams (or sleeps while a frame
    // gathers), takes them, and runs the retry rules every kTick while
    // frames are in flight, until close().
    void run();
    // How long to let the datagrams of the frame in flight gather before
    // the next look; zero when no frame is streaming in.
    std::chrono::microseconds gatherWait(Clock::time_point now) const;
    bool anyActive() const;
    // Takes every datagram waiting; returns how many there were.
    size_t drain();
    void onDatagram(const uint8_t* data, size_t size, const sockaddr_in& from, Clock::time_point now);
    Slot* slotFor(const d3proto::UdpDataHeader& h, Clock::time_point now);
    // Publishes whole frames in frame order: a whole frame waits while an
    // older one is still being completed, but no longer than kMaxHold.
    void publishReady(Clock::time_point now);
    void publish(Slot& s);
    // Frees the slot; `givenUp`: it was incomplete.
    void release(Slot& s, bool givenUp);
    // Asks for the missing packets of `s` below `to`: with `all` every one,
    // otherwise those never asked for and those asked for that the camera's
    // answers passed over.
    void requestMissing(Slot& s, uint32_t to, bool all, Clock::time_point now);
    void afterBatch(Clock::time_point now);
    void tick(Clock::time_point now);

    FrameExchange& exchange_;
    FrameUnpacker unpacker_;
    const d3proto::ImageInfo image_;
    const size_t maxFrameBytes_;
    int fd_ = -1;
    int wakeFd_ = -1;  // written by close() to end the thread's wait
    std::thread thread_;
    sockaddr_in camera_{};  // the camera's stream port: resend requests go there
    // Datagrams the socket buffer the system granted holds, at the most.
    size_t bufferDatagrams_ = 0;
    Clock::time_point nextTick_;

    Slot slots_[kSlots];
    bool haveHorizon_ = false;
    uint32_t horizon_ = 0;  // newest published frame: older ones are stale
    // Since when only stale datagrams came: after a forged frame far ahead, or
    // a camera that restarted its frame count, the horizon must give way.
    Clock::time_point staleSince_;
    bool staleRun_ = false;
    bool haveNewest_ = false;
    uint32_t newest_ = 0;  // newest frame id that opened a slot: gaps behind it were never seen

    // Receive batch and resend request buffers, sized once.
    static constexpr size_t kBatch = 64;
    static constexpr size_t kDatagramMax = 2048;
    std::vector<uint8_t> rx_;
    mmsghdr msgs_[kBatch]{};
    iovec iov_[kBatch]{};
    sockaddr_in from_[kBatch]{};
    d3proto::UdpResend resend_;
    std::vector<uint8_t> resendBytes_;
    // Counters kept on the receive thread, added to the stats per wake-up.
    uint64_t ignored_ = 0;
    uint64_t accepted_ = 0;
};

}  // namespace d3sdk
