// The frame workers and buffers. Two long-lived threads pull frames from the
// camera, convert them into the display images under the image locks and
// tell the views a picture is ready. A view still busy with the last picture
// gets the newest one next, never a backlog. Nothing here touches a widget.
#pragma once

#include <QObject>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "camerainterface.h"
#include "frameanalysis.h"
#include "framebuffers.h"
#include "frameconverter.h"
#include "framerecorder.h"
#include "logline.h"
#include "metatypes.h"

enum class ImageKind { Depth, Ir, Rgb };

class Acquisition : public QObject {
    Q_OBJECT
public:
    enum FrameRead { TofRead, RgbTofRead, RgbToDepthRead, DepthToRgbRead, FrameReadKinds };

    Acquisition(CameraInterface& camera, FrameConverter& converter, LogSink log, QObject* parent = nullptr);
    ~Acquisition() override;

    // The workers read frames while this is set; the session switches it.
    void setStreaming(bool on);
    bool streaming() const { return streaming_; }
    // Clears streaming and tells whether it was set, in one step: a burst of
    // link callbacks starts one recovery.
    bool stopStreaming() { return streaming_.exchange(false); }
    // Models with a colour sensor deliver depth and colour in one read.
    void setRgbFrames(bool on) { rgbFrames_ = on; }
    // Registered reads. With registration on, both directions set (or both
    // clear) make the registration worker read nothing.
    void setRegistration(bool rgbToDepth, bool depthToRgb);
    bool registrationActive() const { return convertMode_; }
    bool rgbToDepth() const { return rgbToDepthOn_; }
    bool depthToRgb() const { return depthToRgbOn_; }
    void setCloudWanted(bool on) { cloudWanted_ = on; }
    // The images a start fills, for a colour stream of this width.
    void selectForStart(unsigned rgbStreamWidth);
    // Gets every finished frame while set; none by default.
    void setRecorder(FrameRecorder* recorder) { recorder_ = recorder; }

    // --- Paint side (GUI thread)
    FrameBuffers& frames() { return *frames_; }
    std::mutex& imageMutex(ImageKind kind);
    // A queued paint of `kind` was taken; the next frame may queue another.
    void paintTaken(ImageKind kind);
    // The 3D view is done with the point buffer handed over last.
    void cloudTaken() { cloudPending_.store(false, std::memory_order_release); }

    unsigned frameReads(FrameRead kind) const { return frameReads_[kind].load(); }
    // The histogram and region figures of every converted frame.
    FrameAnalysis& analysis() { return analysis_; }
    // Returns once no frame read is under way (at most the camera's timeout).
    // With streaming off none starts again, so every frame read so far has
    // then been handed to the views.
    void waitForReadsToEnd() { std::lock_guard<std::mutex> lock(frameMutex_); }

    // Tells, on the worker's thread right after a frame read, when that frame
    // was ready in the camera library. Any build of the SDK allows the time
    // the read returned, the default; a measurement may install a sharper
    // one before streaming starts.
    using FrameReadyClock = std::chrono::steady_clock::time_point (*)();
    static void setFrameReadyClock(FrameReadyClock clock);

signals:
    void paintIR();
    void paintRgb();
    void paintDep();
    void paintCp(float* Dat);
    void paintCp(RgbPointcloudData* rgbcDat);

private:
    void tofWorker();
    void registrationWorker();
    // Sleeps up to ms; false once the workers are to end.
    bool idleFor(int ms);
    void tofFrame();
    void registrationFrame();
    void select(FrameBuffers::Selection selection);
    void getDepDat(std::chrono::steady_clock::time_point ready);
    void getIrDat(std::chrono::steady_clock::time_point ready);
    void getRgbDat(std::chrono::steady_clock::time_point ready);
    void getCpDat();
    void getCpDat(RgbPointcloudData& rgbcDat);

    CameraInterface& camera_;
    FrameConverter& converter_;
    LogSink log_;
    std::unique_ptr<FrameBuffers> frames_;

    // Lock order: frameMutex_ first, then at most one image mutex (the buffer
    // switch takes two, in a fixed order).
    std::mutex frameMutex_;
    std::mutex depthImageMutex_;
    std::mutex irImageMutex_;
    std::mutex rgbImageMutex_;

    std::atomic<bool> streaming_{false};
    std::atomic<bool> rgbFrames_{false};
    std::atomic<bool> convertMode_{false};
    std::atomic<bool> rgbToDepthOn_{false};
    std::atomic<bool> depthToRgbOn_{false};
    std::atomic<bool> cloudWanted_{false};
    std::atomic<uint32_t> rgbStreamWidth_{1920};
    // A paint queued and not yet taken: the worker skips emitting another, so
    // a slow GUI sees the newest frame instead of a backlog; the point buffer
    // is not rewritten while the 3D view may still read it.
    std::array<std::atomic<bool>, 3> paintPending_{};
    std::atomic<bool> cloudPending_{false};
    std::array<std::atomic<unsigned>, FrameReadKinds> frameReads_{};

    FrameAnalysis analysis_;
    std::atomic<FrameRecorder*> recorder_{nullptr};
    std::atomic<bool> stop_{false};
    std::mutex idleMutex_;
    std::condition_variable idleWake_;
    std::thread tofThread_;
    std::thread registrationThread_;
};
