// This SDK's additions beyond DeviceManager (d3_sdk/Extensions.h). Another
// one is bound here in the same way: a method on Device that calls it through
// call() and returns what it filled in.
#include "d3_sdk/Extensions.h"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <sstream>

#include "d3module.h"

namespace d3py {

namespace {

void bindFirmware(py::module_& m) {
    using d3sdk::FirmwareStep;
    py::enum_<FirmwareStep>(m, "FirmwareStep")
        .value("CHECKING", FirmwareStep::Checking)
        .value("LOCATING", FirmwareStep::Locating)
        .value("CONNECTING", FirmwareStep::Connecting)
        .value("BEGINNING", FirmwareStep::Beginning)
        .value("SENDING", FirmwareStep::Sending)
        .value("VERIFYING", FirmwareStep::Verifying)
        .value("REBOOTING", FirmwareStep::Rebooting)
        .value("DONE", FirmwareStep::Done);

    using d3sdk::FirmwareProgress;
    py::class_<FirmwareProgress>(m, "FirmwareProgress", "Where an update is, as its progress callback sees it.")
        .def_readonly("step", &FirmwareProgress::step)
        .def_readonly("bytes_sent", &FirmwareProgress::bytesSent, "acknowledged by the camera")
        .def_readonly("bytes_total", &FirmwareProgress::bytesTotal)
        .def_readonly("text", &FirmwareProgress::text);

    using d3sdk::FirmwareUpdateResult;
    py::class_<FirmwareUpdateResult>(m, "FirmwareUpdateResult", "What a successful update did.")
        .def_readonly("serial", &FirmwareUpdateResult::serial)
        .def_readonly("ip", &FirmwareUpdateResult::ip)
        .def_readonly("image_version", &FirmwareUpdateResult::imageVersion)
        .def_readonly("version_before", &FirmwareUpdateResult::versionBefore)
        .def_readonly("version_after", &FirmwareUpdateResult::versionAfter, "reported once back from its reboot")
        .def_readonly("written", &FirmwareUpdateResult::written)
        .def_readonly("rebooted", &FirmwareUpdateResult::rebooted);

    m.def(
        "update_firmware",
        [](const std::string& device, const py::bytes& image, const std::string& accessWord, bool erase, bool write,
           bool reboot, std::function<void(const FirmwareProgress&)> progress) {
            const std::string bytes = image;
            const std::vector<uint8_t> data(bytes.begin(), bytes.end());
            d3sdk::FirmwareUpdateOptions options;
            options.accessWord = accessWord;
            options.erase = erase;
            options.write = write;
            options.reboot = reboot;
            // The callback runs on this thread while the GIL is released; an
            // exception it raises ends nothing here and is raised afterwards.
            py::object pending;
            if (progress) {
                options.progress = [&progress, &pending](const FirmwareProgress& p) {
                    py::gil_scoped_acquire gil;
                    if (pending) return;
                    try {
                        progress(p);
                    } catch (py::error_already_set& e) {
                        pending = py::reinterpret_borrow<py::object>(e.value());
                    }
                };
            }
            FirmwareUpdateResult result;
            ReturnCode rc;
            {
                py::gil_scoped_release nogil;
                rc = d3sdk::UpdateFirmware(device, data, options, result);
            }
            if (pending) {
                PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(pending.ptr())), pending.ptr());
                throw py::error_already_set();
            }
            if (rc != SUCCESS) raise(rc, result.reason.empty() ? sdk().GetReturnCodeDescriptor(rc) : result.reason);
            return result;
        },
        py::arg("device"), py::arg("image"), py::arg("access_word"), py::arg("erase") = true, py::arg("write") = true,
        py::arg("reboot") = true, py::arg("progress") = nullptr,
        "Update a camera's firmware: device is \"serial:ip\", an address or a serial; image the bytes of a\n"
        "firmware image file. Needs no open session, but the camera must not stream. Raises d3.Error with the\n"
        "code and the reason (wrong access word, rejected image, camera lost...); progress(FirmwareProgress)\n"
        "is called at each step and chunk.");
}

}  // namespace

