#include "camerainterface.h"

// Our SDK's extensions carry the stream counters; a vendor build of the
// interface has only DeviceManager.h, and the viewer then does without them.
#if __has_include(<d3_sdk/Extensions.h>)
#include <d3_sdk/Extensions.h>
#define D3_HAVE_STREAM_STATS 1
#endif

namespace {

// Plain forwarding: the SDK is safe to call from several threads.
class DeviceManagerCamera final : public CameraInterface {
public:
    ReturnCode SetTimeout(unsigned int ms) override { return dm().SetTimeout(ms); }
    void RegisterNetworkMonitoringCallback(LinkCallback cb, void* user) override {
        dm().RegisterNetworkMonitoringCallback(std::move(cb), user);
    }
    std::vector<std::string> FindDevices() override { return dm().FindDevices(); }
    ReturnCode InitDevice(const std::string& device, bool tcp) override { return dm().InitDevice(device, tcp); }
    ReturnCode DisconnectFromDevice() override { return dm().DisconnectFromDevice(); }
    ReturnCode ReconnectDevice(unsigned int ms) override { return dm().ReconnectDevice(ms); }
    ReturnCode GetDeviceSN(std::string& sn) override { return dm().GetDeviceSN(sn); }
    ReturnCode GetVersion(std::string& firmware, std::string& device) override {
        return dm().GetVersion(firmware, device);
    }
    ReturnCode GetImageInfo(int& width, int& height) override { return dm().GetImageInfo(width, height); }
    ReturnCode IsRgbDevice(bool& rgb) override { return dm().IsRgbDevice(rgb); }
    ReturnCode GetTofCameraIntrinsicParam(CameraIntrinsicParam& param) override {
        return dm().GetTofCameraIntrinsicParam(param);
    }
    ReturnCode StartStream() override { return dm().StartStream(); }
    ReturnCode StopStream() override { return dm().StopStream(); }
    ReturnCode ConvertDepthToRgbEnable(bool on) override { return dm().ConvertDepthToRgbEnable(on); }
    ReturnCode ConvertRgbToDepthEnable(bool on) override { return dm().ConvertRgbToDepthEnable(on); }
    ReturnCode GetTofData(DataContainer<uint16_t>* depth, DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                          DataContainer<uint16_t>* amplitude) override {
        return dm().GetTofData(depth, points, ir, amplitude);
    }
    ReturnCode GetRgbTofData(DataContainer<RGB888Pixel>* rgb, DataContainer<uint16_t>* depth,
                             DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                             DataContainer<uint16_t>* amplitude) override {
        return dm().GetRgbTofData(rgb, depth, points, ir, amplitude);
    }
    ReturnCode GetRgbToDepthData(DataContainer<RGB888Pixel>& rgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                 DataContainer<PointXYZ>* points, DataContainer<uint16_t>* depth,
                                 DataContainer<RGB888Pixel>* rgbToDepth, DataContainer<uint8_t>* ir,
                                 DataContainer<uint16_t>* amplitude) override {
        return dm().GetRgbToDepthData(rgb, rgbPoints, points, depth, rgbToDepth, ir, amplitude);
    }
    ReturnCode GetDepthToRgbData(DataContainer<uint16_t>& depthToRgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                 DataContainer<PointXYZ>* points, DataContainer<RGB888Pixel>* rgb,
                                 DataContainer<uint16_t>* depth, DataContainer<uint8_t>* ir,
                                 DataContainer<uint16_t>* amplitude) override {
        return dm().GetDepthToRgbData(depthToRgb, rgbPoints, points, rgb, depth, ir, amplitude);
    }
    ReturnCode SetTofCameraExposureTime(int us) override { return dm().SetTofCameraExposureTime(us); }
    ReturnCode GetTofCameraExposureTime(int& us) override { return dm().GetTofCameraExposureTime(us); }
    ReturnCode SetTofCameraAutoExposure() override { return dm().SetTofCameraAutoExposure(); }
    ReturnCode GetTofCameraExposureMode(ExposureMode& mode) override { return dm().GetTofCameraExposureMode(mode); }
    ReturnCode SetSingleIntegralMode() override { return dm().SetSingleIntegralMode(); }
    ReturnCode SetHDR(bool on) override { return dm().SetHDR(on); }
    ReturnCode GetHDR(bool& on) override { return dm().GetHDR(on); }
    ReturnCode SetFrameRate(int fps) override { return dm().SetFrameRate(fps); }
    ReturnCode GetFrameRate(int& fps) override { return dm().GetFrameRate(fps); }
    ReturnCode SetIRGMMGain(int gain) override { return dm().SetIRGMMGain(gain); }
    ReturnCode GetIRGMMGain(int& gain) override { return dm().GetIRGMMGain(gain); }
    ReturnCode SetTriggerMode(TriggerMode mode) override { return dm().SetTriggerMode(mode); }
    ReturnCode GetTriggerMode(TriggerMode& mode) override { return dm().GetTriggerMode(mode); }
    ReturnCode SoftTrigger() override { return dm().SoftTrigger(); }
    ReturnCode SetDelayHardTriggerTime(int ms, int us) override { return dm().SetDelayHardTriggerTime(ms, us); }
    ReturnCode GetDelayHardTriggerTime(int& ms, int& us) override { return dm().GetDelayHardTriggerTime(ms, us); }
    ReturnCode SetTofFrequencyMode(FrequencyMode mode) override { return dm().SetTofFrequencyMode(mode); }
    ReturnCode GetTofFrequencyMode(FrequencyMode& mode) override { return dm().GetTofFrequencyMode(mode); }
    ReturnCode SetTimeMedianFilter(bool on) override { return dm().SetTimeMedianFilter(on); }
    ReturnCode SetTimeMedianFilter(FilterParam param) override { return dm().SetTimeMedianFilter(param); }
    ReturnCode GetTimeMedianFilter(FilterParam& param) override { return dm().GetTimeMedianFilter(param); }
    ReturnCode SetFlyPixeFilter(bool on) override { return dm().SetFlyPixeFilter(on); }
    ReturnCode SetFlyPixeFilter(FilterParam param) override { return dm().SetFlyPixeFilter(param); }
    ReturnCode GetFlyPixeFilter(FilterParam& param) override { return dm().GetFlyPixeFilter(param); }
    ReturnCode SetConfidenceFilter(bool on) override { return dm().SetConfidenceFilter(on); }
    ReturnCode SetConfidenceFilter(FilterParam param) override { return dm().SetConfidenceFilter(param); }
    ReturnCode GetConfidenceFilter(FilterParam& param) override { return dm().GetConfidenceFilter(param); }
    ReturnCode SetSpatialFilter(bool on) override { return dm().SetSpatialFilter(on); }
    ReturnCode SetSpatialFilter(FilterParam param) override { return dm().SetSpatialFilter(param); }
    ReturnCode GetSpatialFilter(FilterParam& param) override { return dm().GetSpatialFilter(param); }
    ReturnCode SetRgbCameraExposureMode(ExposureMode mode) override { return dm().SetRgbCameraExposureMode(mode); }
    ReturnCode GetRgbCameraExposureMode(ExposureMode& mode) override { return dm().GetRgbCameraExposureMode(mode); }
    ReturnCode SetRgbCameraExposureTime(int us) override { return dm().SetRgbCameraExposureTime(us); }
    ReturnCode GetRgbCameraExposureTime(int& us) override { return dm().GetRgbCameraExposureTime(us); }
    ReturnCode SetRgbCameraGain(int gain) override { return dm().SetRgbCameraGain(gain); }
    ReturnCode GetRgbCameraGain(int& gain) override { return dm().GetRgbCameraGain(gain); }
    ReturnCode SetRgbCameraContrastRatio(int ratio) override { return dm().SetRgbCameraContrastRatio(ratio); }
    ReturnCode GetRgbCameraContrastRatio(int& ratio) override { return dm().GetRgbCameraContrastRatio(ratio); }
    ReturnCode SaveConfigureInfo() override { return dm().SaveConfigureInfo(); }
    ReturnCode DeleteConfigureInfo() override { return dm().DeleteConfigureInfo(); }
    ReturnCode RecoveryDefaultConfigure() override { return dm().RecoveryDefaultConfigure(); }
    ReturnCode SetNetworkMode(const NetworkMode& mode) override { return dm().SetNetworkMode(mode); }
    bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZ>& points, bool binary) override {
        return DeviceManager::SaveAsPLYFile(path, points, binary);
    }
    bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZRGBI>& points, bool binary) override {
        return DeviceManager::SaveAsPLYFile(path, points, binary);
    }
    std::string GetReturnCodeDescriptor(ReturnCode code) override { return dm().GetReturnCodeDescriptor(code); }
#ifdef D3_HAVE_STREAM_STATS
    bool hasStreamStatistics() const override { return true; }
    bool readStreamStatistics(StreamStatistics& out) override {
        d3sdk::StreamStats s;
        if (d3sdk::GetStreamStats(s) != SUCCESS) return false;
        out.framesComplete = s.framesComplete;
        out.framesDropped = s.framesDropped;
        out.framesDelivered = s.framesDelivered;
        out.bytesReceived = s.bytesReceived;
        out.meanLatencyMs = s.meanUnpackMs;
        out.maxLatencyMs = s.maxUnpackMs;
        out.udp = s.udp;
        out.packetsReceived = s.packetsReceived;
        out.packetsLost = s.packetsLost;
        out.packetsResendRequested = s.packetsResendRequested;
        out.packetsRecovered = s.packetsRecovered;
        return true;
    }
#endif

private:
    static DeviceManager& dm() { return DeviceManager::GetInstance(); }
};

}  // namespace

CameraInterface& CameraInterface::device() {
    static DeviceManagerCamera camera;
    return camera;
}
