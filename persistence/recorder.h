// Saving frames to disk. The frame workers hand every finished frame over
// (FrameRecorder); when a single save is asked for or continuous saving is
// on, the frame's pictures and values are copied into a set from a small
// pool and the worker goes on. Writer threads then make the frame's folder
// and write its files, in the formats of framewriters.h, in the order:
// IR.png, IR.csv, Depth.png, Depth.csv, Rgb.png, Rgb.yuv, PointCloud.ply
// (each only for a view whose box is ticked).
//
// Nothing is lost unseen: a frame that finds the pool full, or whose files
// could not all be written, counts as failed; the counts (saved, waiting,
// failed) go out with countsChanged, and the log gets one line when a run of
// failures begins and one when saving works again. No box is shown.
//
// The writer threads also run the configuration commands' small file jobs
// and the tray information file, so no file is written on the GUI thread.
#pragma once

#include <QObject>
#include <QString>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "camerainterface.h"
#include "framerecorder.h"
#include "framerecords.h"
#include "handover.h"
#include "logline.h"

struct RecorderCounts {
    unsigned saved = 0;    // frames whose every file was written
    unsigned waiting = 0;  // frames copied and not yet written
    unsigned failed = 0;   // frames not saved: pool full, or a file could not be written
};
Q_DECLARE_METATYPE(RecorderCounts)

class Recorder : public QObject, public FrameRecorder {
    Q_OBJECT
public:
    // Frames that may wait for the disk at once (about a second of a 25 fps
    // stream); more are counted as failed.
    static constexpr int kPoolSize = 24;
    // Writer threads: PNG encoding is what a frame costs, so one per core
    // the frame workers and the window leave, at least two.
    static int writerThreads();

    Recorder(CameraInterface& camera, LogSink log, QObject* parent = nullptr);
    ~Recorder() override;

    // --- GUI side
    void setSaveRoot(const QString& root);
    QString saveRoot() const;
    // The views whose files a saved frame gets: the pane boxes.
    void setViews(bool ir, bool depth, bool rgb, bool cloud);
    // Makes `folder` now and saves the next frame into it; a second request
    // before a frame arrives only moves the target.
    void requestSingleSave(const QString& folder);
    // The folder of the last single save request (empty before one).
    QString singleSaveFolder() const;
    // Every frame into a folder of its own while on.
    void setContinuous(bool on);
    bool continuous() const { return continuous_; }
    RecorderCounts counts() const;
    void resetCounts();
    // Waits until every frame and job handed over so far is written.
    void flush();

    // Runs `job` on a writer thread, then `done` on `context`'s thread.
    void runFileJob(std::function<void()> job, QObject* context, std::function<void()> done);

    // Tray information: a "<time stamp>trayInfo.txt" file in the working
    // folder gets the trays of the next 100 IR frames. `opened` tells whether
    // the file could be opened (on `context`'s thread); `finished` when the
    // 100 frames are in and the file is closed.
    void startTrayRecording(QObject* context, std::function<void(bool opened)> opened);
    void recordTrays(const std::vector<TrayArea>& trays);

    // --- Frame worker (under the frame lock)
    void frameReady(FrameBuffers& frames, bool registered) override;

signals:
    void countsChanged(const RecorderCounts& counts);
    // The tray file has its 100 frames and is closed.
    void trayRecordingFinished();

private:
    struct FrameSet;
    struct Job;

    FrameSet* takeFreeSet();
    void fill(FrameSet& set, FrameBuffers& frames, bool registered, unsigned views);
    void writeSet(FrameSet& set);
    void post(Job job);
    void writerLoop();
    void noteResult(bool ok, uint64_t sequence, const QString& path, const QString& reason);
    void publishCounts();
    void writeTrayFrame(const std::vector<TrayArea>& trays);  // under trayMutex_

    CameraInterface& camera_;
    LogSink log_;

    mutable std::mutex rootMutex_;
    QString root_;
    QString singleFolder_;
    std::atomic<bool> singleRequest_{false};
    std::atomic<bool> continuous_{false};
    std::atomic<unsigned> views_{0};

    std::atomic<unsigned> saved_{0};
    std::atomic<unsigned> waiting_{0};
    std::atomic<unsigned> failed_{0};
    std::atomic<uint64_t> sequence_{0};
    std::mutex failureMutex_;
    bool inFailureRun_ = false;
    uint64_t lastFailure_ = 0;

    std::mutex poolMutex_;
    std::vector<std::unique_ptr<FrameSet>> pool_;
    std::vector<FrameSet*> free_;

    std::mutex queueMutex_;
    std::condition_variable queueWake_;
    std::condition_variable idleWake_;
    std::deque<Job> queue_;
    int busy_ = 0;
    bool stop_ = false;
    // File jobs' answers to their contexts on the window's thread.
    Handover handover_;
    std::vector<std::thread> writers_;

    std::mutex trayMutex_;
    std::unique_ptr<class QFile> trayFile_;
    int trayFrames_ = 0;
    std::deque<std::vector<TrayArea>> trayPending_;
};
