// JPEG -> RGB888 with one long-lived libjpeg-turbo handle.
#pragma once

#include <cstddef>
#include <cstdint>

#include "FrameExchange.h"
#include "d3_sdk/DeviceManager.h"

namespace d3sdk {

// Not thread-safe: each receive thread owns its own decoder.
class JpegDecoder {
public:
    JpegDecoder();
    ~JpegDecoder();
    JpegDecoder(const JpegDecoder&) = delete;
    JpegDecoder& operator=(const JpegDecoder&) = delete;

    // Resizes `out` to the image size and decodes into it; false on a corrupt
    // or truncated image, or one larger than maxPixels (a bogus header must
    // not make us allocate gigabytes).
    bool decode(const uint8_t* jpeg, size_t size, DataContainer<RGB888Pixel>& out,
                size_t maxPixels = size_t(4096) * 4096);
    bool decode(const uint8_t* jpeg, size_t size, FrameImage<RGB888Pixel>& out, size_t maxPixels = size_t(4096) * 4096);

private:
    template <typename Image>
    bool decodeInto(const uint8_t* jpeg, size_t size, Image& out, size_t maxPixels);

    void* handle_;
};

}  // namespace d3sdk
