#include "camerasession.h"

#include <chrono>
#include <iostream>

#include "cameramodel.h"
#include "heaptrim.h"

namespace {

// The log window's start lines have always been reported from the button's slot.
constexpr const char* kStartSlot = "on_pushButton_2_clicked";

}  // namespace

CameraSession::CameraSession(CameraInterface& camera, Acquisition& acquisition, LogSink log)
    : camera_(camera), acquisition_(acquisition), log_(std::move(log)) {
    qRegisterMetaType<SessionStatus>("SessionStatus");
    qRegisterMetaType<SessionEvent>("SessionEvent");
    qRegisterMetaType<PromptKind>("PromptKind");
    qRegisterMetaType<CameraScript>("CameraScript");
    thread_.setObjectName(QStringLiteral("camera session"));
    moveToThread(&thread_);
    thread_.start();
}

CameraSession::~CameraSession() {
    if (!thread_.isRunning()) return;
    {
        std::lock_guard<std::mutex> lock(pauseMutex_);
        shuttingDown_ = true;
    }
    pauseWake_.notify_all();
    QThread* owner = QThread::currentThread();
    // The last job of the session thread; it hands back through a lock of
    // ours (rather than a blocking queued call), so everything it did is
    // visibly done before the members go.
    std::mutex doneMutex;
    std::condition_variable doneWake;
    bool done = false;
    {
        std::lock_guard<std::mutex> lock(jobsMutex_);
        lastJob_ = [&] {
            // Waits for a callback in flight, so none can reach a session that
            // is being destroyed.
            camera_.RegisterNetworkMonitoringCallback(nullptr, nullptr);
            moveToThread(owner);
            std::lock_guard<std::mutex> lock(doneMutex);
            done = true;
            doneWake.notify_all();
        };
    }
    QMetaObject::invokeMethod(this, "runLastJob", Qt::QueuedConnection);
    {
        std::unique_lock<std::mutex> lock(doneMutex);
        doneWake.wait(lock, [&] { return done; });
    }
    thread_.quit();
    thread_.wait();
}

void CameraSession::runNextJob() {
    std::function<void()> job;
    {
        std::lock_guard<std::mutex> lock(jobsMutex_);
        if (jobs_.empty()) return;
        job = std::move(jobs_.front());
        jobs_.pop_front();
    }
    if (!shuttingDown_) job();
    if (--pending_ == 0) emit idle();
}

void CameraSession::runLastJob() {
    std::function<void()> job;
    {
        std::lock_guard<std::mutex> lock(jobsMutex_);
        job.swap(lastJob_);
    }
    if (job) job();
}

void CameraSession::pause(int ms) {
    std::unique_lock<std::mutex> lock(pauseMutex_);
    pauseWake_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return shuttingDown_.load(); });
}

// --- Requests

void CameraSession::begin() {
    post([this] {
        camera_.SetTimeout(kSdkTimeoutMs);
        camera_.RegisterNetworkMonitoringCallback(
            [this](std::string sn, std::string error, void*) { onLinkCallback(sn, error); }, nullptr);
    });
}

void CameraSession::search() {
    ++endRequests_;
    post([this] { searchJob(); });
}

void CameraSession::start(int row) {
    post([this, row] { startJob(row); });
}

void CameraSession::stop() {
    ++endRequests_;
    post([this] { stopJob(); });
}

void CameraSession::disconnectDevice() {
    ++endRequests_;
    post([this] { disconnectJob(); });
}

void CameraSession::changeDevice() {
    ++endRequests_;
    post([this] { changeDeviceJob(); });
}

void CameraSession::continueStart(bool ok) {
    post([this, ok] {
        if (!starting_) return;
        if (ok && state_.state == SessionState::Open) {
            finishStart();
            return;
        }
        // A failed read-back has shown its box; the camera stays open.
        starting_ = false;
        state_.busy = false;
        state_.activity.clear();
        publish();
    });
}

void CameraSession::closeSession() {
    ++endRequests_;
    post([this] { closeJob(); });
}

void CameraSession::run(CameraScript script) {
    post([this, script = std::move(script)] { runScript(script); });
}

