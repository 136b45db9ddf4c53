#include "d3_protocol/Commands.h"

#include <iterator>

namespace d3proto {
namespace {

constexpr CommandInfo kTable[] = {
    {Command::OpenSession, "OpenSession", Args::Session, false, false},
    {Command::CloseSession, "CloseSession", Args::None, true, false},
    {Command::Heartbeat, "Heartbeat", Args::None, true, false},
    {Command::GetDeviceInfo, "GetDeviceInfo", Args::None, false, false},
    {Command::GetImageInfo, "GetImageInfo", Args::None, false, false},
    {Command::GetTofIntrinsics, "GetTofIntrinsics", Args::None, false, false},
    {Command::GetRgbIntrinsics, "GetRgbIntrinsics", Args::None, false, true},
    {Command::GetExtrinsics, "GetExtrinsics", Args::None, false, true},
    {Command::StartStream, "StartStream", Args::None, true, false},
    {Command::StopStream, "StopStream", Args::None, true, false},
    {Command::SoftTrigger, "SoftTrigger", Args::None, true, false},
    {Command::GetTofExposureTime, "GetTofExposureTime", Args::None, true, false},
    {Command::SetTofExposureTime, "SetTofExposureTime", Args::Int, true, false},
    {Command::SetTofAutoExposure, "SetTofAutoExposure", Args::None, true, false},
    {Command::GetTofExposureMode, "GetTofExposureMode", Args::None, true, false},
    {Command::SetSingleIntegralMode, "SetSingleIntegralMode", Args::Bool, true, false},
    {Command::GetSingleIntegralMode, "GetSingleIntegralMode", Args::None, true, false},
    {Command::GetHdr, "GetHdr", Args::None, true, false},
    {Command::SetHdr, "SetHdr", Args::Bool, true, false},
    {Command::GetFrameRate, "GetFrameRate", Args::None, true, false},
    {Command::SetFrameRate, "SetFrameRate", Args::Int, true, false},
    {Command::GetIrGamma, "GetIrGamma", Args::None, true, false},
    {Command::SetIrGamma, "SetIrGamma", Args::Int, true, false},
    {Command::GetTriggerMode, "GetTriggerMode", Args::None, true, false},
    {Command::SetTriggerMode, "SetTriggerMode", Args::Int, true, false},
    {Command::GetHardTriggerDelay, "GetHardTriggerDelay", Args::None, true, false},
    {Command::SetHardTriggerDelay, "SetHardTriggerDelay", Args::Delay, true, false},
    {Command::GetFrequencyMode, "GetFrequencyMode", Args::None, true, false},
    {Command::SetFrequencyMode, "SetFrequencyMode", Args::Int, true, false},
    {Command::GetTimeMedianFilter, "GetTimeMedianFilter", Args::None, true, false},
    {Command::SetTimeMedianFilter, "SetTimeMedianFilter", Args::Filter, true, false},
    {Command::GetFlyPixelFilter, "GetFlyPixelFilter", Args::None, true, false},
    {Command::SetFlyPixelFilter, "SetFlyPixelFilter", Args::Filter, true, false},
    {Command::GetConfidenceFilter, "GetConfidenceFilter", Args::None, true, false},
    {Command::SetConfidenceFilter, "SetConfidenceFilter", Args::Filter, true, false},
    {Command::GetSpatialFilter, "GetSpatialFilter", Args::None, true, false},
    {Command::SetSpatialFilter, "SetSpatialFilter", Args::Filter, true, false},
    {Command::GetRgbExposureMode, "GetRgbExposureMode", Args::None, true, true},
    {Command::SetRgbExposureMode, "SetRgbExposureMode", Args::Int, true, true},
    {Command::GetRgbExposureTime, "GetRgbExposureTime", Args::None, true, true},
    {Command::SetRgbExposureTime, "SetRgbExposureTime", Args::Int, true, true},
    {Command::GetRgbGain, "GetRgbGain", Args::None, true, true},
    {Command::SetRgbGain, "SetRgbGain", Args::Int, true, true},
    {Command::GetRgbContrast, "GetRgbContrast", Args::None, true, true},
    {Command::SetRgbContrast, "SetRgbContrast", Args::Int, true, true},
    {Command::SaveConfig, "SaveConfig", Args::None, true, false},
    {Command::DeleteConfig, "DeleteConfig", Args::None, true, false},
    {Command::FactoryDefaults, "FactoryDefaults", Args::None, true, false},
    {Command::SetNetworkMode, "SetNetworkMode", Args::Network, true, false},
    {Command::FirmwareBegin, "FirmwareBegin", Args::FirmwareBegin, false, false},
    {Command::FirmwareChunk, "FirmwareChunk", Args::Binary, false, false},
    {Command::FirmwareCommit, "FirmwareCommit", Args::FirmwareCommit, false, false},
    {Command::AttachStream, "AttachStream", Args::Token, false, false},
    {Command::FrameEvent, "FrameEvent", Args::None, false, false},
    {Command::CalibrationEvent, "CalibrationEvent", Args::None, false, false},
    {Command::Discover, "Discover", Args::None, false, false},
};

}  // namespace

const CommandInfo* findCommand(uint16_t id) {
    for (const CommandInfo& c : kTable)
        if (uint16_t(c.id) == id) return &c;
    return nullptr;
}

const CommandInfo* commandTable(int& count) {
    count = int(std::size(kTable));
    return kTable;
}

}  // namespace d3proto
