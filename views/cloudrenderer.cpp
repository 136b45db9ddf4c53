#include "cloudrenderer.h"

#include <vtkAxesActor.h>
#include <vtkCommand.h>
#include <vtkInteractorStyleTrackballCamera.h>
#include <vtkNew.h>
#include <vtkOrientationMarkerWidget.h>
#include <vtkRenderWindow.h>
#include <vtkRenderWindowInteractor.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>
#include <vtkUnsignedCharArray.h>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "cloudpipeline.h"

namespace {
constexpr int kRenderNice = 5;
}  // namespace

void StagedCloud::prepare(int n, bool withColours) {
    count = n;
    coloured = withColours;
    points.resize(std::size_t(n) * 3);
    depth.resize(std::size_t(n));
    colours.resize(withColours ? std::size_t(n) * 3 : 0);
}

struct CloudRenderer::Scene {
    CloudPipeline pipeline;
    vtkSmartPointer<vtkRenderWindow> window;
    vtkSmartPointer<vtkRenderWindowInteractor> interactor;
    vtkSmartPointer<vtkOrientationMarkerWidget> marker;
    vtkNew<vtkUnsignedCharArray> pixels;
    // Pictures are reused once the window's thread has let go of them, so a
    // full-window view does not map and fault in megabytes every frame.
    QImage pictures[3];
    StagedCloud current;
    int width = 0;
    int height = 0;
    bool visible = false;
    bool dirty = false;   // something changed since the last picture
    int consumed = 0;     // submissions taken in since the last picture
    std::vector<std::function<void()>> afterBatch;
    // VTK's X render window aborts the process when it cannot reach a display;
    // without one the view keeps its jobs but never draws.
    const bool haveDisplay = std::getenv("DISPLAY") && *std::getenv("DISPLAY");

    Scene() {
        window = vtkSmartPointer<vtkRenderWindow>::New();
        window->SetOffScreenRendering(1);
        // Multisampling costs hundreds of milliseconds a frame at full-window
        // size under software GL and adds little to single-pixel points.
        window->SetMultiSamples(0);
        window->AddRenderer(pipeline.renderer());

        // The interactor is never started: pointer events are fed to it one
        // by one, and it must not draw by itself, so that a burst of moves
        // ends in one render.
        interactor = vtkSmartPointer<vtkRenderWindowInteractor>::New();
        interactor->SetRenderWindow(window);
        interactor->EnableRenderOff();
        vtkNew<vtkInteractorStyleTrackballCamera> style;
        interactor->SetInteractorStyle(style);

        vtkNew<vtkAxesActor> axes;
        axes->SetTotalLength(1, 1, 1);
        marker = vtkSmartPointer<vtkOrientationMarkerWidget>::New();
        marker->SetOrientationMarker(axes);
        marker->SetInteractor(interactor);
        marker->SetDefaultRenderer(pipeline.renderer());
        marker->SetViewport(0.0, 0.0, 0.2, 0.2);
        marker->SetEnabled(1);
        marker->InteractiveOff();

        pipeline.resize(640 * 480);
    }

    ~Scene() {
        marker->SetEnabled(0);
        // The GL resources go while the context can still be made current.
        if (haveDisplay) window->Finalize();
    }

    bool canDraw() const { return haveDisplay && visible && width > 0 && height > 0; }

    QImage& freePicture() {
        for (QImage& p : pictures)
            if (p.isDetached() && p.width() == width && p.height() == height) return p;
        for (QImage& p : pictures)
            if (p.isNull() || p.isDetached()) return p = QImage(width, height, QImage::Format_RGBX8888);
        // All three still on their way or on screen: the oldest hand-over
        // keeps its copy and this slot starts a new one.
        return pictures[0] = QImage(width, height, QImage::Format_RGBX8888);
    }

    // The window's picture, top row first.
    QImage picture() {
        window->GetRGBACharPixelData(0, 0, width - 1, height - 1, 0, pixels);
        QImage& image = freePicture();
        const auto* src = pixels->GetPointer(0);
        const std::size_t row = std::size_t(width) * 4;
        for (int y = 0; y < height; ++y)
            std::memcpy(image.scanLine(y), src + std::size_t(height - 1 - y) * row, row);
        return image;
    }
};

CloudRenderer::CloudRenderer(Present present) : present_(std::move(present)), thread_([this] { run(); }) {}

CloudRenderer::~CloudRenderer() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void CloudRenderer::post(Job job) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_all();
}

