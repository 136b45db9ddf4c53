// PLY export of point clouds. Binary files are little endian whatever the
// host, and hold x y z as float (plus red green blue intensity as uchar for
// coloured points), which every common point cloud reader understands.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "d3_sdk/DeviceManager.h"

namespace {

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Little-endian bytes of v at out.
void putFloatLE(char* out, float v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    std::memcpy(out, &v, 4);
#else
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    for (int k = 0; k < 4; ++k) out[k] = char((bits >> (8 * k)) & 0xff);
#endif
}

bool hasColour(const PointXYZ&) { return false; }
bool hasColour(const PointXYZRGBI&) { return true; }
constexpr size_t binarySize(const PointXYZ&) { return 12; }
constexpr size_t binarySize(const PointXYZRGBI&) { return 16; }

void putBinary(char* out, const PointXYZ& p) {
    putFloatLE(out, p.x);
    putFloatLE(out + 4, p.y);
    putFloatLE(out + 8, p.z);
}

void putBinary(char* out, const PointXYZRGBI& p) {
    putFloatLE(out, p.x);
    putFloatLE(out + 4, p.y);
    putFloatLE(out + 8, p.z);
    out[12] = char(p.r);
    out[13] = char(p.g);
    out[14] = char(p.b);
    out[15] = char(p.i);
}

int formatAscii(char* s, size_t n, const PointXYZ& p) {
    return std::snprintf(s, n, "%.7g %.7g %.7g\n", double(p.x), double(p.y), double(p.z));
}

int formatAscii(char* s, size_t n, const PointXYZRGBI& p) {
    return std::snprintf(s, n, "%.7g %.7g %.7g %u %u %u %u\n", double(p.x), double(p.y), double(p.z), unsigned(p.r),
                         unsigned(p.g), unsigned(p.b), unsigned(p.i));
}

template <typename P>
bool writePly(const std::string& path, const DataContainer<P>& cloud, bool binary) {
    const size_t total = size_t(cloud.rows()) * cloud.cols();
    const P* pts = cloud.data();
    size_t count = 0;
    for (size_t i = 0; i < total; ++i) count += pts[i].z > 0;

    File f(std::fopen(path.c_str(), "wb"));
    if (!f) return false;
    std::string header = "ply\nformat ";
    header += binary ? "binary_little_endian 1.0\n" : "ascii 1.0\n";
    header += "comment units mm\nelement vertex " + std::to_string(count) + "\n";
    header += "property float x\nproperty float y\nproperty float z\n";
    if (hasColour(P{}))
        header += "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar intensity\n";
    header += "end_header\n";
    if (std::fwrite(header.data(), 1, header.size(), f.get()) != header.size()) return false;

    // Write in blocks: one fwrite per point is several times slower.
    constexpr size_t kBlock = 1 << 20;
    std::vector<char> buf(kBlock);
    size_t used = 0;
    char line[128];
    const size_t record = binarySize(P{});
    for (size_t i = 0; i < total; ++i) {
        if (!(pts[i].z > 0)) continue;
        if (binary) {
            putBinary(buf.data() + used, pts[i]);
            used += record;
        } else {
            const int n = formatAscii(line, sizeof line, pts[i]);
            std::memcpy(buf.data() + used, line, size_t(n));
            used += size_t(n);
        }
        if (used > kBlock - 128) {
            if (std::fwrite(buf.data(), 1, used, f.get()) != used) return false;
            used = 0;
        }
    }
    if (used > 0 && std::fwrite(buf.data(), 1, used, f.get()) != used) return false;
    return std::fclose(f.release()) == 0;
}

}  // namespace

bool DeviceManager::SaveAsPLYFile(const std::string& path, DataContainer<PointXYZ>& points, bool binary) {
    return writePly(path, points, binary);
}

bool DeviceManager::SaveAsPLYFile(const std::string& path, DataContainer<PointXYZRGBI>& points, bool binary) {
    return writePly(path, points, binary);
}
