// A camera for the viewer's tests, behind the same interface as the SDK: it
// records every call with its arguments, answers from a settings record,
// fails calls on request, can hold a call until the test releases it, can be
// slowed down like a camera far away, and fires the link callback the way the
// SDK does (a callback in flight finishes before a new registration returns).
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "camerainterface.h"

class FakeCamera final : public CameraInterface {
public:
    struct Settings {
        std::vector<std::string> devices{"KX0000003001:192.168.1.80"};
        std::string serial = "KX0000003001";  // model digit (index 8) 3: colour
        std::string firmware = "FW1.0";
        std::string deviceVersion = "DV1.0";
        int rgbWidth = 1920;
        int rgbHeight = 1080;
        bool rgb = true;
        TriggerMode trigger = TRIGGER_MODE_NORMAL;
        FrequencyMode frequency = DUAL_FREQUENCY;
        int delayFirst = 0;
        int delaySecond = 0;
        bool hdr = false;
        int exposure = 1000;
        ExposureMode exposureMode = MANUAL_EXPOSURE;
        int fps = 10;
        int gamma = 0;
        ExposureMode rgbExposureMode = AUTO_EXPOSURE;
        int rgbExposure = 100;
        int rgbGain = 0;
        int rgbContrast = 100;
        FilterParam spatial{false, 3, 100};
        FilterParam time{false, 3, 100};
        FilterParam fly{false, 1, 100};
        FilterParam confidence{false, 1, 100};
    };

    // What the getters answer; change it only while nothing calls the camera.
    Settings settings;
    // Added to every call, like a camera whose replies take that long.
    std::atomic<int> latencyMs{0};
    // Frame reads wait this long, like a camera's frame rate.
    std::atomic<int> frameIntervalMs{5};

