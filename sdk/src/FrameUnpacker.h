// Frame payload (as received, either transport) -> Frame ready for copying.
#pragma once

#include <cstddef>
#include <cstdint>

#include "FrameExchange.h"
#include "JpegDecoder.h"

namespace d3sdk {

class FrameUnpacker {
public:
    // Unpacks the `size` bytes in out.payload without copying them: depth,
    // IR and amplitude point into the payload. False when the payload is
    // malformed or its JPEG does not decode; `out` is then unspecified and
    // must not be published.
    bool unpackInPlace(size_t size, Frame& out);
    // The same for a payload held elsewhere, copied into out.payload first.
    bool unpack(const uint8_t* payload, size_t size, Frame& out);

private:
    JpegDecoder jpeg_;
};

}  // namespace d3sdk
