// This SDK's additions beyond DeviceManager (d3_sdk/Extensions.h). Another
// one is bound here in the same way: a method on Device that calls it through
// call() and returns what it filled in.
#include "d3_sdk/Extensions.h"

#include <sstream>

#include "d3module.h"

namespace d3py {

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
}

}  // namespace d3py
