#include "JpegEncoder.h"

#include <turbojpeg.h>

namespace d3sim {

JpegEncoder::JpegEncoder(int quality) : handle_(tjInitCompress()), quality_(quality) {}

JpegEncoder::~JpegEncoder() {
    if (handle_) tjDestroy(handle_);
}

bool JpegEncoder::encode(const uint8_t* rgb, int width, int height) {
    size_ = 0;
    if (!handle_ || width <= 0 || height <= 0) return false;
    // tjBufSize is the worst case, so compressing into it never reallocates.
    const unsigned long bound = tjBufSize(width, height, TJSAMP_420);
    if (buffer_.size() < bound) buffer_.resize(bound);
    unsigned char* out = buffer_.data();
    unsigned long outSize = bound;
    if (tjCompress2(handle_, rgb, width, 0, height, TJPF_RGB, &out, &outSize, TJSAMP_420, quality_,
                    TJFLAG_NOREALLOC | TJFLAG_FASTDCT) != 0)
        return false;
    size_ = outSize;
    return true;
}

}  // namespace d3sim
