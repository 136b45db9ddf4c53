// Discovery, opening and closing the session, and the commands around it.
#include <pybind11/stl.h>

#include <memory>

#include "d3module.h"

namespace d3py {

namespace {

void setLinkLostCallback(py::object fn) {
    std::function<void(std::string, std::string, void*)> cb;
    if (!fn.is_none()) {
        if (!PyCallable_Check(fn.ptr())) throw py::type_error("the callback must be callable or None");
        // The SDK may drop its copy of the function on any thread (when another
        // callback replaces it), so releasing the Python object takes the GIL.
        std::shared_ptr<py::object> target(new py::object(std::move(fn)), [](py::object* o) {
            py::gil_scoped_acquire gil;
            delete o;
        });
        cb = [target](std::string serial, std::string message, void*) {
            py::gil_scoped_acquire gil;
            try {
                (*target)(serial, message);
            } catch (py::error_already_set& e) {
                // Nobody up this SDK thread could handle it; report it the way
                // Python reports errors in its own background callbacks.
                e.discard_as_unraisable("d3 link-lost callback");
            }
        };
    }
    // Registering waits for a running call of the previous callback, which
    // needs the GIL to finish.
    py::gil_scoped_release nogil;
    sdk().RegisterNetworkMonitoringCallback(std::move(cb), nullptr);
}

// A callback left registered could run on an SDK thread while the interpreter
// shuts down; drop it before that.
void unregisterAtExit() {
    py::module_::import("atexit").attr("register")(py::cpp_function([] {
        py::gil_scoped_release nogil;
        sdk().RegisterNetworkMonitoringCallback(nullptr, nullptr);
    }));
}

template <typename Method>
void command(py::class_<Device>& device, const char* name, Method method, const char* doc) {
    device.def(
        name, [method](Device&) { call([&] { return (sdk().*method)(); }); }, doc);
}

}  // namespace

void bindSession(py::module_& m, py::class_<Device>& device) {
    m.def(
        "find_devices",
        [] {
            py::gil_scoped_release nogil;
            return sdk().FindDevices();
        },
        "Search the network for cameras (about 0.3 s); one \"serial:ip\" string per camera.\n"
        "D3_DISCOVERY_ADDRESSES and D3_DISCOVERY_PORT in the environment change where it searches.");
    m.def(
        "set_timeout", [](unsigned ms) { call([&] { return sdk().SetTimeout(ms); }); }, py::arg("ms"),
        "Milliseconds any call waits for the camera or for a frame (SDK default 1000).");
    m.def(
        "open",
        [](const std::string& name, bool tcp) {
            call([&] { return sdk().InitDevice(name, tcp); });
            return Device{};
        },
        py::arg("device"), py::arg("tcp") = true,
        "Open a camera (InitDevice): a \"serial:ip\" string from find_devices(), a serial or an address.\n"
        "tcp=False streams over datagrams. The SDK holds one session per process: opening another\n"
        "camera while one is open raises ALREADY_CONNECTED. Returns a Device; use it in a with block\n"
        "or call close(). Dropping the Device does not close the session.");
    m.def("set_link_lost_callback", &setLinkLostCallback, py::arg("callback"),
          "callback(serial, message) runs on an SDK thread when the link to the open camera is lost\n"
          "(RegisterNetworkMonitoringCallback). It may call the SDK, e.g. Device.reconnect(). None removes it;\n"
          "once this returns, the previous callback is no longer running.");
    unregisterAtExit();

    device.def(
        "close", [](Device&) { call([] { return sdk().DisconnectFromDevice(); }); },
        "Close the session (DisconnectFromDevice). Frames already returned stay valid.");
    device.def("__enter__", [](Device& d) -> Device& { return d; });
    device.def("__exit__", [](Device&, py::args) {
        // Leaving the block closes whatever is still open; a session already
        // closed or lost is not an error then.
        py::gil_scoped_release nogil;
        sdk().DisconnectFromDevice();
    });
    device.def(
        "reconnect", [](Device&, unsigned ms) { call([&] { return sdk().ReconnectDevice(ms); }); },
        py::arg("ms") = 1000u, "Reopen the last camera without a search, within ms (ReconnectDevice).");
    device.def(
        "get_device_sn",
        [](Device&) {
            std::string sn;
            call([&] { return sdk().GetDeviceSN(sn); });
            return sn;
        },
        "Serial number; its ninth character is the model digit.");
    device.def(
        "get_version",
        [](Device&) {
            std::string firmware, hardware;
            call([&] { return sdk().GetVersion(firmware, hardware); });
            return py::make_tuple(firmware, hardware);
        },
        "(firmware version, device version)");
    device.def(
        "get_image_info",
        [](Device&) {
            int width = 0, height = 0;
            call([&] { return sdk().GetImageInfo(width, height); });
            return py::make_tuple(width, height);
        },
        "(width, height) of the colour image");
    device.def(
        "is_rgb_device",
        [](Device&) {
            bool rgb = false;
            call([&] { return sdk().IsRgbDevice(rgb); });
            return rgb;
        },
        "True for models with a colour camera.");
    device.def(
        "get_tof_camera_intrinsic_param",
        [](Device&) {
            CameraIntrinsicParam k{};
            call([&] { return sdk().GetTofCameraIntrinsicParam(k); });
            return k;
        },
        "Intrinsics of the depth camera.");
    command(device, "start_stream", &DeviceManager::StartStream, "Start frame delivery.");
    command(device, "stop_stream", &DeviceManager::StopStream,
            "Stop frame delivery; raises NOT_STREAMING when it was not running.");
    device.def(
        "convert_depth_to_rgb_enable",
        [](Device&, bool on) { call([&] { return sdk().ConvertDepthToRgbEnable(on); }); }, py::arg("on"),
        "Allow get_depth_to_rgb_data.");
    device.def(
        "convert_rgb_to_depth_enable",
        [](Device&, bool on) { call([&] { return sdk().ConvertRgbToDepthEnable(on); }); }, py::arg("on"),
        "Allow get_rgb_to_depth_data.");

    command(device, "save_configure_info", &DeviceManager::SaveConfigureInfo,
            "Store the current settings in the camera.");
    command(device, "delete_configure_info", &DeviceManager::DeleteConfigureInfo,
            "Delete the settings stored in the camera; it reboots (the session is lost).");
    command(device, "recovery_default_configure", &DeviceManager::RecoveryDefaultConfigure,
            "Restore factory settings, keeping the address; the camera reboots.");
    device.def(
        "set_network_mode", [](Device&, const NetworkMode& mode) { call([&] { return sdk().SetNetworkMode(mode); }); },
        py::arg("mode"), "Give the camera a new address or DHCP (a d3.NetworkMode); it reboots onto it.");
}

}  // namespace d3py
