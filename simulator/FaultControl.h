// d3sim's control socket: a line-based TCP service beside each simulated
// camera through which a running simulator is told to misbehave (loss,
// latency, pause, kill/restart, a failing call, a new address). It is not
// part of the camera protocol and stays up while the camera itself is down.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "CameraServer.h"

namespace d3sim {

// Default port of the control socket, on the address the camera started at.
constexpr uint16_t kFaultControlPort = 48609;

// Executes one command line on `camera` and returns the one-line answer:
// "ok ..." or "error: ...". Must not run on the camera's own io thread.
std::string runFaultCommand(CameraServer& camera, const std::string& line);
// The commands, one per line, for --help and the "help" command.
const char* faultCommandHelp();

class FaultControlServer {
public:
    explicit FaultControlServer(CameraServer& camera);
    ~FaultControlServer();  // stops
    FaultControlServer(const FaultControlServer&) = delete;
    FaultControlServer& operator=(const FaultControlServer&) = delete;

    // Listens on address:port (port 0: any free one); false with a reason.
    bool start(const std::string& address, uint16_t port, std::string& error);
    void stop();
    uint16_t port() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// Client side: sends one command line to a control socket and returns the
// answer line, or "error: ..." when the socket cannot be reached in time.
std::string sendFaultCommand(const std::string& address, uint16_t port, const std::string& line, int timeoutMs = 3000);

}  // namespace d3sim
