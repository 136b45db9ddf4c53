// Every camera operation the viewer performs, as one interface. The session
// and the frame workers call the camera only through it, so the viewer's
// rules can be tested against a fake and the same code runs against any build
// of the SDK. device() forwards to the SDK's DeviceManager singleton.
#pragma once

#include <d3_sdk/DeviceManager.h>

#include <functional>
#include <string>
#include <vector>

#include "streamhealth.h"

class CameraInterface {
public:
    using LinkCallback = std::function<void(std::string, std::string, void*)>;

    virtual ~CameraInterface() = default;

    // Session and discovery
    virtual ReturnCode SetTimeout(unsigned int ms) = 0;
    virtual void RegisterNetworkMonitoringCallback(LinkCallback cb, void* user) = 0;
    virtual std::vector<std::string> FindDevices() = 0;
    virtual ReturnCode InitDevice(const std::string& device, bool tcp) = 0;
    virtual ReturnCode DisconnectFromDevice() = 0;
    virtual ReturnCode ReconnectDevice(unsigned int ms) = 0;
    virtual ReturnCode GetDeviceSN(std::string& sn) = 0;
    virtual ReturnCode GetVersion(std::string& firmware, std::string& device) = 0;
    virtual ReturnCode GetImageInfo(int& width, int& height) = 0;
    virtual ReturnCode IsRgbDevice(bool& rgb) = 0;
    virtual ReturnCode GetTofCameraIntrinsicParam(CameraIntrinsicParam& param) = 0;
    virtual ReturnCode StartStream() = 0;
    virtual ReturnCode StopStream() = 0;
    virtual ReturnCode ConvertDepthToRgbEnable(bool on) = 0;
    virtual ReturnCode ConvertRgbToDepthEnable(bool on) = 0;

    // Frames; a null pointer means the caller does not want that buffer
    virtual ReturnCode GetTofData(DataContainer<uint16_t>* depth, DataContainer<PointXYZ>* points,
                                  DataContainer<uint8_t>* ir, DataContainer<uint16_t>* amplitude) = 0;
    virtual ReturnCode GetRgbTofData(DataContainer<RGB888Pixel>* rgb, DataContainer<uint16_t>* depth,
                                     DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                                     DataContainer<uint16_t>* amplitude) = 0;
    virtual ReturnCode GetRgbToDepthData(DataContainer<RGB888Pixel>& rgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                         DataContainer<PointXYZ>* points, DataContainer<uint16_t>* depth,
                                         DataContainer<RGB888Pixel>* rgbToDepth, DataContainer<uint8_t>* ir,
                                         DataContainer<uint16_t>* amplitude) = 0;
    virtual ReturnCode GetDepthToRgbData(DataContainer<uint16_t>& depthToRgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                         DataContainer<PointXYZ>* points, DataContainer<RGB888Pixel>* rgb,
                                         DataContainer<uint16_t>* depth, DataContainer<uint8_t>* ir,
                                         DataContainer<uint16_t>* amplitude) = 0;

    // Camera parameters
    virtual ReturnCode SetTofCameraExposureTime(int us) = 0;
    virtual ReturnCode GetTofCameraExposureTime(int& us) = 0;
    virtual ReturnCode SetTofCameraAutoExposure() = 0;
    virtual ReturnCode GetTofCameraExposureMode(ExposureMode& mode) = 0;
    virtual ReturnCode SetSingleIntegralMode() = 0;
    virtual ReturnCode SetHDR(bool on) = 0;
    virtual ReturnCode GetHDR(bool& on) = 0;
    virtual ReturnCode SetFrameRate(int fps) = 0;
    virtual ReturnCode GetFrameRate(int& fps) = 0;
    virtual ReturnCode SetIRGMMGain(int gain) = 0;
    virtual ReturnCode GetIRGMMGain(int& gain) = 0;
    virtual ReturnCode SetTriggerMode(TriggerMode mode) = 0;
    virtual ReturnCode GetTriggerMode(TriggerMode& mode) = 0;
    virtual ReturnCode SoftTrigger() = 0;
    virtual ReturnCode SetDelayHardTriggerTime(int ms, int us) = 0;
    virtual ReturnCode GetDelayHardTriggerTime(int& ms, int& us) = 0;
    virtual ReturnCode SetTofFrequencyMode(FrequencyMode mode) = 0;
    virtual ReturnCode GetTofFrequencyMode(FrequencyMode& mode) = 0;
    virtual ReturnCode SetTimeMedianFilter(bool on) = 0;
    virtual ReturnCode SetTimeMedianFilter(FilterParam param) = 0;
    virtual ReturnCode GetTimeMedianFilter(FilterParam& param) = 0;
    virtual ReturnCode SetFlyPixeFilter(bool on) = 0;
    virtual ReturnCode SetFlyPixeFilter(FilterParam param) = 0;
    virtual ReturnCode GetFlyPixeFilter(FilterParam& param) = 0;
    virtual ReturnCode SetConfidenceFilter(bool on) = 0;
    virtual ReturnCode SetConfidenceFilter(FilterParam param) = 0;
    virtual ReturnCode GetConfidenceFilter(FilterParam& param) = 0;
    virtual ReturnCode SetSpatialFilter(bool on) = 0;
    virtual ReturnCode SetSpatialFilter(FilterParam param) = 0;
    virtual ReturnCode GetSpatialFilter(FilterParam& param) = 0;
    virtual ReturnCode SetRgbCameraExposureMode(ExposureMode mode) = 0;
    virtual ReturnCode GetRgbCameraExposureMode(ExposureMode& mode) = 0;
    virtual ReturnCode SetRgbCameraExposureTime(int us) = 0;
    virtual ReturnCode GetRgbCameraExposureTime(int& us) = 0;
    virtual ReturnCode SetRgbCameraGain(int gain) = 0;
    virtual ReturnCode GetRgbCameraGain(int& gain) = 0;
    virtual ReturnCode SetRgbCameraContrastRatio(int ratio) = 0;
    virtual ReturnCode GetRgbCameraContrastRatio(int& ratio) = 0;

    // Device-side storage and administration
    virtual ReturnCode SaveConfigureInfo() = 0;
    virtual ReturnCode DeleteConfigureInfo() = 0;
    virtual ReturnCode RecoveryDefaultConfigure() = 0;
    virtual ReturnCode SetNetworkMode(const NetworkMode& mode) = 0;

    // Files and texts
    virtual bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZ>& points, bool binary) = 0;
    virtual bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZRGBI>& points, bool binary) = 0;
    virtual std::string GetReturnCodeDescriptor(ReturnCode code) = 0;

    // Optional: the stream's counters, where the SDK keeps them (an SDK with
    // only the DeviceManager interface does not). Reads no camera; cheap.
    virtual bool hasStreamStatistics() const { return false; }
    virtual bool readStreamStatistics(StreamStatistics& /*out*/) { return false; }

    static CameraInterface& device();
};
