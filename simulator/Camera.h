// The simulated camera itself: identity, address settings, current and stored
// settings, the sensor model and a log of every command it executed. No
// sockets and no threads of its own; CameraServer drives it. Thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CameraSettings.h"
#include "CameraStore.h"
#include "FrameGenerator.h"
#include "Recording.h"
#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"

namespace d3sim {

struct LoggedCommand {
    std::string name;  // command name as in the protocol's command table
    std::string args;  // request payload, compact JSON
    int32_t status = 0;
    std::chrono::system_clock::time_point time;
};

// What the server must do after a command's reply has been sent.
enum class AfterReply { Nothing, Reboot };

class Camera {
public:
    // Loads the stored identity, network settings and configuration from the
    // store when they exist; `identity` and `network` are the factory values.
    // `defaults` are the settings after a factory reset.
    Camera(CameraIdentity identity, NetworkSettings network, std::string stateDir, uint64_t seed,
           CameraSettings defaults = CameraSettings());

    // Factory identity of a simulated camera: serial "D3SIM-00<model><6 digits from the address>"
    // unless `serial` is given, a MAC derived from the address, a device version naming the model.
    static CameraIdentity makeIdentity(char model, const std::string& address, const std::string& serial);
    static const char* modelName(char model);
    // Identity of a camera replaying a capture: serial "D3REPLAY<model><6 digits from the address>".
    static CameraIdentity makeReplayIdentity(char model, const std::string& address);

    // Serves `recording` (looping) instead of the synthetic scene. Only the
    // frame rate and the trigger settings still change anything; every other
    // setter that would change a setting is refused with kRefusedByRecording.
    void setRecording(std::shared_ptr<const Recording> recording);
    bool replaying() const { return recording_ != nullptr; }

    const CameraIdentity& identity() const { return identity_; }
    char model() const { return identity_.model; }
    bool hasRgb() const { return identity_.model == '3' || identity_.model == '4'; }
    NetworkSettings network() const;

    CameraSettings settings() const;
    // Direct access for tests and the CLI (not logged, not persisted).
    void setSettings(const CameraSettings& s);

    // Executes one command of the control table that acts on the camera (not
    // session plumbing), fills `reply` and logs the call. Returns the status.
    int32_t execute(d3proto::Command cmd, const d3proto::Json& args, d3proto::Json& reply, AfterReply& after);
    // Records a call the server handled itself (sessions, heartbeats).
    void logCommand(const std::string& name, const std::string& args, int32_t status);
    std::vector<LoggedCommand> commandLog() const;
    void clearCommandLog();

    // Fault injection: the next executed command whose protocol name is
    // `commandName` (any command when empty) fails with `status` without
    // acting; it is logged with that status. One pending failure at a time.
    void failNext(const std::string& commandName, int32_t status);

    // Stores address settings as SetNetworkMode does, without the command
    // (a fault the simulator applies from outside); they apply at the next reboot.
    bool storeNetwork(const NetworkSettings& n);

    // Firmware: the version running now (read from the store at every start),
    // the version installed for the next start, and the update slot, which
    // holds the previous image after a start and must be erased before a write.
    std::string firmwareVersion() const;
    std::string installedFirmware() const;
    bool installFirmware(const std::string& version);
    bool updateSlotErased() const { return slotErased_; }
    void setUpdateSlotErased(bool erased) { slotErased_ = erased; }

    bool streaming() const { return streaming_; }
    void setStreaming(bool on) { streaming_ = on; }

    // Re-reads the store as a power cycle would: network settings, stored
    // configuration (defaults when none) and the installed firmware; streaming
    // off, sensor history cleared.
    void reboot();

    d3proto::DeviceInfo deviceInfo(uint16_t controlPort, uint16_t streamPort) const;
    d3proto::ImageInfo imageInfo() const;
    d3proto::CalibrationMsg calibration() const;

    // Renders the next frame with the current settings. Called from one thread.
    void render(uint64_t frameNo, FrameSet& out);
    int lastExposureUs() const { return lastExposureUs_; }

private:
    int32_t setParameter(d3proto::Command cmd, const d3proto::Json& args, CameraSettings& s);
    void getParameter(d3proto::Command cmd, const CameraSettings& s, d3proto::Json& reply) const;
    int32_t admin(d3proto::Command cmd, const d3proto::Json& args, AfterReply& after);
    // True (with the status) when a pending injected failure matches `name`.
    bool takeInjectedFailure(const std::string& name, int32_t& status);

    CameraIdentity identity_;
    const NetworkSettings factoryNetwork_;
    const CameraSettings defaults_;
    CameraStore store_;
    FrameGenerator generator_;

    mutable std::mutex mutex_;  // guards everything below except the atomics
    NetworkSettings network_;
    CameraSettings settings_;
    std::string firmwareVersion_;
    std::vector<LoggedCommand> log_;
    std::string failCommand_;
    int32_t failStatus_ = 0;  // 0: no failure pending
    std::atomic<bool> streaming_{false};
    std::atomic<bool> slotErased_{false};
    std::atomic<int> lastExposureUs_{0};
    std::shared_ptr<const Recording> recording_;  // set before the camera serves
    std::vector<uint8_t> yuvScratch_;             // under renderMutex_
    std::mutex renderMutex_;                      // the generator keeps filter history; one render at a time
    bool resetGenerator_ = false;
};

}  // namespace d3sim
