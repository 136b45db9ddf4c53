#include "d3_sdk/Extensions.h"

#include "DeviceManagerImpl.h"

namespace d3sdk {

ReturnCode GetStreamStats(StreamStats& out) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = DeviceManager::Impl::of(DeviceManager::GetInstance()).require(s);
    if (rc == SUCCESS) out = s->stream().stats();
    return rc;
}

void ResetStreamStats() {
    if (auto s = DeviceManager::Impl::of(DeviceManager::GetInstance()).current()) s->stream().resetStats();
}

bool GetLastFrameTiming(FrameTiming& out) { return Session::lastDelivered(out); }

ReturnCode GetDeviceDetails(DeviceDetails& out) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = DeviceManager::Impl::of(DeviceManager::GetInstance()).require(s);
    if (rc != SUCCESS) return rc;
    const auto& i = s->info();
    out =
        DeviceDetails{i.serial, i.model, i.firmwareVersion, i.deviceVersion, i.mac, i.ip, i.netmask, i.gateway, i.dhcp};
    return SUCCESS;
}

}  // namespace d3sdk
