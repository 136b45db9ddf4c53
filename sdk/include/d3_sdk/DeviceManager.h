// Public interface of the d3 camera SDK.
//
// This header is the whole contract between an application and the camera:
// a vendor build of the SDK ships the same declarations, so nothing here may
// mention how the SDK talks to cameras.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#if defined(_WIN32)
#  if defined(D3_SDK_BUILDING)
#    define D3_SDK_API __declspec(dllexport)
#  else
#    define D3_SDK_API __declspec(dllimport)
#  endif
#else
#  define D3_SDK_API __attribute__((visibility("default")))
#endif

// Result of almost every operation. SUCCESS (2) is the only success value.
enum ReturnCode : int32_t {
    FAILED = 3,                 // unspecified failure
    SUCCESS = 2,
    INVALID_PARAMETER = 4,      // value out of range or malformed
    TIMEOUT = 5,                // no answer / no frame within the timeout
    DEVICE_BUSY = 6,            // another client holds control of the camera
    NOT_CONNECTED = 7,          // no session is open
    NOT_SUPPORTED = 8,          // this camera model or mode cannot do it
    FILE_ERROR = 9,             // a local file could not be written or read
    FIRMWARE_REJECTED = 10,     // the camera refused a firmware image
    ACCESS_DENIED = 11,         // wrong access word
    PROTOCOL_ERROR = 12,        // malformed or unexpected answer from the camera
    DEVICE_NOT_FOUND = 13,      // no camera answers to that name
    ALREADY_CONNECTED = 14,     // a session to another camera is already open
    REFUSED_WHILE_STREAMING = 15,
    REFUSED_BY_RECORDING = 16,  // the camera replays a recording that cannot honour the setting
    NETWORK_ERROR = 33,         // link to the camera lost
    NOT_STREAMING = 34,         // StopStream while the stream is not running
    TRIGGER_MODE_REFUSED = 39,
    INIT_NETWORK_FAILED = 40,   // InitDevice could not reach the camera
    INIT_FAILED = 45,           // InitDevice failed; no session remains
};

enum TriggerMode : int32_t {
    TRIGGER_MODE_NORMAL = 0,          // free running
    TRIGGER_MODE_SOFTWARE = 1,        // one frame per SoftTrigger()
    TRIGGER_MODE_HARDWARE = 2,        // one frame per trigger input edge
    TRIGGER_MODE_HARDWARE_DELAY = 3,  // as HARDWARE, after SetDelayHardTriggerTime
};

enum FrequencyMode : int32_t {
    DUAL_FREQUENCY = 0,
    SINGLE_FREQUENCY = 1,
};

enum ExposureMode : int32_t {
    AUTO_EXPOSURE = 0,
    MANUAL_EXPOSURE = 1,
};

struct PointXYZ {
    float x;  // millimetres
    float y;
    float z;
};

struct RGB888Pixel {
    uint8_t r;
    uint8_t g;
    uint8_t b;
};

struct PointXYZRGBI {
    float x;  // millimetres
    float y;
    float z;
    uint8_t r;
    uint8_t g;
    uint8_t b;
    uint8_t i;  // IR intensity of the depth pixel the point came from
};

struct CameraIntrinsicParam {
    float fx;
    float fy;
    float cx;
    float cy;
    float k1;
    float k2;
    float k3;
    float p1;
    float p2;
};

struct FilterParam {
    bool enable;
    float value;   // kernel size for median filters, threshold otherwise
    float value2;  // carried along unchanged by the camera
};

struct NetworkMode {
    std::string ip;       // dotted IPv4 address (ignored when isStatic is false)
    std::string netmask;  // dotted IPv4 mask
    std::string gateway;  // empty: keep the camera's gateway
    bool isStatic = true; // false: the camera takes its address by DHCP
};

// Row-major frame buffer of rows x cols elements. The SDK resizes it when a
// frame of another size arrives, so readers take rows()/cols() from it.
template <typename T>
class DataContainer {
public:
    DataContainer() = default;
    DataContainer(unsigned rows, unsigned cols)
        : rows_(rows), cols_(cols), numberSize_(rows * cols), data_(size_t(rows) * cols) {}

    unsigned rows() const { return rows_; }
    unsigned cols() const { return cols_; }
    T* data() { return data_.data(); }
    const T* data() const { return data_.data(); }
    // Number of valid elements (points with a measurement for point clouds).
    unsigned getNumberSize() const { return numberSize_; }

    // Used by the SDK to fill the buffer. Keeps the storage when it is big
    // enough, so steady-state streaming does not allocate.
    void resize(unsigned rows, unsigned cols) {
        rows_ = rows;
        cols_ = cols;
        numberSize_ = rows * cols;
        if (data_.size() < size_t(rows) * cols) data_.resize(size_t(rows) * cols);
    }
    void setNumberSize(unsigned n) { numberSize_ = n; }

private:
    unsigned rows_ = 0;
    unsigned cols_ = 0;
    unsigned numberSize_ = 0;
    std::vector<T> data_;
};

class D3_SDK_API DeviceManager {
public:
    static DeviceManager& GetInstance();

    DeviceManager(const DeviceManager&) = delete;
    DeviceManager& operator=(const DeviceManager&) = delete;

