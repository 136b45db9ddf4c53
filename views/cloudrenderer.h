// Draws the point cloud on a thread of its own, into an off-screen VTK window,
// and hands each finished picture over as an image. Under software GL a render
// of the full cloud takes tens of milliseconds; on the window's thread it held
// back every 2D frame that arrived meanwhile.
//
// Everything VTK is made, used and destroyed on the render thread. The window's
// thread talks to it in two ways: a frame is staged into spare buffers and
// swapped in under a mutex (so the camera's buffer can be handed back at
// once), and everything else is a job queued in call order. Jobs that arrive
// while a render runs are applied together and rendered once; staged frames
// that were never drawn are replaced by newer ones.
#pragma once

#include <QImage>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "cloudcamera.h"

class CloudPipeline;
class vtkRenderWindow;

// A frame as the view keeps it: already through the validity rule.
struct StagedCloud {
    int count = 0;
    bool coloured = false;
    std::vector<float> points;    // x, y, z per point
    std::vector<float> depth;     // one per point
    std::vector<uint8_t> colours;  // R, G, B per point, coloured frames only

    // Sizes the arrays for `n` points (colours only when coloured).
    void prepare(int n, bool withColours);
};

class CloudRenderer {
public:
    // Called on the render thread with every finished picture.
    using Present = std::function<void(const QImage&)>;

    explicit CloudRenderer(Present present);
    ~CloudRenderer();
    CloudRenderer(const CloudRenderer&) = delete;
    CloudRenderer& operator=(const CloudRenderer&) = delete;

    // The buffers the next frame is written into; window's thread only.
    StagedCloud& spare() { return spare_; }
    // Hands the spare buffers over for drawing. The first frame job left in
    // the queue takes the newest frame, so jobs queued after a submit (a
    // camera reset after the first frame, say) always act on it.
    void submit();

    void applyCamera(const CameraPreset& preset);
    void setScalarRange(double min, double max);
    void resizePoints(int count);
    // The drawing size in pixels; nothing is drawn while it is empty.
    void setSize(int width, int height);
    // A hidden view applies its jobs but does not draw.
    void setVisible(bool visible);

    enum class Mouse { LeftDown, LeftUp, MiddleDown, MiddleUp, RightDown, RightUp, Move, WheelForward, WheelBackward };
    // A pointer event in drawing coordinates (origin top left), for the
    // trackball camera.
    void mouse(Mouse what, int x, int y, bool ctrl, bool shift);

    // Frames submitted and not yet drawn (or dropped for a newer one).
    bool idle() const { return inFlight_.load() == 0; }
    // Pictures handed over so far.
    uint64_t renders() const { return renders_.load(); }

    // Runs `fn` on the render thread after every job queued so far, and
    // waits for it. For tests and benchmarks; never on a path the user waits on.
    void inspect(const std::function<void(CloudPipeline&, vtkRenderWindow&)>& fn);

private:
    struct Scene;
    using Job = std::function<void(Scene&)>;

    void post(Job job);
    void run();
    void takeFrame(Scene& scene);

    Present present_;
    StagedCloud spare_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Job> jobs_;
    bool stopping_ = false;
    StagedCloud pending_;
    bool pendingFull_ = false;
    int pendingMerged_ = 0;

    std::atomic<int> inFlight_{0};
    std::atomic<uint64_t> renders_{0};
    std::thread thread_;
};