void CameraSession::forgetDevice(int row, const QString& device) {
    post([this, row, device] {
        if (row < 0 || row >= int(deviceList_.size()) || state_.devices.value(row) != device) return;
        deviceList_.erase(deviceList_.begin() + row);
        state_.devices.removeAt(row);
        publish();
    });
}

void CameraSession::cameraRestarting() {
    post([this] {
        state_.device = DeviceDetails();
        state_.searchDue = true;
        publish();
    });
}

void CameraSession::reportError(ReturnCode ret) {
    post([this, ret] { warn(tr("状态异常"), tr("错误信息：%1").arg(describe(ret))); });
}

SessionStatus CameraSession::status() const {
    std::lock_guard<std::mutex> lock(statusMutex_);
    return published_;
}

// --- Publishing

void CameraSession::publish() {
    {
        std::lock_guard<std::mutex> lock(statusMutex_);
        published_ = state_;
    }
    tellWindow([this, status = state_] { emit stateChanged(status); });
}

void CameraSession::emitEvent(SessionEvent event) {
    tellWindow([this, event, status = state_] { emit sessionEvent(event, status); });
}

void CameraSession::setState(SessionState state) {
    state_.state = state;
    if (state != SessionState::Recovering) state_.recoveryFailed = false;
    // No camera open: nothing has been started since it was.
    if (state == SessionState::Idle || state == SessionState::Listed) state_.startedOnce = false;
    publish();
}

QString CameraSession::describe(ReturnCode code) { return fromLocal(camera_.GetReturnCodeDescriptor(code)); }

void CameraSession::warn(const QString& title, const QString& text) {
    tellWindow([this, title, text] { emit prompt(PromptKind::Warning, title, text); });
}

bool CameraSession::sessionGone() const { return !state_.connected(); }

// --- Errors

bool CameraSession::checkError(ReturnCode ret) {
    if (ret == SUCCESS) return true;
    const QString message = tr("错误信息：%1").arg(describe(ret));
    if (ret == NETWORK_ERROR) {
        // The session is gone on our side before the user reads why.
        deviceDisconnect();
        warn(tr("网络错误"), message);
    } else {
        warn(tr("状态异常"), message);
    }
    return false;
}

void CameraSession::deviceDisconnect() {
    warn(tr("设备断开"), tr("设备已断开链接！"));
    acquisition_.setStreaming(false);
    state_.device = DeviceDetails();
    emitEvent(SessionEvent::ResetView);
    emitEvent(SessionEvent::ControlsOff);
    deviceList_.clear();
    state_.devices.clear();
    starting_ = false;
    state_.busy = false;
    state_.activity.clear();
    setState(SessionState::Idle);
}

// --- Search

void CameraSession::searchJob() {
    state_.busy = true;
    state_.activity = tr("正在搜索设备...");
    deviceList_.clear();
    state_.devices.clear();
    state_.device = DeviceDetails();
    state_.searchDue = false;
    publish();
    DEBUG_LINE("camerasession", "this combobox ");

    if (state_.state == SessionState::Streaming) {
        acquisition_.setStreaming(false);
        const ReturnCode ret = camera_.StopStream();
        // The search goes on either way: the user asked for a fresh list.
        if (ret != SUCCESS) std::cout << int(ret) << " " << camera_.GetReturnCodeDescriptor(ret) << std::endl;
    }

    deviceList_ = camera_.FindDevices();
    state_.busy = false;
    state_.activity.clear();
    if (!deviceList_.empty()) {
        DEBUG_LINE("camerasession", "get device");
        for (const std::string& device : deviceList_) state_.devices << fromLocal(device);
        setState(SessionState::Listed);
        return;
    }
    setState(SessionState::Idle);
    tellWindow([this, title = tr("提示"), text = tr("未找到设备")] { emit prompt(PromptKind::Information, title, text); });
}

// --- Start

