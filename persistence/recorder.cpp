#include "recorder.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMetaObject>
#include <algorithm>
#include <cstring>

#include "framewriters.h"

namespace {

constexpr int kWriterNice = 5;

enum ViewBit : unsigned { kIr = 1, kDepth = 2, kRgb = 4, kCloud = 8 };

// Copies into storage sized once: a set taken again for a frame of the same
// size allocates nothing.
void copyImage(QImage& to, const QImage& from) {
    if (to.size() == from.size() && to.format() == from.format() && to.bytesPerLine() == from.bytesPerLine()) {
        std::memcpy(to.bits(), from.constBits(), std::size_t(from.sizeInBytes()));
        return;
    }
    to = from.copy();
}

template <typename T>
void copyContainer(DataContainer<T>& to, const DataContainer<T>& from) {
    to.resize(from.rows(), from.cols());
    std::memcpy(to.data(), from.data(), std::size_t(from.rows()) * from.cols() * sizeof(T));
    to.setNumberSize(from.getNumberSize());
}

}  // namespace

struct Recorder::FrameSet {
    QString folder;
    uint64_t sequence = 0;  // order in which the frames were handed over
    unsigned views = 0;
    bool registered = false;
    QImage irImage;
    QImage depthImage;
    QImage rgbImage;
    GrayscaleData ir;
    DistanceData depth;
    PointcloudData points;
    RgbPointcloudData rgbPoints;

    void release();
};

void Recorder::FrameSet::release() {
    irImage = QImage();
    depthImage = QImage();
    rgbImage = QImage();
    ir = GrayscaleData();
    depth = DistanceData();
    points = PointcloudData();
    rgbPoints = RgbPointcloudData();
}

struct Recorder::Job {
    FrameSet* set = nullptr;
    std::function<void()> work;
};

Recorder::Recorder(CameraInterface& camera, LogSink log, QObject* parent)
    : QObject(parent), camera_(camera), log_(std::move(log)) {
    qRegisterMetaType<RecorderCounts>("RecorderCounts");
    for (int i = 0; i < kPoolSize; ++i) {
        pool_.push_back(std::make_unique<FrameSet>());
        free_.push_back(pool_.back().get());
    }
    for (int i = 0; i < writerThreads(); ++i) writers_.emplace_back([this] { writerLoop(); });
}

int Recorder::writerThreads() {
    const int cores = int(std::thread::hardware_concurrency());
    return std::clamp(cores - 1, 2, 8);
}

Recorder::~Recorder() {
    // Frames already handed over are written before the program goes.
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        stop_ = true;
    }
    queueWake_.notify_all();
    for (std::thread& t : writers_) t.join();
}

// --- GUI side

void Recorder::setSaveRoot(const QString& root) {
    std::lock_guard<std::mutex> lock(rootMutex_);
    root_ = root;
}

QString Recorder::saveRoot() const {
    std::lock_guard<std::mutex> lock(rootMutex_);
    return root_;
}

void Recorder::setViews(bool ir, bool depth, bool rgb, bool cloud) {
    views_ = (ir ? kIr : 0u) | (depth ? kDepth : 0u) | (rgb ? kRgb : 0u) | (cloud ? kCloud : 0u);
}

void Recorder::requestSingleSave(const QString& folder) {
    {
        std::lock_guard<std::mutex> lock(rootMutex_);
        singleFolder_ = folder;
    }
    // The folder exists at once, even if no frame ever comes.
    post(Job{nullptr, [folder] {
                 const QFileInfo info(folder);
                 QDir(info.path()).mkdir(info.fileName());
             }});
    singleRequest_ = true;
}

QString Recorder::singleSaveFolder() const {
    std::lock_guard<std::mutex> lock(rootMutex_);
    return singleFolder_;
}

void Recorder::setContinuous(bool on) { continuous_ = on; }

RecorderCounts Recorder::counts() const { return RecorderCounts{saved_, waiting_, failed_}; }

void Recorder::resetCounts() {
    saved_ = 0;
    failed_ = 0;
    publishCounts();
}

void Recorder::flush() {
    std::unique_lock<std::mutex> lock(queueMutex_);
    idleWake_.wait(lock, [this] { return queue_.empty() && busy_ == 0; });
}

void Recorder::runFileJob(std::function<void()> job, QObject* context, std::function<void()> done) {
    post(Job{nullptr, [this, job = std::move(job), context, done = std::move(done)] {
                 job();
                 handover_.post(context, done);
             }});
}

// --- Frame worker

