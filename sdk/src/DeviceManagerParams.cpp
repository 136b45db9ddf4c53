// Camera parameters and device-side administration: each is one control
// request with the JSON shape the protocol gives that command.
#include "DeviceManagerImpl.h"

using d3proto::Command;
using d3proto::Json;
using d3sdk::Session;

namespace {

ReturnCode call(DeviceManager::Impl& impl, Command cmd, const Json& args = Json::object(), Json* reply = nullptr) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl.require(s);
    return rc == SUCCESS ? s->request(cmd, args, reply) : rc;
}

ReturnCode setInt(DeviceManager::Impl& impl, Command cmd, int value) { return call(impl, cmd, Json{{"value", value}}); }

ReturnCode getInt(DeviceManager::Impl& impl, Command cmd, int& value) {
    Json reply;
    const ReturnCode rc = call(impl, cmd, Json::object(), &reply);
    if (rc != SUCCESS) return rc;
    return d3proto::getInt(reply, "value", value) ? SUCCESS : PROTOCOL_ERROR;
}

ReturnCode getBool(DeviceManager::Impl& impl, Command cmd, bool& value) {
    Json reply;
    const ReturnCode rc = call(impl, cmd, Json::object(), &reply);
    if (rc != SUCCESS) return rc;
    return d3proto::getBool(reply, "value", value) ? SUCCESS : PROTOCOL_ERROR;
}

ReturnCode setFilterOn(DeviceManager::Impl& impl, Command cmd, bool on) {
    // Only the switch: the camera keeps the filter's strength.
    return call(impl, cmd, Json{{"enable", on}});
}

ReturnCode setFilter(DeviceManager::Impl& impl, Command cmd, const FilterParam& p) {
    d3proto::FilterMsg m;
    m.enable = p.enable;
    m.value = p.value;
    m.value2 = p.value2;
    return call(impl, cmd, d3proto::toJson(m));
}

ReturnCode getFilter(DeviceManager::Impl& impl, Command cmd, FilterParam& p) {
    Json reply;
    const ReturnCode rc = call(impl, cmd, Json::object(), &reply);
    if (rc != SUCCESS) return rc;
    d3proto::FilterMsg m;
    if (!d3proto::fromJson(reply, m)) return PROTOCOL_ERROR;
    p.enable = m.enable;
    p.value = m.value;
    p.value2 = m.value2;
    return SUCCESS;
}

template <typename Enum>
ReturnCode getEnum(DeviceManager::Impl& impl, Command cmd, Enum& out) {
    int v = 0;
    const ReturnCode rc = getInt(impl, cmd, v);
    if (rc == SUCCESS) out = Enum(v);
    return rc;
}

}  // namespace

ReturnCode DeviceManager::SetTofCameraExposureTime(int us) { return setInt(*impl_, Command::SetTofExposureTime, us); }
ReturnCode DeviceManager::GetTofCameraExposureTime(int& us) { return getInt(*impl_, Command::GetTofExposureTime, us); }
ReturnCode DeviceManager::SetTofCameraAutoExposure() { return call(*impl_, Command::SetTofAutoExposure); }
ReturnCode DeviceManager::GetTofCameraExposureMode(ExposureMode& mode) {
    return getEnum(*impl_, Command::GetTofExposureMode, mode);
}
ReturnCode DeviceManager::SetSingleIntegralMode() {
    return call(*impl_, Command::SetSingleIntegralMode, Json{{"value", true}});
}
ReturnCode DeviceManager::SetHDR(bool on) { return call(*impl_, Command::SetHdr, Json{{"value", on}}); }
ReturnCode DeviceManager::GetHDR(bool& on) { return getBool(*impl_, Command::GetHdr, on); }
ReturnCode DeviceManager::SetFrameRate(int fps) { return setInt(*impl_, Command::SetFrameRate, fps); }
ReturnCode DeviceManager::GetFrameRate(int& fps) { return getInt(*impl_, Command::GetFrameRate, fps); }
ReturnCode DeviceManager::SetIRGMMGain(int gain) { return setInt(*impl_, Command::SetIrGamma, gain); }
ReturnCode DeviceManager::GetIRGMMGain(int& gain) { return getInt(*impl_, Command::GetIrGamma, gain); }
ReturnCode DeviceManager::SetTriggerMode(TriggerMode mode) {
    return setInt(*impl_, Command::SetTriggerMode, int(mode));
}
ReturnCode DeviceManager::GetTriggerMode(TriggerMode& mode) { return getEnum(*impl_, Command::GetTriggerMode, mode); }
ReturnCode DeviceManager::SoftTrigger() { return call(*impl_, Command::SoftTrigger); }
ReturnCode DeviceManager::SetDelayHardTriggerTime(int ms, int us) {
    return call(*impl_, Command::SetHardTriggerDelay, Json{{"ms", ms}, {"us", us}});
}
ReturnCode DeviceManager::GetDelayHardTriggerTime(int& ms, int& us) {
    Json reply;
    const ReturnCode rc = call(*impl_, Command::GetHardTriggerDelay, Json::object(), &reply);
    if (rc != SUCCESS) return rc;
    d3proto::DelayMsg d;
    if (!d3proto::fromJson(reply, d)) return PROTOCOL_ERROR;
    ms = d.ms;
    us = d.us;
    return SUCCESS;
}
ReturnCode DeviceManager::SetTofFrequencyMode(FrequencyMode mode) {
    return setInt(*impl_, Command::SetFrequencyMode, int(mode));
}
ReturnCode DeviceManager::GetTofFrequencyMode(FrequencyMode& mode) {
    return getEnum(*impl_, Command::GetFrequencyMode, mode);
}