void bindExtensions(py::module_& m, py::class_<Device>& device) {
    using d3sdk::StreamStats;
    py::class_<StreamStats>(m, "StreamStats",
                            "Counters of the stream since start_stream or reset_stream_stats.\n"
                            "Over datagrams, frames_complete / (frames_complete + frames_incomplete) is the share\n"
                            "of frames that arrived whole.")
        .def_readonly("frames_complete", &StreamStats::framesComplete, "received whole and unpacked")
        .def_readonly("frames_dropped", &StreamStats::framesDropped,
                      "skipped by the camera, undecodable, or replaced before the application read them")
        .def_readonly("frames_delivered", &StreamStats::framesDelivered, "handed to a frame call")
        .def_readonly("bytes_received", &StreamStats::bytesReceived)
        .def_readonly("mean_unpack_ms", &StreamStats::meanUnpackMs,
                      "first byte on the socket to the frame being ready, mean")
        .def_readonly("max_unpack_ms", &StreamStats::maxUnpackMs)
        .def_readonly("last_frame_id", &StreamStats::lastFrameId)
        .def_readonly("seconds", &StreamStats::seconds, "time the counters cover")
        .def_readonly("frames_overwritten", &StreamStats::framesOverwritten,
                      "of frames_dropped: complete but replaced by a newer one (a slow reader)")
        .def_readonly("udp", &StreamStats::udp)
        .def_readonly("local_port", &StreamStats::localPort)
        .def_readonly("frames_incomplete", &StreamStats::framesIncomplete)
        .def_readonly("packets_received", &StreamStats::packetsReceived)
        .def_readonly("packets_lost", &StreamStats::packetsLost)
        .def_readonly("packets_resend_requested", &StreamStats::packetsResendRequested)
        .def_readonly("packets_recovered", &StreamStats::packetsRecovered)
        .def_readonly("datagrams_ignored", &StreamStats::datagramsIgnored)
        .def("__repr__", [](const StreamStats& s) {
            std::ostringstream o;
            o << "StreamStats(frames_delivered=" << s.framesDelivered << ", frames_dropped=" << s.framesDropped
              << ", seconds=" << s.seconds << ", udp=" << (s.udp ? "True" : "False") << ")";
            return o.str();
        });

    using d3sdk::DeviceDetails;
    py::class_<DeviceDetails>(m, "DeviceDetails", "Identity of the open camera as it reported itself.")
        .def_readonly("serial", &DeviceDetails::serial)
        .def_readonly("model", &DeviceDetails::model)
        .def_readonly("firmware_version", &DeviceDetails::firmwareVersion)
        .def_readonly("device_version", &DeviceDetails::deviceVersion)
        .def_readonly("mac", &DeviceDetails::mac)
        .def_readonly("ip", &DeviceDetails::ip)
        .def_readonly("netmask", &DeviceDetails::netmask)
        .def_readonly("gateway", &DeviceDetails::gateway)
        .def_readonly("dhcp", &DeviceDetails::dhcp)
        .def("__repr__", [](const DeviceDetails& d) {
            return "DeviceDetails(serial='" + d.serial + "', model='" + d.model + "', ip='" + d.ip + "')";
        });

    device.def(
        "get_stream_stats",
        [](Device&) {
            StreamStats s;
            call([&] { return d3sdk::GetStreamStats(s); });
            return s;
        },
        "d3.StreamStats of the running stream.");
    device.def(
        "reset_stream_stats",
        [](Device&) {
            py::gil_scoped_release nogil;
            d3sdk::ResetStreamStats();
        },
        "Start the stream statistics again from zero.");
    device.def(
        "get_device_details",
        [](Device&) {
            DeviceDetails d;
            call([&] { return d3sdk::GetDeviceDetails(d); });
            return d;
        },
        "d3.DeviceDetails of the open camera.");

    bindFirmware(m);
}

}  // namespace d3py
