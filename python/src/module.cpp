// The d3 Python module: the camera SDK with frames as NumPy arrays.
#include "d3module.h"

PYBIND11_MODULE(d3, m) {
    m.doc() =
        "Python access to the d3 camera SDK (libd3_sdk).\n\n"
        "    import d3\n"
        "    cams = d3.find_devices()                 # ['serial:ip', ...]\n"
        "    with d3.open(cams[0]) as cam:\n"
        "        cam.start_stream()\n"
        "        f = cam.get_tof_data(points=True)    # d3.Frame\n"
        "        print(f.depth.shape, f.depth.mean())\n\n"
        "Every DeviceManager method Foo of the C++ SDK is foo in snake case, a method of the Device that\n"
        "open() returns; find_devices, set_timeout and save_ply (SaveAsPLYFile) are module functions.\n"
        "Renamed: InitDevice is open(), DisconnectFromDevice close(), ReconnectDevice reconnect(),\n"
        "RegisterNetworkMonitoringCallback set_link_lost_callback(), GetReturnCodeDescriptor\n"
        "return_code_text(). Getters return their values; a call that fails raises d3.Error with the\n"
        "SDK's return code and text.\n\n"
        "Frames: each frame call returns new NumPy arrays that own their memory (the SDK copies the\n"
        "frame once into them; no further copy is made). They stay valid after later frame calls and\n"
        "after close(); see d3.Frame.\n\n"
        "Threads: calls release the GIL while they wait for the camera, so other Python threads run\n"
        "meanwhile and may call the SDK too (e.g. soft_trigger while another thread waits for the frame).";

    auto device = d3py::py::class_<d3py::Device>(
        m, "Device",
        "Handle to the SDK's camera session, from d3.open(). Closing it (close() or the end of a with\n"
        "block) ends the session; methods called without a session raise NOT_CONNECTED.");
    d3py::bindErrors(m);
    d3py::bindTypes(m);
    d3py::bindSession(m, device);
    d3py::bindParameters(device);
    d3py::bindFrames(m, device);
    d3py::bindExtensions(m, device);
}
