// RGB888 to JPEG with one compressor handle and one output buffer reused for
// every frame, so streaming colour frames does not allocate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace d3sim {

class JpegEncoder {
public:
    explicit JpegEncoder(int quality = 85);
    ~JpegEncoder();
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    // Compresses width*height*3 bytes of R,G,B. The result stays valid until the next call.
    bool encode(const uint8_t* rgb, int width, int height);
    const uint8_t* data() const { return buffer_.data(); }
    size_t size() const { return size_; }

private:
    void* handle_ = nullptr;
    int quality_;
    std::vector<uint8_t> buffer_;
    size_t size_ = 0;
};

}  // namespace d3sim
