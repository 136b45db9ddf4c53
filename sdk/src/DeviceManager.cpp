// Session and discovery operations of the SDK.
#include "d3_sdk/DeviceManager.h"

#include <algorithm>
#include <atomic>
#include <random>

#include "DeviceLocator.h"
#include "DeviceManagerImpl.h"
#include "Discovery.h"

using d3proto::Command;
using d3proto::Json;
using d3sdk::Session;

namespace {

std::string randomClientId() {
    std::random_device rd;
    char buf[17];
    std::snprintf(buf, sizeof buf, "%08x%08x", rd(), rd());
    return buf;
}

using Clock = std::chrono::steady_clock;
using d3sdk::leftUntil;
using d3sdk::locate;
using d3sdk::parseDeviceName;

// Whether `device` names the camera `info` describes. The serial decides
// when there is one (the camera may have moved); otherwise the address.
bool names(const std::string& device, const d3proto::DeviceInfo& info) {
    const d3sdk::DeviceName name = parseDeviceName(device);
    if (!name.serial.empty()) return name.serial == info.serial;
    return !name.ip.empty() && name.ip == info.ip;
}

}  // namespace

DeviceManager::Impl* DeviceManager::Impl::instance = nullptr;

DeviceManager::Impl::Impl() : clientId(randomClientId()) { instance = this; }

DeviceManager::Impl& DeviceManager::Impl::of(DeviceManager&) { return *instance; }

std::shared_ptr<Session> DeviceManager::Impl::current() {
    std::lock_guard<std::mutex> lock(mutex);
    return session;
}

ReturnCode DeviceManager::Impl::require(std::shared_ptr<Session>& out) {
    out = current();
    if (!out) return NOT_CONNECTED;
    if (out->lost()) return NETWORK_ERROR;
    return SUCCESS;
}

ReturnCode DeviceManager::Impl::requireForFrames(std::shared_ptr<Session>& out) {
    out = current();
    return out ? SUCCESS : NOT_CONNECTED;
}

void DeviceManager::Impl::notifyLost(const std::string& serial, const std::string& message) {
    std::function<void(std::string, std::string, void*)> cb;
    void* user;
    CallbackCall call{std::this_thread::get_id(), 0};
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!callback) return;
        cb = callback;
        user = callbackUser;
        call.generation = callbackGeneration;
        callbackCalls.push_back(call);
    }
    cb(serial, message, user);
    // Our copy goes before the call counts as ended: what it captured may
    // belong to an application that unregisters and then cleans up.
    cb = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex);
        callbackCalls.erase(std::find_if(callbackCalls.begin(), callbackCalls.end(), [&](const CallbackCall& c) {
            return c.thread == call.thread && c.generation == call.generation;
        }));
    }
    callbackCallEnded.notify_all();
}

void DeviceManager::Impl::replaceCallback(std::function<void(std::string, std::string, void*)> cb, void* user) {
    const auto me = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mutex);
    // The previous callback is destroyed outside the lock: its captures may
    // call into us from their destructors.
    cb.swap(callback);
    callbackUser = user;
    const uint64_t replaced = callbackGeneration++;
    callbackCallEnded.wait(lock, [&] {
        return std::none_of(callbackCalls.begin(), callbackCalls.end(),
                            [&](const CallbackCall& c) { return c.thread != me && c.generation <= replaced; });
    });
    lock.unlock();
}

namespace {

// Finds and opens `device` and makes it the current session. `until`: a
// deadline for the whole open (a reconnect), or none.
ReturnCode openDevice(DeviceManager::Impl& owner, const std::string& device, bool tcp, Clock::time_point until) {
    // Without a deadline: the usual search (direct, then by serial) and the
    // caller's timeout per request.
    const bool bounded = until != Clock::time_point();
    const auto deadline = bounded ? until : Clock::now() + std::chrono::milliseconds(600);
    d3proto::DeviceInfo info;
    const ReturnCode found = locate(device, info, deadline);
    if (found != SUCCESS) return found;
    DeviceManager::Impl* impl = &owner;
    // While a bounded open runs, no request may wait past its deadline; after
    // it the session goes back to the caller's timeout.
    auto openUntil = std::make_shared<std::atomic<Clock::rep>>(bounded ? until.time_since_epoch().count() : 0);
    auto session = std::make_shared<Session>(
        [impl, openUntil] {
            const Clock::rep until = openUntil->load();
            if (until == 0) return impl->timeout();
            return leftUntil(Clock::time_point(Clock::duration(until)), impl->timeout());
        },
        [impl](const std::string& sn, const std::string& msg) { impl->notifyLost(sn, msg); });
    const ReturnCode rc = session->open(info, owner.clientId, tcp);
    if (rc != SUCCESS) {
        session->close();
        return rc;
    }
    *openUntil = 0;
    std::lock_guard<std::mutex> lock(owner.mutex);
    if (owner.session) return ALREADY_CONNECTED;  // another thread won the race; ours closes on return
    owner.session = std::move(session);
    owner.lastSerial = info.serial;
    owner.lastIp = info.ip;
    owner.lastTcp = tcp;
    return SUCCESS;
}

}  // namespace

