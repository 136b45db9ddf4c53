// The long-lived worker threads of the main window: they pull frames from the
// SDK, convert them into the shared images and hand them to the GUI thread.
#include <QCheckBox>
#include <QThread>

#include "debug.h"
#include "ui_widget.h"
#include "widget.h"
#include "widgetlog.h"

void Widget::initThread() {
    // Four placeholders end at once; they keep the thread layout the rest of
    // the program expects.
    for (int i = 0; i < 4; ++i) threads_[i] = std::make_unique<std::thread>([] {});
    threads_[4] = std::make_unique<std::thread>([this] { tofWorker(); });
    threads_[5] = std::make_unique<std::thread>([this] { registrationWorker(); });
    threads_[6] = std::make_unique<std::thread>([this] { reconnectLoop(); });
}

bool Widget::idleFor(int ms) {
    std::unique_lock<std::mutex> lock(idleMutex_);
    return !idleWake_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopThreads_.load(); });
}

void Widget::stopThreads() {
    {
        std::lock_guard<std::mutex> lock(idleMutex_);
        stopThreads_ = true;
    }
    idleWake_.notify_all();
    // A worker inside a frame read returns within the SDK timeout.
    for (auto& thread : threads_) {
        if (thread && thread->joinable()) thread->join();
        thread.reset();
    }
}

// Back-to-back reads while streaming: the SDK read paces the loop. Idle
// otherwise, polling the flags every 200 ms.
void Widget::tofWorker() {
    while (!stopThreads_) {
        if (!streaming || convertMode) {
            if (!idleFor(200)) return;
            continue;
        }
        std::lock_guard<std::mutex> lock(frameMutex);
        tofFrame();
    }
}

void Widget::registrationWorker() {
    while (!stopThreads_) {
        if (!streaming || !convertMode) {
            if (!idleFor(200)) return;
            continue;
        }
        std::unique_lock<std::mutex> lock(frameMutex);
        registrationFrame();
        lock.unlock();
        // With both directions equal there is nothing to read and the loop
        // retries at once; yielding keeps that spin from starving the other
        // worker of the frame lock.
        std::this_thread::yield();
    }
}

void Widget::tofFrame() {
    FrameBuffers& f = *frames_;
    const bool rgb = rgbCamera_;
    const ReturnCode ret = rgb ? sdk().GetRgbTofData(&f.rgb, &f.depth, &f.points, &f.ir, nullptr)
                               : sdk().GetTofData(&f.depth, &f.points, &f.ir, &f.amplitude);
    if (ret != SUCCESS) {
        // A failed read is only logged and retried; link loss is the link
        // monitor's business.
        const std::string text = camera_.GetReturnCodeDescriptor(ret);
        debugWindow_->appendLog(QStringLiteral("operator () %1 ").arg(rgb ? 1689 : 1673) +
                                QString::fromLocal8Bit(text.c_str()));
        return;
    }
    ++frameReads_[rgb ? RgbTofRead : TofRead];
    if (rgb) rgbStreamWidth = f.rgb.cols();
    selectBuffers(FrameBuffers::tofSelection(rgbStreamWidth));
    getDepDat();
    if (rgb) getRgbDat();
    getIrDat();
    if (cloudWanted_) getCpDat();
}

void Widget::registrationFrame() {
    FrameBuffers& f = *frames_;
    const bool toDepth = rgbToDepthOn, toRgb = depthToRgbOn;
    ReturnCode ret = FAILED;
    if (toDepth && !toRgb) {
        ret = sdk().GetRgbToDepthData(f.rgb, &f.rgbPoints, nullptr, &f.depth, &f.rgbToDepth, &f.ir, nullptr);
        if (ret != SUCCESS) return;
        ++frameReads_[RgbToDepthRead];
        selectBuffers(FrameBuffers::rgbToDepthSelection());
    } else if (toRgb && !toDepth) {
        ret = sdk().GetDepthToRgbData(f.depth, &f.rgbPoints, nullptr, &f.rgb, nullptr, &f.ir, nullptr);
        if (ret != SUCCESS) return;
        ++frameReads_[DepthToRgbRead];
        rgbStreamWidth = f.rgb.cols();
        selectBuffers(FrameBuffers::depthToRgbSelection(rgbStreamWidth));
    } else {
        return;
    }
    getDepDat();
    getRgbDat();
    getIrDat();
    if (cloudWanted_) getCpDat(f.rgbPoints);
}

void Widget::selectBuffers(FrameBuffers::Selection selection) {
    if (frames_->selection() == selection) return;
    // The only place two image locks are held; the paint slots take one each,
    // so this cannot deadlock with them.
    std::scoped_lock lock(depthImageMutex, rgbImageMutex);
    frames_->select(selection);
}

