// Additions of this SDK beyond the DeviceManager interface, for our own tools
// (d3ctl, benchmarks). Applications that must also run on other builds of the
// interface should not depend on them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// Counters of the current stream since StartStream (or the last reset).
// Over datagrams, the share of frames that arrived complete (after resends)
// is framesComplete / (framesComplete + framesIncomplete); framesDropped also
// counts frames the camera skipped and frames a slow reader missed.
struct StreamStats {
    uint64_t framesComplete = 0;  // received whole and unpacked
    // Lost: skipped by the camera (gaps in frame ids), undecodable, or
    // replaced by a newer frame before the application read it.
    uint64_t framesDropped = 0;
    uint64_t framesDelivered = 0;  // handed to a frame call
    uint64_t bytesReceived = 0;    // stream payload bytes
    // From the first byte of a frame on the socket to the frame being ready
    // for a frame call (receive + unpack + JPEG decode), milliseconds.
    double meanUnpackMs = 0;
    double maxUnpackMs = 0;
    uint32_t lastFrameId = 0;
    double seconds = 0;  // time covered by the counters
    // Of framesDropped: complete, but replaced by a newer one before the
    // application read it (a slow reader, not the link).
    uint64_t framesOverwritten = 0;

    // Datagram transport (InitDevice with tcp = false); zero over TCP.
    bool udp = false;
    uint16_t localPort = 0;               // where the stream's datagrams arrive
    uint64_t framesIncomplete = 0;        // of framesDropped: given up on with datagrams missing
    uint64_t packetsReceived = 0;         // data datagrams taken into a frame
    uint64_t packetsLost = 0;             // missing on first sending (recovered or not)
    uint64_t packetsResendRequested = 0;  // asked for again, repeated requests included
    uint64_t packetsRecovered = 0;        // arrived after being asked for
    uint64_t datagramsIgnored = 0;        // malformed, stale, duplicate or not from the camera
};

D3_SDK_API ReturnCode GetStreamStats(StreamStats& out);
D3_SDK_API void ResetStreamStats();

// The frame the last successful frame call on the calling thread handed out:
// its id and when the SDK had it whole and ready (receive, unpack and JPEG
// decode done), on the steady clock. For measuring how long a frame takes
// from the SDK to the screen. False before any frame call on this thread.
struct FrameTiming {
    uint32_t frameId = 0;
    std::chrono::steady_clock::time_point ready;
};
D3_SDK_API bool GetLastFrameTiming(FrameTiming& out);

// Identity of the open camera as it reported itself.
struct DeviceDetails {
    std::string serial, model, firmwareVersion, deviceVersion, mac, ip, netmask, gateway;
    bool dhcp = false;
};
D3_SDK_API ReturnCode GetDeviceDetails(DeviceDetails& out);

}  // namespace d3sdk
