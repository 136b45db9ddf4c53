// Every camera setting as get_<name>() / set_<name>(value), named after the
// DeviceManager method in snake case.
#include <string>

#include "d3module.h"

namespace d3py {

namespace {

template <typename Value>
void value(py::class_<Device>& device, const std::string& name, ReturnCode (DeviceManager::*set)(Value),
           ReturnCode (DeviceManager::*get)(Value&), const std::string& what) {
    device.def(("set_" + name).c_str(), [set](Device&, Value v) { call([&] { return (sdk().*set)(v); }); },
               py::arg("value"), ("Set the " + what + ".").c_str());
    device.def(("get_" + name).c_str(),
               [get](Device&) {
                   Value v{};
                   call([&] { return (sdk().*get)(v); });
                   return v;
               },
               ("The camera's " + what + ".").c_str());
}

// The filter setters take either a bool (on/off, keeping the strength) or a
// FilterParam, as the SDK's two overloads do.
void filter(py::class_<Device>& device, const std::string& name, ReturnCode (DeviceManager::*setOn)(bool),
            ReturnCode (DeviceManager::*setParam)(FilterParam), ReturnCode (DeviceManager::*get)(FilterParam&),
            const std::string& what) {
    device.def(("set_" + name).c_str(), [setOn](Device&, bool on) { call([&] { return (sdk().*setOn)(on); }); },
               py::arg("on"), ("Switch the " + what + " on or off.").c_str());
    device.def(("set_" + name).c_str(),
               [setParam](Device&, FilterParam p) { call([&] { return (sdk().*setParam)(p); }); }, py::arg("param"),
               ("Set the " + what + " from a d3.FilterParam.").c_str());
    device.def(("get_" + name).c_str(),
               [get](Device&) {
                   FilterParam p{};
                   call([&] { return (sdk().*get)(p); });
                   return p;
               },
               ("The " + what + " as a d3.FilterParam.").c_str());
}

template <typename Method>
void action(py::class_<Device>& device, const char* name, Method method, const char* doc) {
    device.def(
        name, [method](Device&) { call([&] { return (sdk().*method)(); }); }, doc);
}

}  // namespace

void bindParameters(py::class_<Device>& device) {
    using DM = DeviceManager;
    value<int>(device, "tof_camera_exposure_time", &DM::SetTofCameraExposureTime, &DM::GetTofCameraExposureTime,
               "ToF exposure time in microseconds (manual exposure)");
    action(device, "set_tof_camera_auto_exposure", &DM::SetTofCameraAutoExposure,
           "Switch the ToF camera to automatic exposure.");
    device.def(
        "get_tof_camera_exposure_mode",
        [](Device&) {
            ExposureMode mode{};
            call([&] { return sdk().GetTofCameraExposureMode(mode); });
            return mode;
        },
        "d3.ExposureMode of the ToF camera.");
    action(device, "set_single_integral_mode", &DM::SetSingleIntegralMode,
           "Single-integration (fast) mode; stop the stream around it.");
    value<bool>(device, "hdr", &DM::SetHDR, &DM::GetHDR, "high-dynamic-range mode");
    value<int>(device, "frame_rate", &DM::SetFrameRate, &DM::GetFrameRate, "frame rate, frames per second");
    value<int>(device, "ir_gmm_gain", &DM::SetIRGMMGain, &DM::GetIRGMMGain, "IR gamma gain, 0 to 255");
    value<TriggerMode>(device, "trigger_mode", &DM::SetTriggerMode, &DM::GetTriggerMode, "d3.TriggerMode");
    action(device, "soft_trigger", &DM::SoftTrigger, "Ask for one frame in software trigger mode.");
    device.def(
        "set_delay_hard_trigger_time",
        [](Device&, int ms, int us) { call([&] { return sdk().SetDelayHardTriggerTime(ms, us); }); }, py::arg("ms"),
        py::arg("us"), "Delay after a hardware trigger edge.");
    device.def(
        "get_delay_hard_trigger_time",
        [](Device&) {
            int ms = 0, us = 0;
            call([&] { return sdk().GetDelayHardTriggerTime(ms, us); });
            return py::make_tuple(ms, us);
        },
        "(ms, us) delay after a hardware trigger edge.");
    value<FrequencyMode>(device, "tof_frequency_mode", &DM::SetTofFrequencyMode, &DM::GetTofFrequencyMode,
                         "d3.FrequencyMode");
    filter(device, "time_median_filter", &DM::SetTimeMedianFilter, &DM::SetTimeMedianFilter, &DM::GetTimeMedianFilter,
           "time-domain median filter");
    filter(device, "fly_pixe_filter", &DM::SetFlyPixeFilter, &DM::SetFlyPixeFilter, &DM::GetFlyPixeFilter,
           "flying-pixel filter");
    filter(device, "confidence_filter", &DM::SetConfidenceFilter, &DM::SetConfidenceFilter, &DM::GetConfidenceFilter,
           "confidence (amplitude) filter");
    filter(device, "spatial_filter", &DM::SetSpatialFilter, &DM::SetSpatialFilter, &DM::GetSpatialFilter,
           "spatial median filter");
    value<ExposureMode>(device, "rgb_camera_exposure_mode", &DM::SetRgbCameraExposureMode,
                        &DM::GetRgbCameraExposureMode, "colour camera's d3.ExposureMode");
    value<int>(device, "rgb_camera_exposure_time", &DM::SetRgbCameraExposureTime, &DM::GetRgbCameraExposureTime,
               "colour exposure time in microseconds");
    value<int>(device, "rgb_camera_gain", &DM::SetRgbCameraGain, &DM::GetRgbCameraGain, "colour gain");
    value<int>(device, "rgb_camera_contrast_ratio", &DM::SetRgbCameraContrastRatio, &DM::GetRgbCameraContrastRatio,
               "colour contrast");
}

}  // namespace d3py
