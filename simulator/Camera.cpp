#include "Camera.h"

#include <cstdio>

namespace d3sim {

using d3proto::Json;

Camera::Camera(CameraIdentity identity, NetworkSettings network, std::string stateDir, uint64_t seed,
               CameraSettings defaults)
    : identity_(std::move(identity)),
      factoryNetwork_(std::move(network)),
      defaults_(defaults),
      store_(std::move(stateDir), identity_.serial),
      generator_(identity_.model, seed) {
    store_.initIdentity(identity_);
    reboot();
}

CameraIdentity Camera::makeIdentity(char model, const std::string& address, const std::string& serial) {
    CameraIdentity id;
    id.model = model;
    uint32_t ip = 0;
    d3proto::parseIpv4(address, ip);
    char buf[32];
    if (serial.empty()) {
        std::snprintf(buf, sizeof buf, "D3SIM-00%c%06u", model, unsigned(ip & 0xFFFFFF) % 1000000u);
        id.serial = buf;
    } else {
        id.serial = serial;
    }
    std::snprintf(buf, sizeof buf, "02:d3:%02x:%02x:%02x:%02x", unsigned(ip >> 24), unsigned((ip >> 16) & 255),
                  unsigned((ip >> 8) & 255), unsigned(ip & 255));
    id.mac = buf;
    id.deviceVersion = std::string(modelName(model)) + " HW1.2";
    return id;
}

CameraIdentity Camera::makeReplayIdentity(char model, const std::string& address) {
    CameraIdentity id = makeIdentity(model, address, std::string());
    // Same length and model position as a simulated camera's serial.
    id.serial.replace(0, 8, "D3REPLAY");
    id.deviceVersion = std::string(modelName(model)) + " replay";
    return id;
}

void Camera::setRecording(std::shared_ptr<const Recording> recording) { recording_ = std::move(recording); }

const char* Camera::modelName(char model) {
    switch (model) {
        case '0':
            return "KX-110";
        case '1':
            return "KX-120";
        case '2':
            return "KX-120W";
        case '3':
            return "KX-120RGB";
        case '4':
            return "KX-110RGB";
    }
    return "unknown";
}

NetworkSettings Camera::network() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return network_;
}

CameraSettings Camera::settings() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return settings_;
}

void Camera::setSettings(const CameraSettings& s) {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_ = s;
}

void Camera::logCommand(const std::string& name, const std::string& args, int32_t status) {
    std::lock_guard<std::mutex> lock(mutex_);
    log_.push_back({name, args, status, std::chrono::system_clock::now()});
}

std::vector<LoggedCommand> Camera::commandLog() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return log_;
}

void Camera::clearCommandLog() {
    std::lock_guard<std::mutex> lock(mutex_);
    log_.clear();
}

void Camera::failNext(const std::string& commandName, int32_t status) {
    std::lock_guard<std::mutex> lock(mutex_);
    failCommand_ = commandName;
    failStatus_ = status;
}

bool Camera::takeInjectedFailure(const std::string& name, int32_t& status) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (failStatus_ == 0 || (!failCommand_.empty() && failCommand_ != name)) return false;
    status = failStatus_;
    failStatus_ = 0;
    failCommand_.clear();
    return true;
}

std::string Camera::firmwareVersion() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return firmwareVersion_;
}

std::string Camera::installedFirmware() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return store_.loadFirmwareVersion().value_or(firmwareVersion_);
}

bool Camera::installFirmware(const std::string& version) {
    std::lock_guard<std::mutex> lock(mutex_);
    return store_.saveFirmwareVersion(version);
}

bool Camera::storeNetwork(const NetworkSettings& n) { return store_.saveNetwork(n); }

void Camera::reboot() {
    std::lock_guard<std::mutex> lock(mutex_);
    network_ = store_.loadNetwork().value_or(factoryNetwork_);
    if (network_.ip.empty()) network_.ip = factoryNetwork_.ip;
    settings_ = store_.loadConfig().value_or(defaults_);
    firmwareVersion_ = store_.loadFirmwareVersion().value_or(identity_.firmwareVersion);
    streaming_ = false;
    slotErased_ = false;
    resetGenerator_ = true;
}

d3proto::DeviceInfo Camera::deviceInfo(uint16_t controlPort, uint16_t streamPort) const {
    std::lock_guard<std::mutex> lock(mutex_);
    d3proto::DeviceInfo d;
    d.serial = identity_.serial;
    d.model = std::string(1, identity_.model);
    d.firmwareVersion = firmwareVersion_;
    d.deviceVersion = identity_.deviceVersion;
    d.mac = identity_.mac;
    d.ip = network_.ip;
    d.netmask = network_.netmask;
    d.gateway = network_.gateway;
    d.dhcp = network_.dhcp;
    d.controlPort = controlPort;
    d.streamPort = streamPort;
    return d;
}

d3proto::ImageInfo Camera::imageInfo() const {
    d3proto::ImageInfo i;
    i.tofWidth = kTofWidth;
    i.tofHeight = kTofHeight;
    i.rgb = hasRgb();
    i.rgbWidth = hasRgb() ? generator_.rgbWidth() : 0;
    i.rgbHeight = hasRgb() ? generator_.rgbHeight() : 0;
    return i;
}

namespace {
d3proto::IntrinsicsMsg toMsg(const Intrinsics& in) {
    return {in.fx, in.fy, in.cx, in.cy, in.k1, in.k2, in.k3, in.p1, in.p2};
}
}  // namespace

d3proto::CalibrationMsg Camera::calibration() const {
    d3proto::CalibrationMsg c;
    c.image = imageInfo();
    c.tof = toMsg(generator_.tofIntrinsics());
    if (hasRgb()) {
        c.rgb = toMsg(generator_.rgbIntrinsics());
        const Extrinsics e = generator_.rgbExtrinsics();
        for (int i = 0; i < 9; ++i) c.extrinsics.r[i] = e.r[i];
        for (int i = 0; i < 3; ++i) c.extrinsics.t[i] = e.t[i];
    }
    return c;
}

void Camera::render(uint64_t frameNo, FrameSet& out) {
    std::lock_guard<std::mutex> renderLock(renderMutex_);
    CameraSettings s;
    bool reset;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        s = settings_;
        reset = resetGenerator_;
        resetGenerator_ = false;
    }
    if (recording_) {
        recording_->frame(frameNo, out, yuvScratch_);
        lastExposureUs_ = s.tofExposureUs;
        return;
    }
    if (reset) generator_.reset();
    generator_.render(frameNo, s, out);
    lastExposureUs_ = generator_.effectiveExposureUs();
}

}  // namespace d3sim
