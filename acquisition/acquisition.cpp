#include "acquisition.h"

#include "compatibility.h"

namespace {
int index(ImageKind kind) { return static_cast<int>(kind); }
std::atomic<Acquisition::FrameReadyClock> frameReadyClock{[] { return std::chrono::steady_clock::now(); }};
}  // namespace

void Acquisition::setFrameReadyClock(FrameReadyClock clock) { frameReadyClock = clock; }

Acquisition::Acquisition(CameraInterface& camera, FrameConverter& converter, LogSink log, QObject* parent)
    : QObject(parent),
      camera_(camera),
      converter_(converter),
      log_(std::move(log)),
      frames_(std::make_unique<FrameBuffers>()) {
    qRegisterMetaType<float*>("float*");
    qRegisterMetaType<RgbPointcloudData*>("RgbPointcloudData*");
    tofThread_ = std::thread([this] { tofWorker(); });
    registrationThread_ = std::thread([this] { registrationWorker(); });
}

Acquisition::~Acquisition() {
    {
        std::lock_guard<std::mutex> lock(idleMutex_);
        stop_ = true;
    }
    idleWake_.notify_all();
    // A worker inside a frame read returns within the SDK's timeout.
    tofThread_.join();
    registrationThread_.join();
}

void Acquisition::setStreaming(bool on) {
    {
        std::lock_guard<std::mutex> lock(idleMutex_);
        streaming_ = on;
    }
    if (on) idleWake_.notify_all();
}

void Acquisition::setRegistration(bool rgbToDepth, bool depthToRgb) {
    rgbToDepthOn_ = rgbToDepth;
    depthToRgbOn_ = depthToRgb;
    {
        std::lock_guard<std::mutex> lock(idleMutex_);
        convertMode_ = rgbToDepth || depthToRgb;
    }
    idleWake_.notify_all();
}

void Acquisition::selectForStart(unsigned rgbStreamWidth) {
    rgbStreamWidth_ = rgbStreamWidth;
    select(FrameBuffers::tofSelection(rgbStreamWidth));
}

std::mutex& Acquisition::imageMutex(ImageKind kind) {
    switch (kind) {
        case ImageKind::Depth:
            return depthImageMutex_;
        case ImageKind::Ir:
            return irImageMutex_;
        case ImageKind::Rgb:
            break;
    }
    return rgbImageMutex_;
}

void Acquisition::paintTaken(ImageKind kind) { paintPending_[index(kind)] = false; }

bool Acquisition::idleFor(int ms) {
    std::unique_lock<std::mutex> lock(idleMutex_);
    idleWake_.wait_for(lock, std::chrono::milliseconds(ms));
    return !stop_;
}

// Back-to-back reads while streaming: the SDK read paces the loop. Idle
// otherwise, looking at the switches every 200 ms or when one changes.
void Acquisition::tofWorker() {
    while (!stop_) {
        if (!streaming_ || convertMode_) {
            if (!idleFor(200)) return;
            continue;
        }
        std::lock_guard<std::mutex> lock(frameMutex_);
        tofFrame();
    }
}

void Acquisition::registrationWorker() {
    while (!stop_) {
        if (!streaming_ || !convertMode_) {
            if (!idleFor(200)) return;
            continue;
        }
        std::unique_lock<std::mutex> lock(frameMutex_);
        registrationFrame();
        lock.unlock();
        // With both directions equal there is nothing to read and the loop
        // retries at once; yielding keeps that spin from starving the other
        // worker of the frame lock.
        std::this_thread::yield();
    }
}

void Acquisition::tofFrame() {
    FrameBuffers& f = *frames_;
    const bool rgb = rgbFrames_;
    const ReturnCode ret = rgb ? camera_.GetRgbTofData(&f.rgb, &f.depth, &f.points, &f.ir, nullptr)
                               : camera_.GetTofData(&f.depth, &f.points, &f.ir, &f.amplitude);
    if (ret != SUCCESS) {
        // A failed read is only logged and retried; link loss is the link
        // monitor's business.
        const int line = rgb ? Compatibility::kRgbTofReadFailureLine : Compatibility::kTofReadFailureLine;
        log_(LogOrigin{"operator ()", line}.text(fromLocal(camera_.GetReturnCodeDescriptor(ret))));
        return;
    }
    const auto ready = frameReadyClock.load()();
    ++frameReads_[rgb ? RgbTofRead : TofRead];
    if (rgb) rgbStreamWidth_ = f.rgb.cols();
    select(FrameBuffers::tofSelection(rgbStreamWidth_));
    getDepDat(ready);
    if (rgb) getRgbDat(ready);
    getIrDat(ready);
    if (cloudWanted_) getCpDat();
    analysis_.analyse(f);
    if (FrameRecorder* recorder = recorder_) recorder->frameReady(f, false);
}