void CameraSession::startJob(int row) {
    if (state_.streamingFace()) return;
    if (deviceList_.empty() || row < 0 || row >= int(deviceList_.size())) {
        warn(tr("提示"), tr("请选中设备后再开始！"));
        return;
    }
    state_.busy = true;
    state_.activity = tr("正在打开设备...");
    publish();

    const std::string device = deviceList_[std::size_t(row)];
    const bool tcp = tcp_;
    ReturnCode initResult = camera_.InitDevice(device, tcp);
    if (initResult == ALREADY_CONNECTED) {
        // Another camera is still open (a search leaves it so); start opens
        // the chosen one.
        camera_.DisconnectFromDevice();
        initResult = camera_.InitDevice(device, tcp);
    }
    DEBUG_LINE("camerasession", fromLocal(device) + " " + QString::number(int(initResult)));
    if (initResult != SUCCESS) {
        state_.busy = false;
        state_.activity.clear();
        publish();
        const QString message = tr("错误信息：%1").arg(describe(initResult));
        if (initResult == INIT_NETWORK_FAILED || initResult == NETWORK_ERROR) {
            warn(tr("网络错误"), message);
            disconnectJob();
        } else {
            warn(tr("错误"), message);
            if (initResult == INIT_FAILED) disconnectJob();
        }
        return;
    }

    setState(SessionState::Open);
    emitEvent(SessionEvent::ControlsOn);

    std::string serial, firmware, deviceVersion;
    camera_.GetDeviceSN(serial);
    camera_.GetVersion(firmware, deviceVersion);

    if (!acquisition_.registrationActive()) {
        int width = 0;
        int height = 0;
        if (camera_.GetImageInfo(width, height) == SUCCESS && width > 0 && height > 0)
            state_.colourSize = QSize(width, height);
        // The workers are idle until the stream starts.
        acquisition_.selectForStart(unsigned(state_.colourSize.width()));
        DEBUG_LINE("camerasession", QString("%1 %2").arg(state_.colourSize.height()).arg(state_.colourSize.width()));
        publish();
        emitEvent(SessionEvent::PreparingStream);
    }

    camera_.ConvertDepthToRgbEnable(true);
    camera_.ConvertRgbToDepthEnable(true);

    DeviceDetails& d = state_.device;
    d = DeviceDetails();
    d.serial = fromLocal(serial);
    d.firmware = fromLocal(firmware);
    d.deviceVersion = fromLocal(deviceVersion);
    d.address = addressFromDeviceText(fromLocal(device));
    if (!serial.empty()) d.model = cameraModelFromSerial(serial);
    // Shown once frames flow.
    d.present = false;

    starting_ = true;
    emitEvent(SessionEvent::ReadBack);
}

void CameraSession::finishStart() {
    emitEvent(SessionEvent::ShowPanes);
    DEBUG_LINE("camerasession", "ready start");
    log_(LOG_AS(kStartSlot).text("ready start"));

    if (!checkError(camera_.StartStream())) {
        log_(LOG_AS(kStartSlot).text("start err"));
        if (starting_) {
            starting_ = false;
            state_.busy = false;
            state_.activity.clear();
            publish();
        }
        return;
    }

    CameraIntrinsicParam intrinsics{};
    intrinsics.fx = 640;
    intrinsics.fy = 480;
    intrinsics.cx = 320;
    intrinsics.cy = 240;
    log_(LOG_AS(kStartSlot).text("GetTofCameraIntrinsicParam"));
    checkError(camera_.GetTofCameraIntrinsicParam(intrinsics));
    // A failed read ended nothing but the read, unless the link went with it.
    if (sessionGone()) return;
    log_(LOG_AS(kStartSlot)
             .text(QString("GetTofCameraIntrinsicParam fx:%1 fy:%2 cx:%3 cy:%4 k1:%5 k2:%6 k3:%7")
                       .arg(intrinsics.fx, 0, 'g', 6)
                       .arg(intrinsics.fy, 0, 'g', 6)
                       .arg(intrinsics.cx, 0, 'g', 6)
                       .arg(intrinsics.cy, 0, 'g', 6)
                       .arg(intrinsics.k1, 0, 'g', 6)
                       .arg(intrinsics.k2, 0, 'g', 6)
                       .arg(intrinsics.k3, 0, 'g', 6)));

    state_.device.present = true;
    state_.startedOnce = true;
    state_.searchDue = false;
    const bool rgbFrames = state_.device.model && state_.device.model->rgbFrames;
    acquisition_.setRgbFrames(rgbFrames);
    starting_ = false;
    state_.busy = false;
    state_.activity.clear();
    setState(SessionState::Streaming);
    acquisition_.setStreaming(true);
    emitEvent(SessionEvent::StreamStarted);
}