ReturnCode DeviceManager::SetTimeMedianFilter(bool on) { return setFilterOn(*impl_, Command::SetTimeMedianFilter, on); }
ReturnCode DeviceManager::SetTimeMedianFilter(FilterParam param) {
    return setFilter(*impl_, Command::SetTimeMedianFilter, param);
}
ReturnCode DeviceManager::GetTimeMedianFilter(FilterParam& param) {
    return getFilter(*impl_, Command::GetTimeMedianFilter, param);
}
ReturnCode DeviceManager::SetFlyPixeFilter(bool on) { return setFilterOn(*impl_, Command::SetFlyPixelFilter, on); }
ReturnCode DeviceManager::SetFlyPixeFilter(FilterParam param) {
    return setFilter(*impl_, Command::SetFlyPixelFilter, param);
}
ReturnCode DeviceManager::GetFlyPixeFilter(FilterParam& param) {
    return getFilter(*impl_, Command::GetFlyPixelFilter, param);
}
ReturnCode DeviceManager::SetConfidenceFilter(bool on) { return setFilterOn(*impl_, Command::SetConfidenceFilter, on); }
ReturnCode DeviceManager::SetConfidenceFilter(FilterParam param) {
    return setFilter(*impl_, Command::SetConfidenceFilter, param);
}
ReturnCode DeviceManager::GetConfidenceFilter(FilterParam& param) {
    return getFilter(*impl_, Command::GetConfidenceFilter, param);
}
ReturnCode DeviceManager::SetSpatialFilter(bool on) { return setFilterOn(*impl_, Command::SetSpatialFilter, on); }
ReturnCode DeviceManager::SetSpatialFilter(FilterParam param) {
    return setFilter(*impl_, Command::SetSpatialFilter, param);
}
ReturnCode DeviceManager::GetSpatialFilter(FilterParam& param) {
    return getFilter(*impl_, Command::GetSpatialFilter, param);
}

ReturnCode DeviceManager::SetRgbCameraExposureMode(ExposureMode mode) {
    return setInt(*impl_, Command::SetRgbExposureMode, int(mode));
}
ReturnCode DeviceManager::GetRgbCameraExposureMode(ExposureMode& mode) {
    return getEnum(*impl_, Command::GetRgbExposureMode, mode);
}
ReturnCode DeviceManager::SetRgbCameraExposureTime(int us) { return setInt(*impl_, Command::SetRgbExposureTime, us); }
ReturnCode DeviceManager::GetRgbCameraExposureTime(int& us) { return getInt(*impl_, Command::GetRgbExposureTime, us); }
ReturnCode DeviceManager::SetRgbCameraGain(int gain) { return setInt(*impl_, Command::SetRgbGain, gain); }
ReturnCode DeviceManager::GetRgbCameraGain(int& gain) { return getInt(*impl_, Command::GetRgbGain, gain); }
ReturnCode DeviceManager::SetRgbCameraContrastRatio(int ratio) {
    return setInt(*impl_, Command::SetRgbContrast, ratio);
}
ReturnCode DeviceManager::GetRgbCameraContrastRatio(int& ratio) {
    return getInt(*impl_, Command::GetRgbContrast, ratio);
}

// The camera reboots after the last three; the link drops and the monitoring
// callback reports it, as after any other loss.
ReturnCode DeviceManager::SaveConfigureInfo() { return call(*impl_, Command::SaveConfig); }
ReturnCode DeviceManager::DeleteConfigureInfo() { return call(*impl_, Command::DeleteConfig); }
ReturnCode DeviceManager::RecoveryDefaultConfigure() { return call(*impl_, Command::FactoryDefaults); }
ReturnCode DeviceManager::SetNetworkMode(const NetworkMode& mode) {
    d3proto::NetworkMsg m;
    m.ip = mode.ip;
    m.netmask = mode.netmask;
    m.gateway = mode.gateway;
    m.dhcp = !mode.isStatic;
    return call(*impl_, Command::SetNetworkMode, d3proto::toJson(m));
}
