// Internals of CameraServer, shared by its source files (lifecycle and
// discovery, sessions, frame pump). Members marked "io" are only touched on the
// io thread; the frame pump thread uses the ones marked "pump".
#pragma once

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "CameraServer.h"
#include "Connection.h"
#include "JpegEncoder.h"
#include "UdpStreamer.h"

namespace d3sim {

using Clock = std::chrono::steady_clock;

struct CameraServer::Impl {
    explicit Impl(ServerConfig c);

    // --- lifecycle, sockets, discovery (CameraServer.cpp)
    bool openSockets(std::string& error);
    void closeSockets();
    void receiveDiscovery(asio::ip::udp::socket& socket, std::array<uint8_t, 1500>& buffer,
                          asio::ip::udp::endpoint& from);
    void accept(asio::ip::tcp::acceptor& acceptor, Connection::Kind kind);
    void beginReboot();
    void shutdownOnIo();
    void setError(const std::string& e);

    // --- faults (ServerFaults.cpp)
    void killOnIo(int downMs);
    bool restartOnIo();
    // While paused, requests wait here and are replayed when the pause ends.
    void deferWhilePaused(const Connection::Ptr& conn, const d3proto::Message& msg);
    void resumeAfterPause();
    // Runs `fn` on the io thread when a reply of `bytes` handed to the link now
    // reaches the client (at once on an unshaped link).
    void afterLatency(size_t bytes, std::function<void()> fn);

    // --- sessions and commands (ServerSession.cpp)
    void onMessage(const Connection::Ptr& conn, d3proto::Message& msg);
    void onClosed(const Connection::Ptr& conn);
    void handleControl(const Connection::Ptr& conn, d3proto::Message& msg);
    void handleStream(const Connection::Ptr& conn, d3proto::Message& msg);
    int32_t openSession(const Connection::Ptr& conn, const d3proto::Json& args, d3proto::Json& reply);
    void endSession(const char* reason);
    void checkHeartbeat();
    void reply(const Connection::Ptr& conn, const d3proto::Header& request, int32_t status, const d3proto::Json& body,
               std::function<void()> done = {});

    // --- firmware updates (ServerFirmware.cpp)
    void firmwareBegin(const Connection::Ptr& conn, const d3proto::Header& h, const d3proto::Json& args);
    void firmwareChunk(const Connection::Ptr& conn, const d3proto::Message& msg);
    void firmwareCommit(const Connection::Ptr& conn, const d3proto::Header& h, const d3proto::Json& args);
    // Forgets the update in progress (the flash operation running, if any, completes).
    void endFirmwareUpdate(const char* reason);
    // True when `conn` is an update the stall fault has silenced.
    bool firmwareStalled(const Connection::Ptr& conn) const { return conn == firmware.conn && firmware.stalled; }
    void checkFirmwareIdle();
    // Runs `done` after `ms` on the io thread (an erase or a write: the flash
    // is busy meanwhile) unless the camera stops, is killed or reboots first.
    void flashOperation(int ms, std::function<void()> done);
    void cancelFlashOperation();

    // --- frame pump (FramePump.cpp)
    void pumpLoop();
    void produceFrame();
    // Frames the TCP stream carries through the simulated link: produced by
    // the pump into a buffer from a pool, delivered by the io thread once the
    // link's delay has passed.
    struct FrameBuffer {
        std::vector<uint8_t> bytes;  // a whole FrameEvent message
        Clock::time_point produced;
    };
    using FramePtr = std::shared_ptr<FrameBuffer>;
    FramePtr takeFrameBuffer();          // pump; null when the link holds too much already
    void giveBackFrame(FramePtr frame);  // any thread
    void deliverFrame(FramePtr frame, Clock::time_point arrival, uint64_t generation);  // io
    void deliverDueFrames();                                                            // io
    void sendFrame(const FramePtr& frame);                                              // io
    void forgetFramesInFlight();  // io: the stream connection changed
    void notifyPump();
    void queueTrigger();

    ServerConfig config;
    std::unique_ptr<Camera> camera;
    LinkFaults faults;
    const Clock::time_point epoch = Clock::now();

    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> work{io.get_executor()};
    std::thread ioThread;
    std::atomic<bool> running{false};
    std::atomic<bool> stopping{false};

