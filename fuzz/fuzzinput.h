// Helpers shared by the fuzz targets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace d3fuzz {

// A fuzz target that finds a broken invariant stops the run here, so the
// fuzzer keeps the input that caused it.
inline void check(bool ok) {
    if (!ok) std::abort();
}

// Splits the input into messages the way a byte stream carries them.
struct Cursor {
    const uint8_t* data;
    size_t size;
    size_t left() const { return size; }
    const uint8_t* take(size_t n) {
        if (n > size) return nullptr;
        const uint8_t* p = data;
        data += n;
        size -= n;
        return p;
    }
};

}  // namespace d3fuzz
