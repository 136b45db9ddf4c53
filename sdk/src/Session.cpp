#include "Session.h"

#include <algorithm>

#include "StreamReceiver.h"
#include "UdpReceiver.h"

namespace d3sdk {

using Clock = std::chrono::steady_clock;
using d3proto::Command;
using d3proto::Json;

namespace {

CameraIntrinsicParam toIntrinsics(const d3proto::IntrinsicsMsg& m) {
    return CameraIntrinsicParam{m.fx, m.fy, m.cx, m.cy, m.k1, m.k2, m.k3, m.p1, m.p2};
}

}  // namespace

Session::Session(TimeoutFn timeout, LinkLost onLost) : timeout_(std::move(timeout)), onLost_(std::move(onLost)) {}

Session::~Session() { close(); }

ReturnCode Session::open(const d3proto::DeviceInfo& info, const std::string& clientId, bool tcp) {
    info_ = info;
    tcp_ = tcp;
    if (!control_.connect(info.ip, info.controlPort, timeout_())) return INIT_NETWORK_FAILED;

    d3proto::SessionRequest req;
    req.client = clientId;
    req.transport = tcp ? "tcp" : "udp";
    Json reply;
    const ReturnCode opened = request(Command::OpenSession, d3proto::toJson(req), &reply);
    d3proto::SessionReply session;
    if (opened == DEVICE_BUSY) return DEVICE_BUSY;
    if (opened == NETWORK_ERROR || opened == TIMEOUT) return INIT_NETWORK_FAILED;
    if (opened != SUCCESS || !d3proto::fromJson(reply, session)) return INIT_FAILED;
    heartbeatMs_ = std::clamp(session.heartbeatMs, 100, 10000);
    silenceMs_ = std::clamp(session.timeoutMs, 3 * heartbeatMs_ / 2, 60000);

    // Identity and calibration once per session: frame calls need them on
    // every frame and must not wait for the camera.
    d3proto::DeviceInfo fresh;
    if (request(Command::GetDeviceInfo, {}, &reply) == SUCCESS && d3proto::fromJson(reply, fresh)) {
        fresh.ip = info_.ip;  // the address we reached it at is the one that works
        info_ = fresh;
    }
    d3proto::IntrinsicsMsg tof;
    if (request(Command::GetImageInfo, {}, &reply) != SUCCESS || !d3proto::fromJson(reply, cal_.image) ||
        request(Command::GetTofIntrinsics, {}, &reply) != SUCCESS || !d3proto::fromJson(reply, tof))
        return INIT_FAILED;
    cal_.tof = toIntrinsics(tof);
    if (cal_.image.rgb) {
        d3proto::IntrinsicsMsg rgb;
        d3proto::ExtrinsicsMsg ext;
        if (request(Command::GetRgbIntrinsics, {}, &reply) != SUCCESS || !d3proto::fromJson(reply, rgb) ||
            request(Command::GetExtrinsics, {}, &reply) != SUCCESS || !d3proto::fromJson(reply, ext))
            return INIT_FAILED;
        cal_.rgb = toIntrinsics(rgb);
        std::copy(ext.r, ext.r + 9, cal_.extrinsics.r);
        std::copy(ext.t, ext.t + 3, cal_.extrinsics.t);
    }

    const uint16_t streamPort = session.streamPort ? session.streamPort : info_.streamPort;
    if (tcp)
        stream_ = std::make_unique<StreamReceiver>(exchange_);
    else
        stream_ = std::make_unique<UdpReceiver>(exchange_, cal_.image);
    if (stream_->open(info_.ip, streamPort, session.token, timeout_()) != SUCCESS) return INIT_FAILED;
    monitor_ = std::thread([this] { monitor(); });
    return SUCCESS;
}

void Session::close() {
    {
        std::lock_guard<std::mutex> lock(monitorMutex_);
        if (stopping_) return;
        stopping_ = true;
    }
    monitorWake_.notify_all();
    if (monitor_.joinable()) {
        // The link-lost callback may end the session from the monitor thread
        // itself; it cannot join itself and has nothing left to do.
        if (monitor_.get_id() == std::this_thread::get_id())
            monitor_.detach();
        else
            monitor_.join();
    }
    if (!lost_ && !control_.broken()) {
        streaming_ = false;
        request(Command::CloseSession);
    }
    exchange_.close();
    if (stream_) stream_->close();
    control_.close();
}

ReturnCode Session::request(Command cmd, const Json& args, Json* reply) {
    if (lost_) return NETWORK_ERROR;
    return ReturnCode(control_.request(cmd, args.is_null() ? Json::object() : args, reply, timeout_()));
}

ReturnCode Session::startStream() {
    const ReturnCode rc = request(Command::StartStream);
    if (rc == SUCCESS && !streaming_) {
        // A frame left from an earlier stream must not pass for a new one.
        exchange_.reopen();
        stream_->resetStats();
        streaming_ = true;
    }
    return rc;
}

ReturnCode Session::stopStream() {
    if (lost_) return NETWORK_ERROR;
    const ReturnCode rc = request(Command::StopStream);
    if (rc == SUCCESS || rc == NOT_STREAMING) streaming_ = false;
    return rc;
}

ReturnCode Session::withNextFrame(const std::function<void(const Frame&)>& use) {
    const auto timeout = timeout_();
    const auto deadline = Clock::now() + timeout;
    TimedGate::Pass reader(oneReader_, deadline);
    if (!reader) return TIMEOUT;
    if (lost_) return waitOutLoss(deadline);
    if (!streaming_) return NOT_STREAMING;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    const Frame* f = exchange_.acquire(std::max(left, std::chrono::milliseconds(0)));
    if (!f) return lost_ ? NETWORK_ERROR : TIMEOUT;
    stream_->noteDelivered();
    lastDelivered_ = FrameTiming{f->frameId, f->arrived};
    haveDelivered_ = true;
    use(*f);
    return SUCCESS;
}

ReturnCode Session::waitOutLoss(Clock::time_point deadline) {
    // Readers loop on frame calls, many without a pause (the viewer's
    // workers among them). Failing at once would make such a loop spin,
    // logging each failure, and starve the thread that is about to report
    // the loss: in the viewer's soak one loss wrote 7,400 failed reads
    // before its callback ran. Waiting as a read without a frame does paces
    // them; a close (a disconnect, a reconnect) ends the wait.
    std::unique_lock<std::mutex> lock(monitorMutex_);
    monitorWake_.wait_until(lock, deadline, [&] { return stopping_; });
    return NETWORK_ERROR;
}

thread_local FrameTiming Session::lastDelivered_;
thread_local bool Session::haveDelivered_ = false;

bool Session::lastDelivered(FrameTiming& out) {
    if (haveDelivered_) out = lastDelivered_;
    return haveDelivered_;
}

void Session::monitor() {
    auto nextBeat = Clock::now();
    std::unique_lock<std::mutex> lock(monitorMutex_);
    while (!stopping_) {
        // Short ticks so a closed socket is noticed quickly; heartbeats at the
        // camera's pace.
        monitorWake_.wait_for(lock, std::chrono::milliseconds(100));
        if (stopping_) return;
        lock.unlock();
        const auto now = Clock::now();
        if (now >= nextBeat && !control_.broken()) {
            nextBeat = now + std::chrono::milliseconds(heartbeatMs_);
            control_.request(Command::Heartbeat, Json::object(), nullptr,
                             std::min(timeout_(), std::chrono::milliseconds(heartbeatMs_)));
        }
        const auto silence = Clock::now() - control_.lastReceived();
        std::string why;
        if (control_.broken())
            why = "connection closed";
        else if (stream_->broken())
            why = "stream connection closed";
        else if (silence > std::chrono::milliseconds(silenceMs_))
            why = "no answer for " + std::to_string(silenceMs_ / 1000.0).substr(0, 3) + " s";
        lock.lock();
        if (!why.empty() && !stopping_) {
            lock.unlock();
            declareLost(why);
            return;
        }
    }
}

void Session::declareLost(const std::string& why) {
    if (lost_.exchange(true)) return;
    streaming_ = false;
    exchange_.close();  // wakes frame calls waiting for a frame that will not come
    // The callback may end the session (and destroy this object) from here,
    // so nothing of ours is used once it runs.
    const LinkLost callback = onLost_;
    const std::string serial = info_.serial;
    const std::string message = "link to camera " + serial + " at " + info_.ip + " lost: " + why;
    if (callback) callback(serial, message);
}

}  // namespace d3sdk
