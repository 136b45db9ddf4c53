#include "JpegDecoder.h"

#include <turbojpeg.h>

namespace d3sdk {

JpegDecoder::JpegDecoder() : handle_(tjInitDecompress()) {}

JpegDecoder::~JpegDecoder() {
    if (handle_) tjDestroy(handle_);
}

bool JpegDecoder::decode(const uint8_t* jpeg, size_t size, DataContainer<RGB888Pixel>& out, size_t maxPixels) {
    return decodeInto(jpeg, size, out, maxPixels);
}

bool JpegDecoder::decode(const uint8_t* jpeg, size_t size, FrameImage<RGB888Pixel>& out, size_t maxPixels) {
    return decodeInto(jpeg, size, out, maxPixels);
}

template <typename Image>
bool JpegDecoder::decodeInto(const uint8_t* jpeg, size_t size, Image& out, size_t maxPixels) {
    if (!handle_ || !jpeg || size == 0) return false;
    int w = 0, h = 0, subsamp = 0, colorspace = 0;
    auto* src = const_cast<unsigned char*>(jpeg);  // the old API is not const-correct
    if (tjDecompressHeader3(handle_, src, static_cast<unsigned long>(size), &w, &h, &subsamp, &colorspace) != 0)
        return false;
    if (w <= 0 || h <= 0 || size_t(w) * size_t(h) > maxPixels) return false;
    out.resize(unsigned(h), unsigned(w));
    static_assert(sizeof(RGB888Pixel) == 3, "RGB888Pixel must be packed bytes");
    const int rc =
        tjDecompress2(handle_, src, static_cast<unsigned long>(size), reinterpret_cast<unsigned char*>(out.data()), w,
                      w * 3, h, TJPF_RGB, TJFLAG_FASTDCT | TJFLAG_STOPONWARNING);
    // A truncated image "decodes" with a warning into grey rows; a damaged
    // frame must be dropped, not shown.
    return rc == 0;
}

}  // namespace d3sdk
