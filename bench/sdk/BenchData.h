// Synthetic inputs shared by the SDK benchmarks.
#pragma once

#include <sys/resource.h>
#include <turbojpeg.h>

#include <cstdint>
#include <ctime>
#include <random>
#include <vector>

#include "d3_protocol/Frame.h"
#include "d3_sdk/DeviceManager.h"

namespace bench {

// A depth frame like a room: a tilted plane with noise and a few holes.
inline std::vector<uint16_t> roomDepth(unsigned w = 640, unsigned h = 480) {
    std::vector<uint16_t> d(size_t(w) * h);
    std::mt19937 rng(7);
    std::normal_distribution<float> noise(0.0f, 8.0f);
    for (unsigned v = 0; v < h; ++v)
        for (unsigned u = 0; u < w; ++u) {
            const float z = 1500.0f + 3.0f * float(u) + 2.0f * float(v) + noise(rng);
            d[v * w + u] = (rng() % 50 == 0) ? 0 : uint16_t(z);
        }
    return d;
}

inline CameraIntrinsicParam tofIntrinsics() { return CameraIntrinsicParam{520, 520, 320, 240, 0, 0, 0, 0, 0}; }

inline CameraIntrinsicParam rgbIntrinsics1080() { return CameraIntrinsicParam{1400, 1400, 960, 540, 0, 0, 0, 0, 0}; }

// A textured colour image compressed the way cameras send it (quality 85).
inline std::vector<uint8_t> jpegImage(int w, int h) {
    std::vector<uint8_t> rgb(size_t(w) * h * 3);
    std::mt19937 rng(3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &rgb[(size_t(y) * w + x) * 3];
            p[0] = uint8_t(x / 4 + (rng() & 15));
            p[1] = uint8_t(y / 3 + (rng() & 15));
            p[2] = uint8_t(((x / 32 + y / 32) & 1) * 120 + (rng() & 31));
        }
    tjhandle tj = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, rgb.data(), w, w * 3, h, TJPF_RGB, &jpeg, &size, TJSAMP_420, 85, 0);
    std::vector<uint8_t> out(jpeg, jpeg + size);
    tjFree(jpeg);
    tjDestroy(tj);
    return out;
}

// The frame both replay cameras send: 640x480 depth, IR and amplitude, and
// optionally a 1080p JPEG, as the frame payload of the wire format.
inline std::vector<uint8_t> replayPayload(bool withJpeg) {
    const auto depth = roomDepth();
    std::vector<uint8_t> ir(640 * 480, 90);
    d3proto::FrameHeader h;
    h.tofWidth = 640;
    h.tofHeight = 480;
    std::vector<uint8_t> jpeg;
    if (withJpeg) {
        jpeg = jpegImage(1920, 1080);
        h.rgbWidth = 1920;
        h.rgbHeight = 1080;
        h.rgbEncoding = d3proto::RgbEncoding::Jpeg;
        h.rgbBytes = uint32_t(jpeg.size());
    }
    std::vector<uint8_t> payload;
    d3proto::encodeFrame(h, depth.data(), ir.data(), depth.data(), withJpeg ? jpeg.data() : nullptr, payload);
    return payload;
}

inline double threadCpuSeconds() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

inline double processCpuSeconds() {
    rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) + 1e-6 * double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec);
}

// Times a thread of this process gave up the CPU to wait (each is one
// wake-up later): of the whole process, or of the calling thread.
inline long processWaits() {
    rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_nvcsw;
}
inline long threadWaits() {
    rusage ru;
    getrusage(RUSAGE_THREAD, &ru);
    return ru.ru_nvcsw;
}

}  // namespace bench
