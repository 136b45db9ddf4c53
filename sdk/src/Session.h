// One open camera: control channel, stream receiver, calibration, link
// monitor, and the buffers frame calls convert into.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ControlChannel.h"
#include "FrameExchange.h"
#include "PointProjector.h"
#include "Registration.h"
#include "StreamSource.h"
#include "TimedGate.h"
#include "d3_protocol/Payloads.h"
#include "d3_sdk/DeviceManager.h"
#include "d3_sdk/Extensions.h"

namespace d3sdk {

struct Calibration {
    d3proto::ImageInfo image;
    CameraIntrinsicParam tof{};
    CameraIntrinsicParam rgb{};
    Extrinsics extrinsics;
};

class Session {
public:
    using LinkLost = std::function<void(const std::string& serial, const std::string& message)>;
    using TimeoutFn = std::function<std::chrono::milliseconds()>;

    Session(TimeoutFn timeout, LinkLost onLost);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Opens control and stream (over TCP, or datagrams when !tcp) to the
    // camera described by `info`.
    ReturnCode open(const d3proto::DeviceInfo& info, const std::string& clientId, bool tcp = true);
    // Ends the session politely (CloseSession) and stops every thread.
    void close();

    const d3proto::DeviceInfo& info() const { return info_; }
    const Calibration& calibration() const { return cal_; }
    bool hasRgb() const { return cal_.image.rgb; }
    // The stream's transport: TCP, or datagrams when false.
    bool tcp() const { return tcp_; }
    bool lost() const { return lost_; }
    bool streaming() const { return streaming_; }

    // One control request; 33 once the link is lost.
    ReturnCode request(d3proto::Command cmd, const d3proto::Json& args = {}, d3proto::Json* reply = nullptr);
    ReturnCode startStream();
    ReturnCode stopStream();

    // Valid once open() succeeded.
    StreamSource& stream() { return *stream_; }

    // Waits for the next frame not yet delivered and runs `use` on it while
    // no other reader can interfere. SUCCESS, TIMEOUT, NOT_STREAMING or 33.
    // On a link already lost it answers 33 once the timeout has passed (or
    // the session closes), as a read that gets no frame would.
    ReturnCode withNextFrame(const std::function<void(const Frame&)>& use);
    // The frame withNextFrame() last handed out on the calling thread.
    static bool lastDelivered(FrameTiming& out);

    // Frame conversions, valid inside withNextFrame().
    void points(const Frame& f, DataContainer<PointXYZ>& out);
    void depthToRgb(const Frame& f, DataContainer<uint16_t>& out, DataContainer<PointXYZRGBI>* rgbPoints);
    void rgbToDepth(const Frame& f, DataContainer<RGB888Pixel>& out, DataContainer<PointXYZRGBI>* rgbPoints);

private:
    static thread_local FrameTiming lastDelivered_;
    static thread_local bool haveDelivered_;
    void monitor();
    ReturnCode waitOutLoss(std::chrono::steady_clock::time_point deadline);
    void declareLost(const std::string& why);
    bool configureRegistration(const Frame& f);

    TimeoutFn timeout_;
    LinkLost onLost_;
    d3proto::DeviceInfo info_;
    Calibration cal_;
    int heartbeatMs_ = 1000;
    int silenceMs_ = 3000;
    bool tcp_ = true;

    ControlChannel control_;
    FrameExchange exchange_;
    std::unique_ptr<StreamSource> stream_;  // set by open(), by transport
    std::atomic<bool> streaming_{false};
    std::atomic<bool> lost_{false};

    std::thread monitor_;
    std::mutex monitorMutex_;
    std::condition_variable monitorWake_;
    bool stopping_ = false;

    TimedGate oneReader_;  // one reader of frames and conversion buffers
    PointProjector projector_;
    Registration registration_;
    std::vector<uint16_t> zbuffer_;
};

}  // namespace d3sdk