void CloudRenderer::submit() {
    ++inFlight_;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // A frame not taken in yet is replaced by this one.
        if (!pendingFull_) pendingMerged_ = 0;
        std::swap(spare_, pending_);
        pendingFull_ = true;
        ++pendingMerged_;
        jobs_.push_back([this](Scene& scene) { takeFrame(scene); });
    }
    wake_.notify_all();
}

void CloudRenderer::takeFrame(Scene& scene) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!pendingFull_) return;  // an earlier job already took the newest frame
        std::swap(pending_, scene.current);
        pendingFull_ = false;
        scene.consumed += pendingMerged_;
    }
    const StagedCloud& frame = scene.current;
    CloudPipeline& p = scene.pipeline;
    p.resize(frame.count);
    p.useColours(frame.coloured);
    std::memcpy(p.points(), frame.points.data(), frame.points.size() * sizeof(float));
    std::memcpy(p.depth(), frame.depth.data(), frame.depth.size() * sizeof(float));
    if (frame.coloured) std::memcpy(p.colours(), frame.colours.data(), frame.colours.size());
    p.markModified();
    scene.dirty = true;
}

void CloudRenderer::applyCamera(const CameraPreset& preset) {
    post([preset](Scene& scene) {
        scene.pipeline.applyCamera(preset);
        scene.dirty = true;
    });
}

void CloudRenderer::setScalarRange(double min, double max) {
    post([min, max](Scene& scene) {
        scene.pipeline.setScalarRange(min, max);
        scene.dirty = true;
    });
}

void CloudRenderer::resizePoints(int count) {
    post([count](Scene& scene) { scene.pipeline.resize(count); });
}

void CloudRenderer::setSize(int width, int height) {
    post([width, height](Scene& scene) {
        scene.width = std::max(width, 0);
        scene.height = std::max(height, 0);
        if (scene.width > 0 && scene.height > 0) scene.interactor->UpdateSize(scene.width, scene.height);
        scene.dirty = true;
    });
}

void CloudRenderer::setVisible(bool visible) {
    post([visible](Scene& scene) {
        scene.visible = visible;
        scene.dirty = true;
    });
}

void CloudRenderer::mouse(Mouse what, int x, int y, bool ctrl, bool shift) {
    post([what, x, y, ctrl, shift](Scene& scene) {
        if (!scene.canDraw()) return;
        scene.interactor->SetEventInformationFlipY(x, y, ctrl, shift);
        static constexpr unsigned long kEvents[] = {
            vtkCommand::LeftButtonPressEvent,   vtkCommand::LeftButtonReleaseEvent, vtkCommand::MiddleButtonPressEvent,
            vtkCommand::MiddleButtonReleaseEvent, vtkCommand::RightButtonPressEvent, vtkCommand::RightButtonReleaseEvent,
            vtkCommand::MouseMoveEvent,         vtkCommand::MouseWheelForwardEvent, vtkCommand::MouseWheelBackwardEvent};
        scene.interactor->InvokeEvent(kEvents[int(what)]);
        scene.dirty = true;
    });
}

void CloudRenderer::inspect(const std::function<void(CloudPipeline&, vtkRenderWindow&)>& fn) {
    std::mutex doneMutex;
    std::condition_variable doneCv;
    bool done = false;
    post([&](Scene& scene) {
        // After the batch's render, so the caller sees what was drawn.
        scene.afterBatch.push_back([&] {
            fn(scene.pipeline, *scene.window);
            std::lock_guard<std::mutex> lock(doneMutex);
            done = true;
            doneCv.notify_all();
        });
    });
    std::unique_lock<std::mutex> lock(doneMutex);
    doneCv.wait(lock, [&] { return done; });
}

void CloudRenderer::run() {
    pthread_setname_np(pthread_self(), "cloud-render");  // for profilers and debuggers
    // When the machine is short of CPU, the 2D panes and the frame workers go
    // first: a 3D picture late by a frame matters less than a 2D pane that
    // stutters. The software rasteriser's threads, started from here, inherit it.
    setpriority(PRIO_PROCESS, pid_t(syscall(SYS_gettid)), kRenderNice);
    Scene scene;
    std::deque<Job> batch;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
            if (stopping_) break;
            batch.swap(jobs_);
        }
        for (Job& job : batch) job(scene);
        batch.clear();
        if (scene.dirty && scene.canDraw()) {
            scene.window->Render();
            present_(scene.picture());
            ++renders_;
            scene.dirty = false;
        }
        // A hidden view still takes its frames in, so it is idle as soon as
        // they are; a shown one once they are on the picture.
        inFlight_ -= scene.consumed;
        scene.consumed = 0;
        for (auto& fn : scene.afterBatch) fn();
        scene.afterBatch.clear();
    }
}
