// The frame pump: a thread that paces, renders and encodes frames and hands
// the newest one to the io thread for sending.
#include <optional>

#include "ServerImpl.h"
#include "d3_protocol/Commands.h"
#include "d3_protocol/Frame.h"

namespace d3sim {

namespace {
double msSince(Clock::time_point t) { return std::chrono::duration<double, std::milli>(Clock::now() - t).count(); }
// Re-check the stream state at least this often even without a notification.
constexpr auto kIdlePoll = std::chrono::milliseconds(50);
}  // namespace

void CameraServer::Impl::notifyPump() {
    { std::lock_guard<std::mutex> lock(pumpMutex); }
    pumpCv.notify_all();
}

void CameraServer::Impl::queueTrigger() {
    if (!camera->streaming()) return;
    {
        std::lock_guard<std::mutex> lock(pumpMutex);
        // A trigger that arrives while a frame is still pending merges with it, as on
        // a sensor that cannot start a new exposure before the last one is read out.
        pendingTriggers = 1;
    }
    pumpCv.notify_all();
}

void CameraServer::Impl::pumpLoop() {
    std::unique_lock<std::mutex> lock(pumpMutex);
    bool active = false;
    Clock::time_point next;
    while (!quit) {
        const bool nowActive = camera->streaming() && streamAttached && !faults.paused();
        if (!nowActive) {
            active = false;
            pendingTriggers = 0;
            pumpCv.wait_for(lock, kIdlePoll);
            continue;
        }
        const CameraSettings s = camera->settings();
        if (!active) {
            active = true;
            next = Clock::now();
        }
        auto stillActive = [this] { return quit || !camera->streaming() || !streamAttached; };
        if (s.triggerMode == 0) {
            // Wake at the next tick unless the stream stops first.
            if (pumpCv.wait_until(lock, next, stillActive)) continue;
            const auto period = std::chrono::microseconds(1000000 / std::max(1, s.frameRate));
            // Ticks advance from the previous tick, not from "now", so the rate does not drift.
            next += period;
            if (Clock::now() - next > period) next = Clock::now();
        } else {
            if (pendingTriggers == 0) {
                pumpCv.wait_for(lock, kIdlePoll);
                continue;
            }
            pendingTriggers = 0;
            if (s.triggerMode == 3) {
                const auto delay =
                    std::chrono::milliseconds(s.hardTriggerDelayMs) + std::chrono::microseconds(s.hardTriggerDelayUs);
                if (pumpCv.wait_for(lock, delay, [this] { return quit; })) continue;
            }
            next = Clock::now();
        }
        lock.unlock();
        produceFrame();
        lock.lock();
    }
}

void CameraServer::Impl::produceFrame() {
    const auto exposure = Clock::now();
    const auto t0 = Clock::now();
    const uint32_t frameId = frameCounter++;
    camera->render(frameId, frame);
    const double renderMs = msSince(t0);

    const auto t1 = Clock::now();
    d3proto::FrameHeader fh;
    fh.frameId = frameId;
    fh.timestampUs = uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(exposure - epoch).count());
    fh.tofWidth = kTofWidth;
    fh.tofHeight = kTofHeight;
    fh.exposureUs = uint32_t(std::max(0, camera->lastExposureUs()));
    const uint8_t* rgb = nullptr;
    if (frame.rgbWidth > 0 && frame.rgbHeight > 0 && jpeg.encode(frame.rgb.data(), frame.rgbWidth, frame.rgbHeight)) {
        fh.rgbWidth = uint16_t(frame.rgbWidth);
        fh.rgbHeight = uint16_t(frame.rgbHeight);
        fh.rgbEncoding = d3proto::RgbEncoding::Jpeg;
        fh.rgbBytes = uint32_t(jpeg.size());
        rgb = jpeg.data();
    }
    // Over TCP the frame is encoded straight into the buffer that travels the
    // link; the datagram streamer copies into its own history.
    FramePtr out = udpSession ? nullptr : takeFrameBuffer();
    std::vector<uint8_t>& target = out ? out->bytes : back;
    const size_t payload = d3proto::encodeFrame(fh, frame.depth.data(), frame.ir.data(), frame.amplitude.data(), rgb,
                                                target, d3proto::kHeaderSize);
    lastFrameBytes = target.size();
    if (udpSession) {
        // Datagrams are sent from the streamer's own history, so nothing here
        // waits for the previous frame.
        udp.submit(frameId, back.data() + d3proto::kHeaderSize, payload, camera->settings().frameRate, exposure);
        std::lock_guard<std::mutex> lock(mutex);
        stats.renderMsTotal += renderMs;
        stats.encodeMsTotal += msSince(t1);
        return;
    }
    if (out) {
        d3proto::Header h;
        h.type = d3proto::MessageType::Event;
        h.command = uint16_t(d3proto::Command::FrameEvent);
        h.requestId = frameId;
        h.payloadLength = uint32_t(payload);
        d3proto::encodeHeader(h, out->bytes.data());
        out->produced = exposure;
    }
    const double encodeMs = msSince(t1);
    // The link decides when the frame arrives; one still busy with the last
    // frame (a bandwidth limit) makes the camera skip this one.
    std::optional<Clock::time_point> arrival;
    if (out) arrival = faults.frameArrival(out->bytes.size());
    const bool dropped = !arrival;
    if (dropped) {
        if (out) giveBackFrame(std::move(out));
    } else {
        const uint64_t generation = streamGeneration;
        asio::post(io, [this, out = std::move(out), at = *arrival, generation]() mutable {
            deliverFrame(std::move(out), at, generation);
        });
    }
    std::lock_guard<std::mutex> lock(mutex);
    stats.renderMsTotal += renderMs;
    stats.encodeMsTotal += encodeMs;
    if (dropped) ++stats.framesDropped;
}