// --- Stop, disconnect, another camera

void CameraSession::stopBranch() {
    acquisition_.setStreaming(false);
    DEBUG_LINE("camerasession", "guanbi");
    emitEvent(SessionEvent::Stopping);
    const ReturnCode ret = camera_.StopStream();
    if (ret == SUCCESS || ret == NOT_STREAMING || ret == NOT_CONNECTED) {
        // Not streaming any more is what stop wanted, whoever stopped it.
        // While a lost link is being recovered the SDK holds no session at
        // all; stop must still win over the recovery attempts.
        setState(SessionState::Open);
        emitEvent(SessionEvent::ControlsOff);
        DEBUG_LINE("camerasession", QStringLiteral("正常关闭"));
    } else if (ret == NETWORK_ERROR) {
        deviceDisconnect();
    } else {
        warn(tr("状态异常"), tr("错误信息：%1").arg(describe(ret)));
    }
}

void CameraSession::stopJob() {
    if (!state_.streamingFace()) return;
    state_.busy = true;
    state_.activity = tr("正在停止...");
    publish();
    stopBranch();
    state_.busy = false;
    state_.activity.clear();
    publish();
}

void CameraSession::disconnectJob() {
    state_.busy = true;
    state_.activity = tr("正在断开...");
    publish();
    if (state_.state == SessionState::Streaming) stopBranch();
    emitEvent(SessionEvent::ControlsReleased);
    camera_.DisconnectFromDevice();
    state_.device = DeviceDetails();
    emitEvent(SessionEvent::ResetView);
    // The list and the combo stay one and the same: a start needs a new search.
    deviceList_.clear();
    state_.devices.clear();
    emitEvent(SessionEvent::ClearScenes);
    starting_ = false;
    state_.busy = false;
    state_.activity.clear();
    setState(SessionState::Idle);
    releaseFreeHeap();
    DEBUG_LINE("camerasession", QStringLiteral("正常断开"));
}

void CameraSession::changeDeviceJob() {
    if (deviceList_.empty()) return;
    state_.busy = true;
    state_.activity = tr("正在断开...");
    publish();
    DEBUG_LINE("camerasession", "change");
    if (state_.state == SessionState::Streaming) stopBranch();
    DEBUG_LINE("camerasession", "change1");
    // Nothing of this may reach the camera that is being left.
    emitEvent(SessionEvent::ControlsReleased);
    camera_.DisconnectFromDevice();
    DEBUG_LINE("camerasession", "change2");
    state_.device = DeviceDetails();
    emitEvent(SessionEvent::ResetView);
    starting_ = false;
    state_.busy = false;
    state_.activity.clear();
    // The list is kept, so the newly chosen camera can start at once.
    setState(SessionState::Listed);
    releaseFreeHeap();
}

void CameraSession::closeJob() {
    if (state_.state != SessionState::Streaming) {
        tellWindow([this] { emit closeFinished(true); });
        return;
    }
    state_.busy = true;
    state_.activity = tr("正在停止...");
    publish();
    acquisition_.setStreaming(false);
    const ReturnCode stopResult = camera_.StopStream();
    camera_.DisconnectFromDevice();
    bool accepted = false;
    if (stopResult == SUCCESS) {
        pause(100);
        accepted = true;
    } else if (stopResult == NETWORK_ERROR) {
        accepted = true;
    }
    // A camera that did not stop cleanly keeps the window, so the user sees
    // the session is still there.
    state_.busy = false;
    state_.activity.clear();
    if (accepted) state_.state = SessionState::Idle;
    publish();
    tellWindow([this, accepted] { emit closeFinished(accepted); });
}