    // io: sockets
    asio::ip::udp::socket discoveryUnicast{io};
    asio::ip::udp::socket discoveryBroadcast{io};
    std::array<uint8_t, 1500> unicastBuffer{}, broadcastBuffer{};
    asio::ip::udp::endpoint unicastFrom, broadcastFrom;
    asio::ip::tcp::acceptor controlAcceptor{io};
    asio::ip::tcp::acceptor streamAcceptor{io};
    asio::steady_timer heartbeatTimer{io};
    asio::steady_timer rebootTimer{io};
    // io: faults. `killed` is mirrored in `killedFlag` for other threads;
    // `deferred` holds the requests that arrived during a pause.
    asio::steady_timer restartTimer{io};
    asio::steady_timer resumeTimer{io};
    bool killed = false;
    std::atomic<bool> killedFlag{false};
    std::deque<std::pair<Connection::Ptr, d3proto::Message>> deferred;
    std::set<Connection::Ptr> connections;

    // io: the session
    Connection::Ptr owner;
    std::string ownerClient;
    uint32_t token = 0;
    Connection::Ptr streamConn;
    Clock::time_point lastActivity;
    struct CachedReply {
        uint32_t requestId;
        uint16_t command;
        std::vector<uint8_t> bytes;
    };
    std::deque<CachedReply> replyCache;  // replies to the current session's last requests
    std::mt19937 tokenRng;

    // io: the firmware update in progress. Its connection is whichever
    // control connection sent the FirmwareBegin; `flashBusy` while an erase or
    // a write runs (on flashTimer), during which the update takes no requests.
    struct FirmwareTransfer {
        Connection::Ptr conn;
        uint32_t size = 0;
        std::vector<uint8_t> image;  // what has arrived, from offset 0
        bool stalled = false;
        Clock::time_point lastActivity;
    };
    FirmwareTransfer firmware;
    bool flashBusy = false;
    uint64_t flashGeneration = 0;  // tells a cancelled operation's handler from the current one's
    asio::steady_timer flashTimer{io};

    // shared, under `mutex`
    mutable std::mutex mutex;
    std::condition_variable upCv;
    bool up = false;
    std::string address;
    std::string error;
    Stats stats;
    // Firmware faults: a transfer fault (lose or stall) at a share of the image, and a bad flash.
    enum class TransferFault { None, Lose, Stall };
    TransferFault transferFault = TransferFault::None;
    double transferFaultPercent = 0;
    bool badFlash = false;
    // The word FirmwareBegin must present (starts as config.accessWord).
    std::string accessWord;

    // pump
    std::thread pumpThread;
    std::mutex pumpMutex;
    std::condition_variable pumpCv;
    bool quit = false;        // under pumpMutex
    int pendingTriggers = 0;  // under pumpMutex
    std::atomic<bool> streamAttached{false};
    std::vector<uint8_t> back;  // the datagram stream's frame payload
    size_t lastFrameBytes = 0;
    FrameSet frame;
    // Frame buffers not in use, and the bytes of all of them (under poolMutex).
    std::mutex poolMutex;
    std::vector<FramePtr> freeFrames;
    size_t frameBytesAllocated = 0;
    // io: frames on the simulated wire, in arrival order; frames handed to the
    // socket and not yet written; the stream connection they were meant for.
    struct InFlight {
        FramePtr frame;
        Clock::time_point arrival;
        uint64_t generation;
    };
    std::deque<InFlight> inFlight;
    asio::steady_timer inFlightTimer{io};
    int framesInSocket = 0;
    std::atomic<uint64_t> streamGeneration{0};
    JpegEncoder jpeg;
    uint32_t frameCounter = 0;

    // The datagram stream; last so its thread (which attaches the client) is
    // gone before anything it touches. udpSession: the session asked for UDP.
    std::atomic<bool> udpSession{false};
    UdpStreamer udp{faults, [this] {
                        streamAttached = true;
                        notifyPump();
                    }};
};

}  // namespace d3sim
