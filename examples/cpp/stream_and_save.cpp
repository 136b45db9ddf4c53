// Lists the cameras on the network, streams frames from one and saves the
// last frame's point cloud as a PLY file.
#include <d3_sdk/DeviceManager.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const char* const kUsage =
    "usage: stream_and_save [DEVICE] [--frames N] [--ply FILE] [--udp]\n"
    "Lists the cameras found, opens DEVICE (\"serial:ip\", a serial or an address; default: the first\n"
    "camera found), reads N frames (default 100) and saves the last one's points to FILE\n"
    "(default cloud.ply). --udp streams over datagrams.\n";

int fail(DeviceManager& dm, const char* what, ReturnCode rc) {
    std::fprintf(stderr, "stream_and_save: %s failed: %s (code %d)\n", what, dm.GetReturnCodeDescriptor(rc).c_str(),
                 int(rc));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::string device, plyPath = "cloud.ply";
    int frames = 100;
    bool tcp = true;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--frames" && i + 1 < argc) {
            frames = std::atoi(argv[++i]);
        } else if (arg == "--ply" && i + 1 < argc) {
            plyPath = argv[++i];
        } else if (arg == "--udp") {
            tcp = false;
        } else if (!arg.empty() && arg[0] != '-' && device.empty()) {
            device = arg;
        } else {
            std::fprintf(stderr, "stream_and_save: unexpected argument '%s'\n%s", arg.c_str(), kUsage);
            return 2;
        }
    }
    if (frames < 1) {
        std::fprintf(stderr, "stream_and_save: --frames needs a positive number\n");
        return 2;
    }

    DeviceManager& dm = DeviceManager::GetInstance();
    // A camera's first frame can take a while on a busy machine or link.
    dm.SetTimeout(5000);
    const std::vector<std::string> found = dm.FindDevices();
    for (const std::string& camera : found) std::printf("found %s\n", camera.c_str());
    if (device.empty()) {
        if (found.empty()) {
            std::fprintf(stderr, "stream_and_save: no camera found\n");
            return 1;
        }
        device = found.front();
    }

    ReturnCode rc = dm.InitDevice(device, tcp);
    if (rc != SUCCESS) return fail(dm, "opening the camera", rc);
    std::string serial;
    dm.GetDeviceSN(serial);
    if ((rc = dm.StartStream()) != SUCCESS) return fail(dm, "starting the stream", rc);

    // Buffers made once: the SDK reuses their storage frame after frame.
    DataContainer<uint16_t> depth(480, 640);
    DataContainer<PointXYZ> points(480, 640);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < frames; ++i) {
        if ((rc = dm.GetTofData(&depth, &points, nullptr, nullptr)) != SUCCESS) return fail(dm, "reading a frame", rc);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    double sum = 0;
    unsigned measured = 0;
    for (unsigned i = 0; i < depth.rows() * depth.cols(); ++i) {
        if (depth.data()[i]) {
            sum += depth.data()[i];
            ++measured;
        }
    }
    std::printf("camera %s: %d frames in %.2f s (%.1f fps), depth %ux%u, mean %.0f mm over %u pixels\n", serial.c_str(),
                frames, seconds, frames / seconds, depth.cols(), depth.rows(), measured ? sum / measured : 0.0,
                measured);

    dm.StopStream();
    dm.DisconnectFromDevice();
    if (!DeviceManager::SaveAsPLYFile(plyPath, points, true)) {
        std::fprintf(stderr, "stream_and_save: could not write %s\n", plyPath.c_str());
        return 1;
    }
    std::printf("saved %u points to %s\n", points.getNumberSize(), plyPath.c_str());
    return 0;
}
