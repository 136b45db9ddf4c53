// One simulated camera on the network: discovery, control and stream sockets
// around a Camera. Tests start it in-process on a loopback address; d3sim runs
// several of them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Camera.h"
#include "LinkFaults.h"

namespace d3sim {

struct ServerConfig {
    std::string address = "127.0.0.2";  // the camera's own IPv4 address (a stored network setting wins)
    char model = '3';                   // model digit '0'..'4'
    std::string serial;                 // empty: derived from model and address (index 8 = model digit)
    std::string stateDir;               // empty: nothing persisted beyond the process
    uint16_t discoveryPort = 48600;
    uint16_t controlPort = 48601;
    uint16_t streamPort = 48602;
    int fps = 0;  // > 0: initial frame rate instead of the default/stored one
    uint64_t seed = 1;
    int heartbeatTimeoutMs = 3000;  // silence after which a session ends
    int rebootMs = 2000;            // time the camera stays away after a rebooting command
    int jpegQuality = 85;
    // Firmware updates: the word FirmwareBegin must present, how long erasing
    // the update slot and writing an image take, and how long an update may
    // wait for its client before the camera abandons it.
    std::string accessWord = "qm-tbrwkex";
    int flashEraseMs = 300;
    int flashWriteMs = 1000;
    int firmwareIdleTimeoutMs = 10000;
    // Set: the camera replays this capture; its model comes from the capture,
    // its serial starts with "D3REPLAY" and, without fps, it runs at the
    // capture's own rate.
    std::shared_ptr<const Recording> recording;
};

class CameraServer {
public:
    explicit CameraServer(ServerConfig config);
    ~CameraServer();  // stops

    CameraServer(const CameraServer&) = delete;
    CameraServer& operator=(const CameraServer&) = delete;

    // Binds discovery, control and stream sockets and starts the threads.
    // False (with a reason in lastError()) when an address or port cannot be bound.
    bool start();
    // Ends any session, closes every socket and joins every thread. Idempotent.
    void stop();
    bool running() const;
    std::string lastError() const;

    Camera& camera();
    LinkFaults& faults();
    const ServerConfig& config() const;
    // The address currently served (changes after SetNetworkMode + reboot).
    std::string address() const;
    std::string serial() const;
    // "serial:ip", the form the SDK's device list uses.
    std::string deviceString() const;

    // One edge on the hardware trigger input (trigger modes 2 and 3).
    void hardwareTrigger();

    // Blocks until no reboot is in progress or the timeout passes; true when up.
    bool waitUntilUp(int timeoutMs);

    // --- faults on demand (also reachable through d3sim's control socket).
    // Call these from any thread but the camera's own io thread.
    // The camera vanishes: every connection and listening socket closes and
    // nothing answers. With downMs > 0 it comes back by itself after that long.
    void kill(int downMs = 0);
    // Back after kill() as after a power cycle: address and settings from its
    // store. False (see lastError) when the address cannot be bound.
    bool restart();
    bool killed() const;
    // Stops answering (control, discovery, frames) for `ms`; requests that
    // arrive meanwhile are handled afterwards, in order. A pause shorter than
    // the heartbeat timeout leaves the session alive.
    void pause(int ms);
    // Persists a new address and reboots onto it, as SetNetworkMode would.
    // False for an address that is not a usable IPv4 host address.
    bool changeAddress(const std::string& ip);
    // The next command named `commandName` (any command when empty) fails with `status`.
    void failNext(const std::string& commandName, int32_t status);

    // Firmware faults, each armed until an update gets that far. Once the
    // chunk that brings `percent` (0..100) of the announced image arrives, the
    // camera drops the update's connection without answering and keeps its
    // firmware (lose), or stops answering that connection at all (stall).
    // Arming one replaces the other.
    void loseFirmwareUpdateAt(double percent);
    void stallFirmwareUpdateAt(double percent);
    // The next write into flash fails its verification: the camera answers
    // status 16 and keeps its firmware.
    void failNextFlashWrite();
    // The word the next firmware update must present, as if the owner had changed it.
    void setAccessWord(const std::string& word);
    void clearFirmwareFaults();
    // The armed firmware faults in words ("none" when there are none).
    std::string firmwareFaults() const;

    struct Stats {
        uint64_t framesSent = 0;
        // Produced but not sent: the link was still busy with an earlier frame
        // (bandwidth), the client had not taken the last two, or the link
        // already held over 128 MiB (a very long delay).
        uint64_t framesDropped = 0;
        uint64_t sessionsOpened = 0;
        uint64_t sessionsTimedOut = 0;
        uint64_t repliesFromCache = 0;
        uint64_t reboots = 0;
        double renderMsTotal = 0;  // frame generation
        double encodeMsTotal = 0;  // JPEG + frame payload
        // Datagram stream: datagrams sent (resends included), withheld by the
        // loss fault, resend requests answered and datagrams they asked for.
        uint64_t udpDatagramsSent = 0;
        uint64_t udpDatagramsLost = 0;
        uint64_t udpResendRequests = 0;
        uint64_t udpDatagramsResent = 0;
        // Stream frames sent: bytes (resends not counted) and the time from each
        // frame's exposure to its sending, summed (latency and jitter included).
        uint64_t streamBytesSent = 0;
        double frameDelayMsTotal = 0;
    };
    Stats stats() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace d3sim