    // Session and discovery
    ReturnCode SetTimeout(unsigned int ms);
    // cb(serial, message, user) runs on an SDK thread when the link to the
    // open camera is lost; it may call back into the SDK. Registering another
    // callback (or nullptr) returns only once no call of the previous one is
    // still running on another thread, so what it used may then be destroyed.
    // It may also be called from inside the callback.
    void RegisterNetworkMonitoringCallback(std::function<void(std::string, std::string, void*)> cb,
                                           void* user);
    std::vector<std::string> FindDevices();
    // device: "serial:ip" as FindDevices lists it, a serial or an address.
    // With a session open: SUCCESS if it is to that camera with the same tcp
    // flag (the session is kept as it is), the camera reopened with the other
    // transport if the flag differs, ALREADY_CONNECTED for any other camera.
    ReturnCode InitDevice(const std::string& device, bool tcp = true);
    ReturnCode DisconnectFromDevice();
    ReturnCode ReconnectDevice(unsigned int ms);
    ReturnCode GetDeviceSN(std::string& sn);
    ReturnCode GetVersion(std::string& firmware, std::string& device);
    ReturnCode GetImageInfo(int& width, int& height);
    ReturnCode IsRgbDevice(bool& rgb);
    ReturnCode GetTofCameraIntrinsicParam(CameraIntrinsicParam& param);
    ReturnCode StartStream();
    ReturnCode StopStream();
    ReturnCode ConvertDepthToRgbEnable(bool on);
    ReturnCode ConvertRgbToDepthEnable(bool on);

    // Frames. A null pointer means the caller does not want that buffer.
    ReturnCode GetTofData(DataContainer<uint16_t>* depth, DataContainer<PointXYZ>* points,
                          DataContainer<uint8_t>* ir, DataContainer<uint16_t>* amplitude);
    ReturnCode GetRgbTofData(DataContainer<RGB888Pixel>* rgb, DataContainer<uint16_t>* depth,
                             DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                             DataContainer<uint16_t>* amplitude);
    // RGB sampled at every depth pixel (640x480 colour aligned with depth).
    ReturnCode GetRgbToDepthData(DataContainer<RGB888Pixel>& rgb,
                                 DataContainer<PointXYZRGBI>* rgbPoints,
                                 DataContainer<PointXYZ>* points, DataContainer<uint16_t>* depth,
                                 DataContainer<RGB888Pixel>* rgbToDepth,
                                 DataContainer<uint8_t>* ir, DataContainer<uint16_t>* amplitude);
    // Depth projected into the colour camera (depth at the colour resolution).
    ReturnCode GetDepthToRgbData(DataContainer<uint16_t>& depthToRgb,
                                 DataContainer<PointXYZRGBI>* rgbPoints,
                                 DataContainer<PointXYZ>* points, DataContainer<RGB888Pixel>* rgb,
                                 DataContainer<uint16_t>* depth, DataContainer<uint8_t>* ir,
                                 DataContainer<uint16_t>* amplitude);

    // Camera parameters
    ReturnCode SetTofCameraExposureTime(int us);
    ReturnCode GetTofCameraExposureTime(int& us);
    ReturnCode SetTofCameraAutoExposure();
    ReturnCode GetTofCameraExposureMode(ExposureMode& mode);
    ReturnCode SetSingleIntegralMode();
    ReturnCode SetHDR(bool on);
    ReturnCode GetHDR(bool& on);
    ReturnCode SetFrameRate(int fps);
    ReturnCode GetFrameRate(int& fps);
    ReturnCode SetIRGMMGain(int gain);
    ReturnCode GetIRGMMGain(int& gain);
    ReturnCode SetTriggerMode(TriggerMode mode);
    ReturnCode GetTriggerMode(TriggerMode& mode);
    ReturnCode SoftTrigger();
    ReturnCode SetDelayHardTriggerTime(int ms, int us);
    ReturnCode GetDelayHardTriggerTime(int& ms, int& us);
    ReturnCode SetTofFrequencyMode(FrequencyMode mode);
    ReturnCode GetTofFrequencyMode(FrequencyMode& mode);
    ReturnCode SetTimeMedianFilter(bool on);
    ReturnCode SetTimeMedianFilter(FilterParam param);
    ReturnCode GetTimeMedianFilter(FilterParam& param);
    ReturnCode SetFlyPixeFilter(bool on);
    ReturnCode SetFlyPixeFilter(FilterParam param);
    ReturnCode GetFlyPixeFilter(FilterParam& param);
    ReturnCode SetConfidenceFilter(bool on);
    ReturnCode SetConfidenceFilter(FilterParam param);
    ReturnCode GetConfidenceFilter(FilterParam& param);
    ReturnCode SetSpatialFilter(bool on);
    ReturnCode SetSpatialFilter(FilterParam param);
    ReturnCode GetSpatialFilter(FilterParam& param);
    ReturnCode SetRgbCameraExposureMode(ExposureMode mode);
    ReturnCode GetRgbCameraExposureMode(ExposureMode& mode);
    ReturnCode SetRgbCameraExposureTime(int us);
    ReturnCode GetRgbCameraExposureTime(int& us);
    ReturnCode SetRgbCameraGain(int gain);
    ReturnCode GetRgbCameraGain(int& gain);
    ReturnCode SetRgbCameraContrastRatio(int ratio);
    ReturnCode GetRgbCameraContrastRatio(int& ratio);

    // Device-side storage and administration
    ReturnCode SaveConfigureInfo();
    ReturnCode DeleteConfigureInfo();
    ReturnCode RecoveryDefaultConfigure();
    ReturnCode SetNetworkMode(const NetworkMode& mode);

    // Files and texts
    // binary: true writes binary_little_endian PLY, false ASCII PLY. Only
    // points with z > 0 are written.
    static bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZ>& points,
                              bool binary);
    static bool SaveAsPLYFile(const std::string& path, DataContainer<PointXYZRGBI>& points,
                              bool binary);
    std::string GetReturnCodeDescriptor(ReturnCode code);

    struct Impl;

private:
    DeviceManager();
    ~DeviceManager();
    std::unique_ptr<Impl> impl_;
};
