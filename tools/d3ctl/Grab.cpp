// grab: frames to files (depth and IR as PGM, colour as PPM, points as PLY).
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <vector>

#include "Output.h"

using nlohmann::json;

namespace d3ctl {

namespace {

// Netpbm stores 16-bit samples most significant byte first.
bool writePgm16(const std::string& path, const DataContainer<uint16_t>& img) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::fprintf(f, "P5\n%u %u\n65535\n", img.cols(), img.rows());
    const size_t n = size_t(img.rows()) * img.cols();
    std::vector<uint8_t> bytes(n * 2);
    for (size_t i = 0; i < n; ++i) {
        bytes[2 * i] = uint8_t(img.data()[i] >> 8);
        bytes[2 * i + 1] = uint8_t(img.data()[i]);
    }
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

bool writePgm8(const std::string& path, const DataContainer<uint8_t>& img) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::fprintf(f, "P5\n%u %u\n255\n", img.cols(), img.rows());
    const size_t n = size_t(img.rows()) * img.cols();
    const bool ok = std::fwrite(img.data(), 1, n, f) == n;
    return std::fclose(f) == 0 && ok;
}

bool writePpm(const std::string& path, const DataContainer<RGB888Pixel>& img) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::fprintf(f, "P6\n%u %u\n255\n", img.cols(), img.rows());
    const size_t n = size_t(img.rows()) * img.cols() * 3;
    const bool ok = std::fwrite(img.data(), 1, n, f) == n;
    return std::fclose(f) == 0 && ok;
}

std::string numbered(const std::string& dir, const char* kind, int i, const char* ext) {
    char name[64];
    std::snprintf(name, sizeof name, "%s_%04d.%s", kind, i, ext);
    return (std::filesystem::path(dir) / name).string();
}

}  // namespace

int cmdGrab(const Options& o, const std::string& device, int frames, const std::string& dir, bool udp) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) return fail(o, "create " + dir, FILE_ERROR);
    ReturnCode rc = openDevice(o, device, !udp);
    if (rc != SUCCESS) return fail(o, "open " + device, rc);
    DeviceManager& dm = DeviceManager::GetInstance();
    bool rgb = false;
    dm.IsRgbDevice(rgb);
    if ((rc = dm.StartStream()) != SUCCESS) return fail(o, "start stream", rc);

    DataContainer<uint16_t> depth(480, 640), amplitude(480, 640);
    DataContainer<uint8_t> ir(480, 640);
    DataContainer<PointXYZ> points(480, 640);
    DataContainer<RGB888Pixel> colour(480, 640);
    json written = json::array();
    for (int i = 0; i < frames; ++i) {
        rc = rgb ? dm.GetRgbTofData(&colour, &depth, &points, &ir, &amplitude)
                 : dm.GetTofData(&depth, &points, &ir, &amplitude);
        if (rc != SUCCESS) {
            dm.StopStream();
            dm.DisconnectFromDevice();
            return fail(o, "frame " + std::to_string(i), rc);
        }
        std::vector<std::string> files = {numbered(dir, "depth", i, "pgm"), numbered(dir, "ir", i, "pgm"),
                                          numbered(dir, "amplitude", i, "pgm"), numbered(dir, "points", i, "ply")};
        bool ok = writePgm16(files[0], depth) && writePgm8(files[1], ir) && writePgm16(files[2], amplitude) &&
                  DeviceManager::SaveAsPLYFile(files[3], points, true);
        if (rgb) {
            files.push_back(numbered(dir, "rgb", i, "ppm"));
            ok = ok && writePpm(files.back(), colour);
        }
        if (!ok) {
            dm.StopStream();
            dm.DisconnectFromDevice();
            return fail(o, "write frame " + std::to_string(i) + " to " + dir, FILE_ERROR);
        }
        written.push_back({{"frame", i}, {"points", points.getNumberSize()}, {"files", files}});
        if (!o.json) std::cout << "frame " << i << ": " << points.getNumberSize() << " points\n";
    }
    dm.StopStream();
    dm.DisconnectFromDevice();
    if (o.json) std::cout << written.dump(2) << "\n";
    return 0;
}

}  // namespace d3ctl
