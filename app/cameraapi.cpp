#include "cameraapi.h"

namespace {

class DeviceManagerApi final : public CameraApi {
public:
    ReturnCode SetTimeout(unsigned int ms) override { return dm().SetTimeout(ms); }
    void RegisterNetworkMonitoringCallback(LinkCallback cb, void* user) override {
        dm().RegisterNetworkMonitoringCallback(std::move(cb), user);
    }
    ReturnCode StopStream() override { return dm().StopStream(); }
    ReturnCode DisconnectFromDevice() override { return dm().DisconnectFromDevice(); }
    std::string GetReturnCodeDescriptor(ReturnCode code) override { return dm().GetReturnCodeDescriptor(code); }

private:
    static DeviceManager& dm() { return DeviceManager::GetInstance(); }
};

}  // namespace

CameraApi& CameraApi::device() {
    static DeviceManagerApi api;
    return api;
}
