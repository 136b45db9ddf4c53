// The frame pump: a thread that paces, renders and encodes frames and hands
// the newest one to the io thread for sending.
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
    const size_t payload = d3proto::encodeFrame(fh, frame.depth.data(), frame.ir.data(), frame.amplitude.data(), rgb,
                                                back, d3proto::kHeaderSize);
    if (udpSession) {
        // Datagrams are sent from the streamer's own history, so nothing here
        // waits for the previous frame.
        udp.submit(frameId, back.data() + d3proto::kHeaderSize, payload, camera->settings().frameRate);
        std::lock_guard<std::mutex> lock(mutex);
        stats.renderMsTotal += renderMs;
        stats.encodeMsTotal += msSince(t1);
        return;
    }
    d3proto::Header h;
    h.type = d3proto::MessageType::Event;
    h.command = uint16_t(d3proto::Command::FrameEvent);
    h.requestId = frameId;
    h.payloadLength = uint32_t(payload);
    d3proto::encodeHeader(h, back.data());
    const double encodeMs = msSince(t1);

    bool dropped = writing.exchange(true);
    if (!dropped) {
        std::swap(front, back);
        afterLatency([this] { sendFrontFrame(); });
    }
    std::lock_guard<std::mutex> lock(mutex);
    stats.renderMsTotal += renderMs;
    stats.encodeMsTotal += encodeMs;
    if (dropped) ++stats.framesDropped;
}

void CameraServer::Impl::sendFrontFrame() {
    if (!streamConn || stopping) {
        writing = false;
        return;
    }
    streamConn->sendExternal(&front, [this] {
        writing = false;
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.framesSent;
    });
}

}  // namespace d3sim