    // --- What the test sees
    std::vector<std::string> calls() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }
    // Calls without the frame reads, in order.
    std::vector<std::string> commands() const {
        std::vector<std::string> out;
        for (const std::string& c : calls())
            if (c.rfind("Get", 0) != 0 || c.find("Data") == std::string::npos) out.push_back(name(c));
        return out;
    }
    int count(const std::string& call) const {
        const auto all = calls();
        return int(std::count_if(all.begin(), all.end(), [&](const std::string& c) { return name(c) == call; }));
    }
    void clearCalls() {
        std::lock_guard<std::mutex> lock(mutex_);
        calls_.clear();
    }
    // The call and its arguments as recorded, e.g. "SetFrameRate 10".
    static std::string name(const std::string& recorded) { return recorded.substr(0, recorded.find(' ')); }

    // --- Steering
    // Every call of `call` returns `code` from now on.
    void setResult(const std::string& call, ReturnCode code) {
        std::lock_guard<std::mutex> lock(mutex_);
        results_[call] = code;
    }
    // The next call of `call` returns `code`.
    void failNext(const std::string& call, ReturnCode code) {
        std::lock_guard<std::mutex> lock(mutex_);
        once_[call].push_back(code);
    }
    // The next call of `call` waits (recorded) until release(call).
    void holdNext(const std::string& call) {
        std::lock_guard<std::mutex> lock(mutex_);
        held_.insert(call);
    }
    // Every call of `call` waits (recorded) until releaseAll(call).
    void holdAll(const std::string& call) {
        std::lock_guard<std::mutex> lock(mutex_);
        heldAll_.insert(call);
    }
    void releaseAll(const std::string& call) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            heldAll_.erase(call);
        }
        wake_.notify_all();
    }
    // Calls of `call` waiting in holdAll.
    int waitingAll(const std::string& call) const {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = waitingAll_.find(call);
        return it == waitingAll_.end() ? 0 : it->second;
    }
    // True once a held call of `call` is waiting.
    bool waiting(const std::string& call) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return waiting_.count(call) > 0;
    }
    void release(const std::string& call) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            released_.insert(call);
        }
        wake_.notify_all();
    }
    bool callbackRegistered() const {
        std::lock_guard<std::recursive_mutex> lock(callbackMutex_);
        return bool(callback_);
    }
    // Calls the registered link callback on this thread, as the SDK's thread
    // would; returns false when none is registered.
    bool fireLinkCallback(const std::string& sn, const std::string& message) {
        std::lock_guard<std::recursive_mutex> lock(callbackMutex_);
        if (!callback_) return false;
        callback_(sn, message, callbackUser_);
        return true;
    }

    // --- CameraInterface
    ReturnCode SetTimeout(unsigned int ms) override { return call("SetTimeout", ms); }
    void RegisterNetworkMonitoringCallback(LinkCallback cb, void* user) override {
        record("RegisterNetworkMonitoringCallback");
        std::lock_guard<std::recursive_mutex> lock(callbackMutex_);
        callback_ = std::move(cb);
        callbackUser_ = user;
    }
    std::vector<std::string> FindDevices() override {
        record("FindDevices");
        return settings.devices;
    }
    ReturnCode InitDevice(const std::string& device, bool tcp) override { return call("InitDevice", device, tcp); }
    ReturnCode DisconnectFromDevice() override { return call("DisconnectFromDevice"); }
    ReturnCode ReconnectDevice(unsigned int ms) override { return call("ReconnectDevice", ms); }
    ReturnCode GetDeviceSN(std::string& sn) override { return get("GetDeviceSN", sn, settings.serial); }
    ReturnCode GetVersion(std::string& fw, std::string& dv) override {
        const ReturnCode rc = call("GetVersion");
        if (rc == SUCCESS) {
            fw = settings.firmware;
            dv = settings.deviceVersion;
        }
        return rc;
    }
    ReturnCode GetImageInfo(int& width, int& height) override {
        const ReturnCode rc = call("GetImageInfo");
        if (rc == SUCCESS) {
            width = settings.rgbWidth;
            height = settings.rgbHeight;
        }
        return rc;
    }
    ReturnCode IsRgbDevice(bool& rgb) override { return get("IsRgbDevice", rgb, settings.rgb); }
    ReturnCode GetTofCameraIntrinsicParam(CameraIntrinsicParam& p) override {
        return get("GetTofCameraIntrinsicParam", p, CameraIntrinsicParam{520, 520, 320, 240, 0, 0, 0, 0, 0});
    }
    ReturnCode StartStream() override { return call("StartStream"); }
    ReturnCode StopStream() override { return call("StopStream"); }
    ReturnCode ConvertDepthToRgbEnable(bool on) override { return call("ConvertDepthToRgbEnable", on); }
    ReturnCode ConvertRgbToDepthEnable(bool on) override { return call("ConvertRgbToDepthEnable", on); }

    ReturnCode GetTofData(DataContainer<uint16_t>* depth, DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                          DataContainer<uint16_t>* amplitude) override {
        const ReturnCode rc = frame("GetTofData");
        if (rc != SUCCESS) return rc;
        fill(depth, 480, 640, uint16_t(1000));
        fill(points, 480, 640, PointXYZ{0, 0, 1000});
        fill(ir, 480, 640, uint8_t(128));
        fill(amplitude, 480, 640, uint16_t(128));
        return rc;
    }
    ReturnCode GetRgbTofData(DataContainer<RGB888Pixel>* rgb, DataContainer<uint16_t>* depth,
                             DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                             DataContainer<uint16_t>* amplitude) override {
        const ReturnCode rc = frame("GetRgbTofData");
        if (rc != SUCCESS) return rc;
        fill(rgb, unsigned(settings.rgbHeight), unsigned(settings.rgbWidth), RGB888Pixel{10, 20, 30});
        fill(depth, 480, 640, uint16_t(1000));
        fill(points, 480, 640, PointXYZ{0, 0, 1000});
        fill(ir, 480, 640, uint8_t(128));
        fill(amplitude, 480, 640, uint16_t(128));
        return rc;
    }
    ReturnCode GetRgbToDepthData(DataContainer<RGB888Pixel>& rgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                 DataContainer<PointXYZ>* points, DataContainer<uint16_t>* depth,
                                 DataContainer<RGB888Pixel>* rgbToDepth, DataContainer<uint8_t>* ir,
                                 DataContainer<uint16_t>* amplitude) override {
        const ReturnCode rc = frame("GetRgbToDepthData");
        if (rc != SUCCESS) return rc;
        fill(&rgb, 480, 640, RGB888Pixel{10, 20, 30});
        fill(rgbPoints, 480, 640, PointXYZRGBI{0, 0, 1000, 10, 20, 30, 128});
        fill(points, 480, 640, PointXYZ{0, 0, 1000});
        fill(depth, 480, 640, uint16_t(1000));
        fill(rgbToDepth, 480, 640, RGB888Pixel{10, 20, 30});
        fill(ir, 480, 640, uint8_t(128));
        fill(amplitude, 480, 640, uint16_t(128));
        return rc;
    }
    ReturnCode GetDepthToRgbData(DataContainer<uint16_t>& depthToRgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                 DataContainer<PointXYZ>* points, DataContainer<RGB888Pixel>* rgb,
                                 DataContainer<uint16_t>* depth, DataContainer<uint8_t>* ir,
                                 DataContainer<uint16_t>* amplitude) override {
        const ReturnCode rc = frame("GetDepthToRgbData");
        if (rc != SUCCESS) return rc;
        const unsigned h = unsigned(settings.rgbHeight), w = unsigned(settings.rgbWidth);
        fill(&depthToRgb, h, w, uint16_t(1000));
        fill(rgbPoints, 480, 640, PointXYZRGBI{0, 0, 1000, 10, 20, 30, 128});
        fill(points, 480, 640, PointXYZ{0, 0, 1000});
        fill(rgb, h, w, RGB888Pixel{10, 20, 30});
        fill(depth, 480, 640, uint16_t(1000));
        fill(ir, 480, 640, uint8_t(128));
        fill(amplitude, 480, 640, uint16_t(128));
        return rc;
    }

    ReturnCode SetTofCameraExposureTime(int us) override { return call("SetTofCameraExposureTime", us); }
    ReturnCode GetTofCameraExposureTime(int& us) override {
        return get("GetTofCameraExposureTime", us, settings.exposure);
    }
    ReturnCode SetTofCameraAutoExposure() override { return call("SetTofCameraAutoExposure"); }
    ReturnCode GetTofCameraExposureMode(ExposureMode& m) override {
        return get("GetTofCameraExposureMode", m, settings.exposureMode);
    }
    ReturnCode SetSingleIntegralMode() override { return call("SetSingleIntegralMode"); }
    ReturnCode SetHDR(bool on) override { return call("SetHDR", on); }
    ReturnCode GetHDR(bool& on) override { return get("GetHDR", on, settings.hdr); }
    ReturnCode SetFrameRate(int fps) override { return call("SetFrameRate", fps); }
    ReturnCode GetFrameRate(int& fps) override { return get("GetFrameRate", fps, settings.fps); }
    ReturnCode SetIRGMMGain(int gain) override { return call("SetIRGMMGain", gain); }
    ReturnCode GetIRGMMGain(int& gain) override { return get("GetIRGMMGain", gain, settings.gamma); }
    ReturnCode SetTriggerMode(TriggerMode mode) override { return call("SetTriggerMode", int(mode)); }
    ReturnCode GetTriggerMode(TriggerMode& mode) override { return get("GetTriggerMode", mode, settings.trigger); }
    ReturnCode SoftTrigger() override { return call("SoftTrigger"); }
    ReturnCode SetDelayHardTriggerTime(int ms, int us) override { return call("SetDelayHardTriggerTime", ms, us); }
    ReturnCode GetDelayHardTriggerTime(int& ms, int& us) override {
        const ReturnCode rc = call("GetDelayHardTriggerTime");
        if (rc == SUCCESS) {
            ms = settings.delayFirst;
            us = settings.delaySecond;
        }
        return rc;
    }
    ReturnCode SetTofFrequencyMode(FrequencyMode mode) override { return call("SetTofFrequencyMode", int(mode)); }
    ReturnCode GetTofFrequencyMode(FrequencyMode& mode) override {
        return get("GetTofFrequencyMode", mode, settings.frequency);
    }
    ReturnCode SetTimeMedianFilter(bool on) override { return call("SetTimeMedianFilter", on); }
    ReturnCode SetTimeMedianFilter(FilterParam p) override { return call("SetTimeMedianFilter", p); }
    ReturnCode GetTimeMedianFilter(FilterParam& p) override { return get("GetTimeMedianFilter", p, settings.time); }
    ReturnCode SetFlyPixeFilter(bool on) override { return call("SetFlyPixeFilter", on); }
    ReturnCode SetFlyPixeFilter(FilterParam p) override { return call("SetFlyPixeFilter", p); }
    ReturnCode GetFlyPixeFilter(FilterParam& p) override { return get("GetFlyPixeFilter", p, settings.fly); }
    ReturnCode SetConfidenceFilter(bool on) override { return call("SetConfidenceFilter", on); }
    ReturnCode SetConfidenceFilter(FilterParam p) override { return call("SetConfidenceFilter", p); }
    ReturnCode GetConfidenceFilter(FilterParam& p) override {
        return get("GetConfidenceFilter", p, settings.confidence);
    }
    ReturnCode SetSpatialFilter(bool on) override { return call("SetSpatialFilter", on); }
    ReturnCode SetSpatialFilter(FilterParam p) override { return call("SetSpatialFilter", p); }
    ReturnCode GetSpatialFilter(FilterParam& p) override { return get("GetSpatialFilter", p, settings.spatial); }
    ReturnCode SetRgbCameraExposureMode(ExposureMode mode) override {
        return call("SetRgbCameraExposureMode", int(mode));
    }
    ReturnCode GetRgbCameraExposureMode(ExposureMode& mode) override {
        return get("GetRgbCameraExposureMode", mode, settings.rgbExposureMode);
    }
    ReturnCode SetRgbCameraExposureTime(int us) override { return call("SetRgbCameraExposureTime", us); }
    ReturnCode GetRgbCameraExposureTime(int& us) override {
        return get("GetRgbCameraExposureTime", us, settings.rgbExposure);
    }
    ReturnCode SetRgbCameraGain(int gain) override { return call("SetRgbCameraGain", gain); }
    ReturnCode GetRgbCameraGain(int& gain) override { return get("GetRgbCameraGain", gain, settings.rgbGain); }
    ReturnCode SetRgbCameraContrastRatio(int ratio) override { return call("SetRgbCameraContrastRatio", ratio); }
    ReturnCode GetRgbCameraContrastRatio(int& ratio) override {
        return get("GetRgbCameraContrastRatio", ratio, settings.rgbContrast);
    }
    ReturnCode SaveConfigureInfo() override { return call("SaveConfigureInfo"); }
    ReturnCode DeleteConfigureInfo() override { return call("DeleteConfigureInfo"); }
    ReturnCode RecoveryDefaultConfigure() override { return call("RecoveryDefaultConfigure"); }
    ReturnCode SetNetworkMode(const NetworkMode& mode) override { return call("SetNetworkMode", mode.ip); }
    // Files are the SDK's business, not the camera's: the real writer runs.
    bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZ>& cloud, bool binary) override {
        return call("SaveAsPLYFile", path, binary) == SUCCESS && DeviceManager::SaveAsPLYFile(path, cloud, binary);
    }
    bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZRGBI>& cloud, bool binary) override {
        return call("SaveAsPLYFile", path, binary) == SUCCESS && DeviceManager::SaveAsPLYFile(path, cloud, binary);
    }
    std::string GetReturnCodeDescriptor(ReturnCode code) override { return "code " + std::to_string(int(code)); }

    // Stream counters: none unless a test turns them on.
    std::atomic<bool> keepsStreamStatistics{false};
    void setStreamStatistics(const StreamStatistics& s) {
        std::lock_guard<std::mutex> lock(mutex_);
        statistics_ = s;
    }
    bool hasStreamStatistics() const override { return keepsStreamStatistics; }
    bool readStreamStatistics(StreamStatistics& out) override {
        if (!keepsStreamStatistics) return false;
        std::lock_guard<std::mutex> lock(mutex_);
        out = statistics_;
        return true;
    }