CameraServer::Impl::FramePtr CameraServer::Impl::takeFrameBuffer() {
    // Enough for over two seconds of colour frames at 25 fps on the wire; a
    // longer delay drops frames rather than growing without bound.
    constexpr size_t kMaxBytesInFlight = size_t(128) << 20;
    std::lock_guard<std::mutex> lock(poolMutex);
    if (!freeFrames.empty()) {
        FramePtr f = std::move(freeFrames.back());
        freeFrames.pop_back();
        return f;
    }
    if (frameBytesAllocated + lastFrameBytes > kMaxBytesInFlight && frameBytesAllocated > 0) return nullptr;
    frameBytesAllocated += lastFrameBytes;
    auto f = std::make_shared<FrameBuffer>();
    f->bytes.reserve(lastFrameBytes);
    return f;
}

void CameraServer::Impl::giveBackFrame(FramePtr frame) {
    std::lock_guard<std::mutex> lock(poolMutex);
    freeFrames.push_back(std::move(frame));
}

void CameraServer::Impl::deliverFrame(FramePtr frame, Clock::time_point arrival, uint64_t generation) {
    if (generation != streamGeneration || stopping) return giveBackFrame(std::move(frame));
    inFlight.push_back(InFlight{std::move(frame), arrival, generation});
    if (inFlight.size() == 1) deliverDueFrames();
}

void CameraServer::Impl::deliverDueFrames() {
    const auto now = Clock::now();
    while (!inFlight.empty() && inFlight.front().arrival <= now) {
        InFlight f = std::move(inFlight.front());
        inFlight.pop_front();
        if (f.generation == streamGeneration)
            sendFrame(f.frame);
        else
            giveBackFrame(std::move(f.frame));
    }
    if (inFlight.empty()) return;
    inFlightTimer.expires_at(inFlight.front().arrival);
    inFlightTimer.async_wait([this](const asio::error_code& ec) {
        if (!ec) deliverDueFrames();
    });
}

void CameraServer::Impl::sendFrame(const FramePtr& frame) {
    // One frame being written and one waiting is all a camera's socket holds:
    // a client that reads too slowly loses frames instead of building up delay.
    constexpr int kMaxFramesInSocket = 2;
    if (!streamConn || stopping || framesInSocket >= kMaxFramesInSocket) {
        giveBackFrame(frame);
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.framesDropped;
        return;
    }
    ++framesInSocket;
    const double delayMs = msSince(frame->produced);
    const size_t bytes = frame->bytes.size();
    streamConn->sendExternal(&frame->bytes, [this, frame, delayMs, bytes] {
        --framesInSocket;
        // Back in the pool the buffer is the pump's again: nothing here reads it after.
        giveBackFrame(frame);
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.framesSent;
        stats.streamBytesSent += bytes;
        stats.frameDelayMsTotal += delayMs;
    });
}

void CameraServer::Impl::forgetFramesInFlight() {
    ++streamGeneration;
    inFlightTimer.cancel();
    for (InFlight& f : inFlight) giveBackFrame(std::move(f.frame));
    inFlight.clear();
}

}  // namespace d3sim