Recorder::FrameSet* Recorder::takeFreeSet() {
    std::lock_guard<std::mutex> lock(poolMutex_);
    if (free_.empty()) return nullptr;
    FrameSet* set = free_.back();
    free_.pop_back();
    return set;
}

void Recorder::frameReady(FrameBuffers& frames, bool registered) {
    const bool single = singleRequest_.exchange(false);
    const bool continuous = continuous_;
    if (!single && !continuous) return;
    const unsigned views = views_;
    QString root, singleFolder;
    {
        std::lock_guard<std::mutex> lock(rootMutex_);
        root = root_;
        singleFolder = singleFolder_;
    }
    // A single save and a continuous save of the same frame are two sets.
    for (int pass = 0; pass < 2; ++pass) {
        if ((pass == 0 && !single) || (pass == 1 && !continuous)) continue;
        const QString folder = pass == 0 ? singleFolder : FrameFiles::path(root, FrameFiles::timeStamp());
        const uint64_t sequence = ++sequence_;
        FrameSet* set = takeFreeSet();
        if (!set) {
            ++failed_;
            noteResult(false, sequence, folder,
                       QStringLiteral("%1 frames are still waiting for the disk").arg(waiting_.load()));
            publishCounts();
            continue;
        }
        set->folder = folder;
        set->sequence = sequence;
        fill(*set, frames, registered, views);
        ++waiting_;
        post(Job{set, {}});
        publishCounts();
    }
}

void Recorder::fill(FrameSet& set, FrameBuffers& frames, bool registered, unsigned views) {
    set.views = views;
    set.registered = registered;
    // Under the frame lock nothing writes the pictures: only the workers do,
    // one at a time under this same lock.
    if (views & kIr) {
        copyImage(set.irImage, frames.irImage);
        copyContainer(set.ir, frames.ir);
    }
    if (views & kDepth) {
        copyImage(set.depthImage, frames.currentDepthImage());
        copyContainer(set.depth, frames.depth);
    }
    if (views & kRgb) copyImage(set.rgbImage, frames.currentRgbImage());
    if (views & kCloud) {
        if (registered)
            copyContainer(set.rgbPoints, frames.rgbPoints);
        else
            copyContainer(set.points, frames.points);
    }
}

// --- Writers

void Recorder::post(Job job) {
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        queue_.push_back(std::move(job));
    }
    queueWake_.notify_one();
}

void Recorder::writerLoop() {
    // Below the frame workers and the window: when the machine cannot do
    // everything, frames wait (and are counted) rather than the views.
    setpriority(PRIO_PROCESS, pid_t(syscall(SYS_gettid)), kWriterNice);
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(queueMutex_);
            queueWake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
            if (queue_.empty()) return;  // stopping, and nothing left to write
            job = std::move(queue_.front());
            queue_.pop_front();
            ++busy_;
        }
        if (job.set) {
            writeSet(*job.set);
            // Kept for the next frame of a series; a set written with saving
            // off gives its memory back (a 1080p set holds about 15 MB).
            if (!continuous_) job.set->release();
            {
                std::lock_guard<std::mutex> lock(poolMutex_);
                free_.push_back(job.set);
            }
            --waiting_;
            publishCounts();
        } else if (job.work) {
            job.work();
        }
        {
            std::lock_guard<std::mutex> lock(queueMutex_);
            --busy_;
        }
        idleWake_.notify_all();
    }
}