void Acquisition::registrationFrame() {
    FrameBuffers& f = *frames_;
    const bool toDepth = rgbToDepthOn_, toRgb = depthToRgbOn_;
    if (toDepth && !toRgb) {
        if (camera_.GetRgbToDepthData(f.rgb, &f.rgbPoints, nullptr, &f.depth, &f.rgbToDepth, &f.ir, nullptr) != SUCCESS)
            return;
        ++frameReads_[RgbToDepthRead];
        select(FrameBuffers::rgbToDepthSelection());
    } else if (toRgb && !toDepth) {
        if (camera_.GetDepthToRgbData(f.depth, &f.rgbPoints, nullptr, &f.rgb, nullptr, &f.ir, nullptr) != SUCCESS)
            return;
        ++frameReads_[DepthToRgbRead];
        rgbStreamWidth_ = f.rgb.cols();
        select(FrameBuffers::depthToRgbSelection(rgbStreamWidth_));
    } else {
        return;
    }
    const auto ready = frameReadyClock.load()();
    getDepDat(ready);
    getRgbDat(ready);
    getIrDat(ready);
    if (cloudWanted_) getCpDat(f.rgbPoints);
    analysis_.analyse(f);
    if (FrameRecorder* recorder = recorder_) recorder->frameReady(f, true);
}

void Acquisition::select(FrameBuffers::Selection selection) {
    // The only place two image locks are held; the paint side takes one at a
    // time, so this cannot deadlock with it.
    std::scoped_lock lock(depthImageMutex_, rgbImageMutex_);
    if (frames_->selection() != selection) frames_->select(selection);
}

void Acquisition::getDepDat(std::chrono::steady_clock::time_point ready) {
    {
        std::lock_guard<std::mutex> lock(depthImageMutex_);
        converter_.convertDepth(frames_->depth, frames_->currentDepthImage(), frames_->currentDepthValues());
        frames_->frameReady[index(ImageKind::Depth)] = ready;
    }
    if (!paintPending_[index(ImageKind::Depth)].exchange(true)) emit paintDep();
}

void Acquisition::getIrDat(std::chrono::steady_clock::time_point ready) {
    {
        std::lock_guard<std::mutex> lock(irImageMutex_);
        converter_.convertIr(frames_->ir, frames_->irImage, frames_->irValues);
        frames_->frameReady[index(ImageKind::Ir)] = ready;
    }
    if (!paintPending_[index(ImageKind::Ir)].exchange(true)) emit paintIR();
}

void Acquisition::getRgbDat(std::chrono::steady_clock::time_point ready) {
    {
        std::lock_guard<std::mutex> lock(rgbImageMutex_);
        converter_.convertRgb(frames_->rgb, frames_->currentRgbImage(), frames_->currentRgbValues());
        frames_->frameReady[index(ImageKind::Rgb)] = ready;
    }
    if (!paintPending_[index(ImageKind::Rgb)].exchange(true)) emit paintRgb();
}

void Acquisition::getCpDat() {
    // While the view still has the last buffer the frame is dropped for the
    // 3D view only.
    if (cloudPending_.load(std::memory_order_acquire)) return;
    frames_->copyPointsToCloud();
    cloudPending_.store(true, std::memory_order_release);
    emit paintCp(frames_->cloudBuffer.data());
}

void Acquisition::getCpDat(RgbPointcloudData& rgbcDat) {
    if (cloudPending_.load(std::memory_order_acquire)) return;
    // Copy assignment keeps the copy's storage once it is big enough.
    frames_->rgbPointsCopy = rgbcDat;
    cloudPending_.store(true, std::memory_order_release);
    emit paintCp(&frames_->rgbPointsCopy);
}
