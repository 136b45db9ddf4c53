// The SDK's enums and plain records as Python types.
#include <pybind11/operators.h>

#include <sstream>

#include "d3_sdk/Extensions.h"
#include "d3module.h"

namespace d3py {

namespace {

std::string filterRepr(const FilterParam& f) {
    std::ostringstream s;
    s << "FilterParam(enable=" << (f.enable ? "True" : "False") << ", value=" << f.value << ", value2=" << f.value2
      << ")";
    return s.str();
}

void bindEnums(py::module_& m) {
    // Arithmetic, so the int in d3.Error.code compares equal to its member.
    py::enum_<ReturnCode>(m, "ReturnCode", py::arithmetic(),
                          "Return codes of the SDK; SUCCESS (2) is the only success.")
        .value("SUCCESS", SUCCESS)
        .value("FAILED", FAILED)
        .value("INVALID_PARAMETER", INVALID_PARAMETER)
        .value("TIMEOUT", TIMEOUT)
        .value("DEVICE_BUSY", DEVICE_BUSY)
        .value("NOT_CONNECTED", NOT_CONNECTED)
        .value("NOT_SUPPORTED", NOT_SUPPORTED)
        .value("FILE_ERROR", FILE_ERROR)
        .value("FIRMWARE_REJECTED", FIRMWARE_REJECTED)
        .value("ACCESS_DENIED", ACCESS_DENIED)
        .value("PROTOCOL_ERROR", PROTOCOL_ERROR)
        .value("DEVICE_NOT_FOUND", DEVICE_NOT_FOUND)
        .value("ALREADY_CONNECTED", ALREADY_CONNECTED)
        .value("REFUSED_WHILE_STREAMING", REFUSED_WHILE_STREAMING)
        .value("NETWORK_ERROR", NETWORK_ERROR)
        .value("NOT_STREAMING", NOT_STREAMING)
        .value("TRIGGER_MODE_REFUSED", TRIGGER_MODE_REFUSED)
        .value("INIT_NETWORK_FAILED", INIT_NETWORK_FAILED)
        .value("INIT_FAILED", INIT_FAILED)
        .value("FIRMWARE_WRITE_FAILED", d3sdk::FIRMWARE_WRITE_FAILED)
        .value("FLASH_NOT_ERASED", d3sdk::FLASH_NOT_ERASED)
        .value("REFUSED_BY_RECORDING", d3sdk::REFUSED_BY_RECORDING);
    py::enum_<TriggerMode>(m, "TriggerMode", py::arithmetic())
        .value("NORMAL", TRIGGER_MODE_NORMAL, "free running")
        .value("SOFTWARE", TRIGGER_MODE_SOFTWARE, "one frame per soft_trigger()")
        .value("HARDWARE", TRIGGER_MODE_HARDWARE, "one frame per trigger input edge")
        .value("HARDWARE_DELAY", TRIGGER_MODE_HARDWARE_DELAY, "as HARDWARE, after set_delay_hard_trigger_time");
    py::enum_<FrequencyMode>(m, "FrequencyMode", py::arithmetic())
        .value("DUAL", DUAL_FREQUENCY)
        .value("SINGLE", SINGLE_FREQUENCY);
    py::enum_<ExposureMode>(m, "ExposureMode", py::arithmetic())
        .value("AUTO", AUTO_EXPOSURE)
        .value("MANUAL", MANUAL_EXPOSURE);
}

}  // namespace

void bindTypes(py::module_& m) {
    bindEnums(m);

    py::class_<FilterParam>(m, "FilterParam", "Settings of one depth filter.")
        .def(py::init([](bool enable, float value, float value2) {
                 return FilterParam{enable, value, value2};
             }),
             py::arg("enable") = true, py::arg("value") = 0.0f, py::arg("value2") = 100.0f)
        .def_readwrite("enable", &FilterParam::enable)
        .def_readwrite("value", &FilterParam::value, "kernel size for median filters, threshold otherwise")
        .def_readwrite("value2", &FilterParam::value2, "carried along unchanged by the camera")
        .def("__eq__",
             [](const FilterParam& a, const FilterParam& b) {
                 return a.enable == b.enable && a.value == b.value && a.value2 == b.value2;
             })
        .def("__repr__", &filterRepr);

    py::class_<NetworkMode>(m, "NetworkMode", "Address settings for Device.set_network_mode.")
        .def(py::init([](std::string ip, std::string netmask, std::string gateway, bool isStatic) {
                 return NetworkMode{std::move(ip), std::move(netmask), std::move(gateway), isStatic};
             }),
             py::arg("ip") = "", py::arg("netmask") = "255.255.255.0", py::arg("gateway") = "",
             py::arg("is_static") = true)
        .def_readwrite("ip", &NetworkMode::ip, "dotted IPv4 address (ignored when is_static is False)")
        .def_readwrite("netmask", &NetworkMode::netmask)
        .def_readwrite("gateway", &NetworkMode::gateway, "empty: keep the camera's gateway")
        .def_readwrite("is_static", &NetworkMode::isStatic, "False: the camera takes its address by DHCP");

    py::class_<CameraIntrinsicParam>(m, "CameraIntrinsicParam",
                                     "Pinhole model of the ToF camera: focal lengths and centre in pixels, distortion.")
        .def_readonly("fx", &CameraIntrinsicParam::fx)
        .def_readonly("fy", &CameraIntrinsicParam::fy)
        .def_readonly("cx", &CameraIntrinsicParam::cx)
        .def_readonly("cy", &CameraIntrinsicParam::cy)
        .def_readonly("k1", &CameraIntrinsicParam::k1)
        .def_readonly("k2", &CameraIntrinsicParam::k2)
        .def_readonly("k3", &CameraIntrinsicParam::k3)
        .def_readonly("p1", &CameraIntrinsicParam::p1)
        .def_readonly("p2", &CameraIntrinsicParam::p2)
        .def("__repr__", [](const CameraIntrinsicParam& k) {
            std::ostringstream s;
            s << "CameraIntrinsicParam(fx=" << k.fx << ", fy=" << k.fy << ", cx=" << k.cx << ", cy=" << k.cy << ")";
            return s.str();
        });
}

}  // namespace d3py