void Recorder::writeSet(FrameSet& set) {
    QString failedPath, reason;
    auto step = [&](bool ok, const QString& path, const QString& why) {
        if (!ok && failedPath.isEmpty()) {
            failedPath = path;
            reason = why;
        }
    };
    const QFileInfo folderInfo(set.folder);
    // The frame's own folder; the save root itself is never made here. A
    // single save's request makes the same folder on another writer thread,
    // perhaps at this very moment: what counts is that it exists afterwards.
    if (!folderInfo.isDir() && !QDir(folderInfo.path()).mkdir(folderInfo.fileName()) &&
        !QFileInfo(set.folder).isDir()) {
        step(false, set.folder,
             QDir(folderInfo.path()).exists() ? QStringLiteral("the folder could not be made")
                                              : QStringLiteral("the save folder does not exist"));
    } else {
        QString why;
        auto file = [&](const QString& name) { return FrameFiles::path(set.folder, name); };
        if (set.views & kIr) {
            step(writePng(set.irImage, file(FrameFiles::kIrPng), &why), file(FrameFiles::kIrPng), why);
            step(writeValueCsv(file(FrameFiles::kIrCsv), set.ir.data(), set.ir.rows(), set.ir.cols(), &why),
                 file(FrameFiles::kIrCsv), why);
        }
        if (set.views & kDepth) {
            step(writePng(set.depthImage, file(FrameFiles::kDepthPng), &why), file(FrameFiles::kDepthPng), why);
            step(writeValueCsv(file(FrameFiles::kDepthCsv), set.depth.data(), set.depth.rows(), set.depth.cols(), &why),
                 file(FrameFiles::kDepthCsv), why);
        }
        if (set.views & kRgb) {
            step(writePng(set.rgbImage, file(FrameFiles::kRgbPng), &why), file(FrameFiles::kRgbPng), why);
            step(saveYUYV(set.rgbImage, file(FrameFiles::kRgbYuv), &why), file(FrameFiles::kRgbYuv), why);
        }
        if (set.views & kCloud) {
            const std::string ply = file(FrameFiles::kCloudPly).toStdString();
            const bool ok = set.registered ? camera_.SaveAsPLYFile(ply, set.rgbPoints, true)
                                           : camera_.SaveAsPLYFile(ply, set.points, true);
            step(ok, file(FrameFiles::kCloudPly), QStringLiteral("the point cloud could not be written"));
        }
    }
    const bool ok = failedPath.isEmpty();
    if (ok)
        ++saved_;
    else
        ++failed_;
    noteResult(ok, set.sequence, ok ? set.folder : failedPath, reason);
}

void Recorder::noteResult(bool ok, uint64_t sequence, const QString& path, const QString& reason) {
    std::lock_guard<std::mutex> lock(failureMutex_);
    if (!ok) {
        lastFailure_ = std::max(lastFailure_, sequence);
        if (inFailureRun_) return;
        inFailureRun_ = true;
        log_(LOG_AS("Recorder").text(QStringLiteral("frames are not being saved: %1: %2").arg(path, reason)));
        return;
    }
    // The writers finish frames out of order: only a frame handed over after
    // the last failed one shows that saving works again.
    if (inFailureRun_ && sequence > lastFailure_) {
        inFailureRun_ = false;
        log_(LOG_AS("Recorder").text(QStringLiteral("frames are saved again: %1").arg(path)));
    }
}

void Recorder::publishCounts() { emit countsChanged(counts()); }

// --- Tray information

void Recorder::startTrayRecording(QObject* context, std::function<void(bool opened)> opened) {
    const QString path = QDir::currentPath() + "/" + FrameFiles::timeStamp() + "trayInfo.txt";
    qDebug().noquote() << "recorder" << __func__ << __LINE__ << path;
    post(Job{nullptr, [this, path, context, opened = std::move(opened)] {
                 auto file = std::make_unique<QFile>(path);
                 const bool ok = file->open(QIODevice::ReadWrite | QIODevice::Append);
                 {
                     std::lock_guard<std::mutex> lock(trayMutex_);
                     // A new start replaces a recording under way, even one
                     // whose new file could not be opened.
                     trayPending_.clear();
                     trayFile_ = ok ? std::move(file) : nullptr;
                     trayFrames_ = ok ? 100 : trayFrames_;
                 }
                 handover_.post(context, [opened, ok] { opened(ok); });
             }});
}

void Recorder::recordTrays(const std::vector<TrayArea>& trays) {
    {
        std::lock_guard<std::mutex> lock(trayMutex_);
        if (!trayFile_) return;
        trayPending_.push_back(trays);
    }
    // Whichever writer gets here first writes every frame waiting, in order.
    post(Job{nullptr, [this] {
                 std::lock_guard<std::mutex> lock(trayMutex_);
                 while (!trayPending_.empty()) {
                     const std::vector<TrayArea> frame = std::move(trayPending_.front());
                     trayPending_.pop_front();
                     writeTrayFrame(frame);
                 }
             }});
}

void Recorder::writeTrayFrame(const std::vector<TrayArea>& trays) {
    if (!trayFile_ || !trayFile_->isOpen()) return;
    if (trayFrames_ >= 1) {
        QByteArray lines;
        for (std::size_t i = 0; i < trays.size(); ++i) {
            const float* m = trays[i].measurements;
            lines += (QString::number(i) + ',' + QString::number(double(m[0]), 'f', 0) + ',' +
                      QString::number(double(m[1]), 'f', 0) + ',' + QString::number(double(m[2]), 'f', 0) + ',' +
                      QString::number(double(m[3]), 'f', 2) + "\r\n")
                         .toUtf8();
        }
        trayFile_->write(lines);
        --trayFrames_;
        return;
    }
    trayFile_->close();
    trayFile_.reset();
    trayPending_.clear();
    emit trayRecordingFinished();
}
