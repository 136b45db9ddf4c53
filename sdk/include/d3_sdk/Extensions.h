// Additions of this SDK beyond the DeviceManager interface, for our own tools
// (d3ctl, benchmarks). Applications that must also run on other builds of the
// interface should not depend on them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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

// --- Firmware update

// Return codes of a firmware update beyond DeviceManager's (texts from
// GetReturnCodeDescriptor like the others).
constexpr ReturnCode FIRMWARE_WRITE_FAILED = ReturnCode(16);  // flash verification after writing failed
constexpr ReturnCode FLASH_NOT_ERASED = ReturnCode(17);       // a write into an update slot that was not erased
constexpr ReturnCode REFUSED_BY_RECORDING = ReturnCode(18);   // the camera replays a recording that cannot honour the setting

// Where an update is; a failure names the step it failed in.
enum class FirmwareStep {
    Checking,    // the image, locally
    Locating,    // searching for the camera
    Connecting,  // its control port
    Beginning,   // access word, size; erasing the update slot when asked
    Sending,     // the chunks
    Verifying,   // the camera checks the whole image (and writes it when asked)
    Rebooting,   // waiting for the camera to go down and answer a search again
    Done,
};

struct FirmwareProgress {
    FirmwareStep step = FirmwareStep::Checking;
    uint64_t bytesSent = 0;   // Sending: acknowledged by the camera
    uint64_t bytesTotal = 0;  // the whole image
    std::string text;         // one line for people, e.g. "found D3SIM-003000002 at 127.0.0.2, firmware 1.4.2"
};

struct FirmwareUpdateOptions {
    std::string accessWord;
    // erase: erase the camera's update slot first (a write needs an erased
    // slot); write: write the verified image into flash, to run from the next
    // start; reboot: restart the camera once done and follow it until it
    // answers a search again. Without write the camera only verifies the image.
    bool erase = true;
    bool write = true;
    bool reboot = true;
    // Every wait is bounded. The defaults fit an update of a few MiB, erase,
    // write and a reboot of a few seconds within half a minute.
    unsigned searchMs = 1500;          // finding the camera
    unsigned replyTimeoutMs = 3000;    // each request and chunk
    unsigned flashTimeoutMs = 8000;    // a request during which the camera erases or writes its flash
    unsigned rebootTimeoutMs = 15000;  // from the last reply until the camera answers a search again
    // Called on the calling thread at each step and after each chunk.
    std::function<void(const FirmwareProgress&)> progress;
};

struct FirmwareUpdateResult {
    ReturnCode code = FAILED;
    FirmwareStep step = FirmwareStep::Checking;  // the step it ended in (Done on success)
    std::string reason;                          // why it failed, for people; empty on success
    std::string serial, ip;                      // the camera, once found
    std::string imageVersion;                    // from the image's header
    char imageModel = 0;
    std::string versionBefore;  // what the camera ran when found
    std::string versionAfter;   // what it reported when back from its reboot
    bool written = false;       // the camera installed the image
    bool rebooted = false;      // the camera rebooted and answered again
};

// Sends `image` to the camera named by `device` ("serial:ip" as FindDevices
// gives it, an address or a serial) over a connection of its own: it needs no
// session and leaves any open one alone (the camera must not be streaming).
// SUCCESS when every requested step was done and, after a write and a
// reboot, the camera came back running the image's version. Otherwise the
// code and `result.reason` say what went wrong: ACCESS_DENIED, DEVICE_NOT_FOUND,
// NETWORK_ERROR (camera lost mid-transfer), TIMEOUT (with what it waited for),
// FIRMWARE_REJECTED (with the camera's reason), FIRMWARE_WRITE_FAILED,
// FLASH_NOT_ERASED, DEVICE_BUSY, REFUSED_WHILE_STREAMING, INVALID_PARAMETER (a
// bad image, found before the camera is contacted), FAILED (back with another version).
D3_SDK_API ReturnCode UpdateFirmware(const std::string& device, const std::vector<uint8_t>& image,
                                     const FirmwareUpdateOptions& options, FirmwareUpdateResult& result);

}  // namespace d3sdk