DeviceManager::DeviceManager() : impl_(new Impl) {}

DeviceManager::~DeviceManager() { DisconnectFromDevice(); }

DeviceManager& DeviceManager::GetInstance() {
    static DeviceManager instance;
    return instance;
}

ReturnCode DeviceManager::SetTimeout(unsigned int ms) {
    if (ms == 0) return INVALID_PARAMETER;
    impl_->timeoutMs = ms;
    return SUCCESS;
}

void DeviceManager::RegisterNetworkMonitoringCallback(std::function<void(std::string, std::string, void*)> cb,
                                                      void* user) {
    impl_->replaceCallback(std::move(cb), user);
}

std::vector<std::string> DeviceManager::FindDevices() {
    std::vector<std::string> out;
    for (const auto& d :
         d3sdk::discover(d3sdk::broadcastAddresses(), d3sdk::discoveryPort(), std::chrono::milliseconds(300)))
        out.push_back(d.serial + ":" + d.ip);
    return out;
}

ReturnCode DeviceManager::InitDevice(const std::string& device, bool tcp) {
    std::shared_ptr<Session> replaced;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        const std::shared_ptr<Session>& open = impl_->session;
        if (open && !open->lost()) {
            // Asking again for the camera we hold is not an error (an
            // application starting over after StopStream): the session stays
            // as it is. Only another transport needs a new session.
            if (!names(device, open->info())) return ALREADY_CONNECTED;
            if (open->tcp() == tcp) return SUCCESS;
        }
        // A session whose link died is replaced without ceremony.
        replaced.swap(impl_->session);
    }
    // Outside the lock, as in DisconnectFromDevice.
    if (replaced) replaced->close();
    return openDevice(*impl_, device, tcp, Clock::time_point());
}

ReturnCode DeviceManager::DisconnectFromDevice() {
    std::shared_ptr<Session> s;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        s.swap(impl_->session);
    }
    if (!s) return NOT_CONNECTED;
    // Outside the lock: closing joins the monitor thread, whose callback may
    // call back into us.
    s->close();
    return SUCCESS;
}

ReturnCode DeviceManager::ReconnectDevice(unsigned int ms) {
    std::string serial, ip;
    bool tcp;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        serial = impl_->lastSerial;
        ip = impl_->lastIp;
        tcp = impl_->lastTcp;
    }
    if (serial.empty()) return NOT_CONNECTED;
    const auto deadline = Clock::now() + std::chrono::milliseconds(ms ? ms : impl_->timeoutMs.load());
    DisconnectFromDevice();
    // The last address first; when the camera is not there any more (new
    // address), the search by serial finds it. Everything ends by the deadline.
    const ReturnCode rc = openDevice(*impl_, serial + ":" + ip, tcp, deadline);
    if (rc == ALREADY_CONNECTED) return SUCCESS;  // another thread reconnected meanwhile
    return rc == INIT_NETWORK_FAILED || rc == DEVICE_NOT_FOUND || rc == TIMEOUT ? NETWORK_ERROR : rc;
}

ReturnCode DeviceManager::GetDeviceSN(std::string& sn) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc == SUCCESS) sn = s->info().serial;
    return rc;
}

ReturnCode DeviceManager::GetVersion(std::string& firmware, std::string& device) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc != SUCCESS) return rc;
    firmware = s->info().firmwareVersion;
    device = s->info().deviceVersion;
    return SUCCESS;
}

ReturnCode DeviceManager::GetImageInfo(int& width, int& height) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc != SUCCESS) return rc;
    width = s->calibration().image.rgbWidth;
    height = s->calibration().image.rgbHeight;
    return SUCCESS;
}

ReturnCode DeviceManager::IsRgbDevice(bool& rgb) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc == SUCCESS) rgb = s->hasRgb();
    return rc;
}

ReturnCode DeviceManager::GetTofCameraIntrinsicParam(CameraIntrinsicParam& param) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc == SUCCESS) param = s->calibration().tof;
    return rc;
}

ReturnCode DeviceManager::StartStream() {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    return rc == SUCCESS ? s->startStream() : rc;
}

ReturnCode DeviceManager::StopStream() {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    return rc == SUCCESS ? s->stopStream() : rc;
}
