// Placeholder until the network implementation lands: behaves as a machine
// with no camera on its network. Searches find nothing; device calls report
// that no session is open.
#include "d3_sdk/DeviceManager.h"

struct DeviceManager::Impl {};

DeviceManager::DeviceManager() : impl_(new Impl) {}
DeviceManager::~DeviceManager() = default;

DeviceManager& DeviceManager::GetInstance() {
    static DeviceManager instance;
    return instance;
}

ReturnCode DeviceManager::SetTimeout(unsigned int) {
    return SUCCESS;
}

void DeviceManager::RegisterNetworkMonitoringCallback(std::function<void(std::string, std::string, void*)>, void*) {
}

std::vector<std::string> DeviceManager::FindDevices() {
    return {};
}

ReturnCode DeviceManager::InitDevice(const std::string&, bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::DisconnectFromDevice() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::ReconnectDevice(unsigned int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetDeviceSN(std::string&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetVersion(std::string&, std::string&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetImageInfo(int&, int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::IsRgbDevice(bool&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTofCameraIntrinsicParam(CameraIntrinsicParam&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::StartStream() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::StopStream() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::ConvertDepthToRgbEnable(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::ConvertRgbToDepthEnable(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTofData(DataContainer<uint16_t>*, DataContainer<PointXYZ>*, DataContainer<uint8_t>*, DataContainer<uint16_t>*) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetRgbTofData(DataContainer<RGB888Pixel>*, DataContainer<uint16_t>*, DataContainer<PointXYZ>*, DataContainer<uint8_t>*, DataContainer<uint16_t>*) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetRgbToDepthData(DataContainer<RGB888Pixel>&, DataContainer<PointXYZRGBI>*, DataContainer<PointXYZ>*, DataContainer<uint16_t>*, DataContainer<RGB888Pixel>*, DataContainer<uint8_t>*, DataContainer<uint16_t>*) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetDepthToRgbData(DataContainer<uint16_t>&, DataContainer<PointXYZRGBI>*, DataContainer<PointXYZ>*, DataContainer<RGB888Pixel>*, DataContainer<uint16_t>*, DataContainer<uint8_t>*, DataContainer<uint16_t>*) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetTofCameraExposureTime(int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTofCameraExposureTime(int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetTofCameraAutoExposure() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTofCameraExposureMode(ExposureMode&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetSingleIntegralMode() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetHDR(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetHDR(bool&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetFrameRate(int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetFrameRate(int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetIRGMMGain(int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetIRGMMGain(int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetTriggerMode(TriggerMode) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTriggerMode(TriggerMode&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SoftTrigger() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetDelayHardTriggerTime(int, int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetDelayHardTriggerTime(int&, int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetTofFrequencyMode(FrequencyMode) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTofFrequencyMode(FrequencyMode&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetTimeMedianFilter(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetTimeMedianFilter(FilterParam) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetTimeMedianFilter(FilterParam&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetFlyPixeFilter(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetFlyPixeFilter(FilterParam) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetFlyPixeFilter(FilterParam&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetConfidenceFilter(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetConfidenceFilter(FilterParam) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetConfidenceFilter(FilterParam&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetSpatialFilter(bool) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetSpatialFilter(FilterParam) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetSpatialFilter(FilterParam&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetRgbCameraExposureMode(ExposureMode) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetRgbCameraExposureMode(ExposureMode&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetRgbCameraExposureTime(int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetRgbCameraExposureTime(int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetRgbCameraGain(int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetRgbCameraGain(int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetRgbCameraContrastRatio(int) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::GetRgbCameraContrastRatio(int&) {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SaveConfigureInfo() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::DeleteConfigureInfo() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::RecoveryDefaultConfigure() {
    return NOT_CONNECTED;
}

ReturnCode DeviceManager::SetNetworkMode(const NetworkMode&) {
    return NOT_CONNECTED;
}

bool DeviceManager::SaveAsPLYFile(const std::string&, DataContainer<PointXYZ>&, bool) {
    return false;
}

bool DeviceManager::SaveAsPLYFile(const std::string&, DataContainer<PointXYZRGBI>&, bool) {
    return false;
}

std::string DeviceManager::GetReturnCodeDescriptor(ReturnCode code) {
    switch (code) {
        case SUCCESS: return "success";
        case NOT_CONNECTED: return "no device is connected";
        default: return "error " + std::to_string(int(code));
    }
}