private:
    static void arg(std::ostringstream& out, const FilterParam& p) {
        out << ' ' << p.enable << ' ' << p.value << ' ' << p.value2;
    }
    template <typename T>
    static void arg(std::ostringstream& out, const T& v) {
        out << ' ' << v;
    }

    template <typename... Args>
    void record(const std::string& call, const Args&... args) {
        std::ostringstream out;
        out << call;
        (arg(out, args), ...);
        std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back(out.str());
    }

    template <typename... Args>
    ReturnCode call(const std::string& name, const Args&... args) {
        record(name, args...);
        std::unique_lock<std::mutex> lock(mutex_);
        if (held_.erase(name)) {
            waiting_.insert(name);
            wake_.wait(lock, [&] { return released_.count(name) > 0; });
            released_.erase(name);
            waiting_.erase(name);
        }
        if (heldAll_.count(name)) {
            ++waitingAll_[name];
            wake_.wait(lock, [&] { return heldAll_.count(name) == 0; });
            --waitingAll_[name];
        }
        const int delay = latencyMs;
        ReturnCode rc = SUCCESS;
        auto once = once_.find(name);
        if (once != once_.end() && !once->second.empty()) {
            rc = once->second.front();
            once->second.erase(once->second.begin());
        } else if (auto r = results_.find(name); r != results_.end()) {
            rc = r->second;
        }
        lock.unlock();
        if (delay > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        return rc;
    }

    template <typename T, typename V>
    ReturnCode get(const std::string& name, T& out, const V& value) {
        const ReturnCode rc = call(name);
        if (rc == SUCCESS) out = value;
        return rc;
    }

    ReturnCode frame(const std::string& name) {
        const int interval = frameIntervalMs;
        if (interval > 0) std::this_thread::sleep_for(std::chrono::milliseconds(interval));
        return call(name);
    }

    template <typename T>
    static void fill(DataContainer<T>* c, unsigned rows, unsigned cols, const T& value) {
        if (!c) return;
        c->resize(rows, cols);
        std::fill(c->data(), c->data() + std::size_t(rows) * cols, value);
    }

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<std::string> calls_;
    std::map<std::string, ReturnCode> results_;
    std::map<std::string, std::vector<ReturnCode>> once_;
    std::set<std::string> held_;
    std::set<std::string> waiting_;
    std::set<std::string> released_;
    std::set<std::string> heldAll_;
    std::map<std::string, int> waitingAll_;
    mutable std::recursive_mutex callbackMutex_;
    LinkCallback callback_;
    void* callbackUser_ = nullptr;
    StreamStatistics statistics_;
};