void Widget::getDepDat() {
    {
        std::lock_guard<std::mutex> lock(depthImageMutex);
        const DistanceData& d = frames_->depth;
        convertDepth(d.data(), std::size_t(d.rows()) * d.cols(), minColorMapping_, maxColorMapping_, depthColors_,
                     frames_->currentDepthImage(), frames_->currentDepthValues());
    }
    if (!paintPending_[1].exchange(true)) emit paintDep();
}

void Widget::getIrDat() {
    {
        std::lock_guard<std::mutex> lock(irImageMutex);
        const GrayscaleData& ir = frames_->ir;
        convertIr(ir.data(), std::size_t(ir.rows()) * ir.cols(), frames_->irImage, frames_->irValues);
    }
    if (!paintPending_[2].exchange(true)) emit paintIR();
}

void Widget::getRgbDat() {
    {
        std::lock_guard<std::mutex> lock(rgbImageMutex);
        const RgbImageData& rgb = frames_->rgb;
        convertRgb(rgb.data(), std::size_t(rgb.rows()) * rgb.cols(), frames_->currentRgbImage(),
                   frames_->currentRgbValues());
    }
    if (!paintPending_[0].exchange(true)) emit paintRgb();
}

void Widget::getCpDat() {
    // While the view still has the last buffer the frame is dropped for the
    // 3D view only; so is every frame while the view is busy rendering.
    if (cloudPending_.load(std::memory_order_acquire) || !cloudIdle) return;
    frames_->copyPointsToCloud();
    cloudPending_.store(true, std::memory_order_release);
    emit paintCp(frames_->cloudBuffer.data());
}

void Widget::getCpDat(RgbPointcloudData& rgbcDat) {
    if (cloudPending_.load(std::memory_order_acquire)) return;
    // Copy assignment keeps the copy's storage once it is big enough.
    frames_->rgbPointsCopy = rgbcDat;
    cloudPending_.store(true, std::memory_order_release);
    emit paintCp(&frames_->rgbPointsCopy);
}

// --- Registration switching

void Widget::on_checkBox_dep2rgb_clicked(bool checked) {
    applyRegistration(ui->checkBox_rgb2dep, depthToRgbOn, rgbToDepthOn, checked);
}

void Widget::on_checkBox_rgb2dep_clicked(bool checked) {
    applyRegistration(ui->checkBox_dep2rgb, rgbToDepthOn, depthToRgbOn, checked);
}

void Widget::applyRegistration(QCheckBox* other, std::atomic<bool>& ownFlag, std::atomic<bool>& otherFlag,
                               bool checked) {
    if (other->isChecked()) {
        const QSignalBlocker blocker(other);
        other->setChecked(false);
    }
    if (checked) {
        ownFlag = true;
        otherFlag = false;
        convertMode = true;
        // Both conversions on in either mode: the worker picks the read.
        checkError(sdk().ConvertRgbToDepthEnable(true));
        checkError(sdk().ConvertDepthToRgbEnable(true));
        QThread::msleep(200);
    } else {
        ownFlag = false;
        convertMode = false;
    }
    const bool coloured = ui->checkBox_rgb2pointcloud->isChecked();
    ui->widgetCp->configurePoints(coloured, 640 * 480, 640, 480);
    // Coloured points need a registered frame; without one the box is moot.
    ui->checkBox_rgb2pointcloud->setEnabled(convertMode);
    resizeImageViewsForMode();
    ui->widgetCp->setRange(ui->widget_min_color_mapping->value(), ui->widget_max_color_mapping->value());
    WIDGET_DEBUG(QStringLiteral("Dep2rgb Rgb2dep convertMode:%1 depthToRgbOn:%2 rgbToDepthOn:%3")
                     .arg(convertMode.load())
                     .arg(depthToRgbOn.load())
                     .arg(rgbToDepthOn.load()));
}

void Widget::resizeImageViewsForMode() {
    // The paint slots skip frames whose size differs from the view's image
    // size, so the views take the size the worker will produce next.
    const QSize colour = rgbWidth > 0 && rgbHeight > 0 ? QSize(rgbWidth, rgbHeight) : QSize(1920, 1080);
    QSize depth(640, 480), rgb(640, 480);
    if (convertMode && depthToRgbOn && !rgbToDepthOn) {
        depth = colour;
        rgb = colour;
    } else if (!convertMode) {
        rgb = colour;
    }
    ui->graphicsViewDep->setImageSize(depth);
    ui->graphicsViewRgb->setImageSize(rgb);
}

void Widget::on_checkBox_rgb2pointcloud_clicked(bool checked) {
    ui->widgetCp->configurePoints(checked, 640 * 480, 640, 480);
    ui->widgetCp->setRange(ui->widget_min_color_mapping->value(), ui->widget_max_color_mapping->value());
    WIDGET_DEBUG(QStringLiteral("rgb2pointcloud %1").arg(checked));
}
