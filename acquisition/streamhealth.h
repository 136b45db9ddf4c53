// How well frames arrive, from the SDK's stream counters read once a second:
// the figures of the health area and the rule for the log window's loss
// lines. Plain values and functions; the monitor feeds them.
#pragma once

#include <array>
#include <cstdint>

// The counters of the running stream, as an SDK that keeps them reports them
// (all since the stream started).
struct StreamStatistics {
    uint64_t framesComplete = 0;   // received whole
    uint64_t framesDropped = 0;    // lost on the way, given up on, or overwritten before read
    uint64_t framesDelivered = 0;  // handed to a frame read
    uint64_t bytesReceived = 0;
    double meanLatencyMs = 0;  // first byte on the socket to frame ready
    double maxLatencyMs = 0;
    bool udp = false;
    uint64_t packetsReceived = 0;
    uint64_t packetsLost = 0;             // missing on first sending
    uint64_t packetsResendRequested = 0;  // asked for again
    uint64_t packetsRecovered = 0;        // arrived after being asked for
};

struct HealthFigures {
    bool udp = false;
    double receivedFps = 0;
    std::array<double, 3> paintedFps{};  // depth, IR, colour
    double megabytesPerSecond = 0;
    // Since the stream started, as the SDK counts them.
    uint64_t framesDropped = 0;
    uint64_t packetsLost = 0;
    uint64_t packetsResendRequested = 0;
    uint64_t packetsRecovered = 0;
    double meanLatencyMs = 0;
    double maxLatencyMs = 0;
    // Shares of the last interval: frames dropped of those that came or
    // were lost, datagrams lost of those sent.
    double dropShare = 0;
    double lossShare = 0;
};

// Frames painted per pane so far: depth, IR, colour.
using PaintCounts = std::array<unsigned, 3>;

// Figures for the `seconds` between two readings. A reading whose counters
// went backwards (a new stream) counts from zero.
HealthFigures healthFigures(const StreamStatistics& before, const StreamStatistics& now,
                            const PaintCounts& paintedBefore, const PaintCounts& paintedNow, double seconds);

// One log line when loss or drops pass their threshold, one when they are
// back under a much lower one (so a link at the edge does not flood the log).
class HealthAlarm {
public:
    static constexpr double kRaiseShare = 0.05;
    static constexpr double kClearShare = 0.01;
    enum class Change { None, Raised, Cleared };

    Change update(const HealthFigures& f);
    bool raised() const { return raised_; }
    void reset() { raised_ = false; }

private:
    bool raised_ = false;
};
