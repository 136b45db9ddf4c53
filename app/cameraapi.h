// The camera operations the main window needs, behind one small interface so
// the window's close and start-up rules can be exercised without a camera.
// Production code uses device(), which forwards to the SDK singleton.
#pragma once

#include <d3_sdk/DeviceManager.h>

#include <functional>
#include <string>

class CameraApi {
public:
    using LinkCallback = std::function<void(std::string, std::string, void*)>;

    virtual ~CameraApi() = default;

    virtual ReturnCode SetTimeout(unsigned int ms) = 0;
    virtual void RegisterNetworkMonitoringCallback(LinkCallback cb, void* user) = 0;
    virtual ReturnCode StopStream() = 0;
    virtual ReturnCode DisconnectFromDevice() = 0;
    virtual std::string GetReturnCodeDescriptor(ReturnCode code) = 0;

    static CameraApi& device();
};
