// Depth seen from the colour camera: every depth pixel projected, the colour
// pixels each one owns worked out, then written nearest-first. The projection
// and the bounds are computed for several pixels at once with the same
// operations, in the same order, as for one pixel, so every lane gives the
// result the one-pixel statement of the rules gives, bit for bit. The vector
// types are the compiler's generic ones: any target builds them.
#include <algorithm>
#include <cstring>

#include "Registration.h"

namespace d3sdk {

namespace {

typedef float f32x4 __attribute__((vector_size(16)));
typedef int32_t i32x4 __attribute__((vector_size(16)));
typedef int16_t i16x4 __attribute__((vector_size(8)));
typedef uint16_t u16x4 __attribute__((vector_size(8)));
typedef int16_t i16x8 __attribute__((vector_size(16)));
typedef uint16_t u16x8 __attribute__((vector_size(16)));
typedef uint32_t u32x4 __attribute__((vector_size(16)));
typedef uint64_t u64x2 __attribute__((vector_size(16)));

// A quad covers at most this many colour pixels each way (a wild point must
// not paint a large patch), and a colour row is written that many pixels at
// a time: lanes past the quad's width are written back unchanged.
constexpr int kQuadMax = 8;

inline f32x4 splat(float x) { return f32x4{x, x, x, x}; }
inline i16x8 splat16(int16_t x) { return i16x8{x, x, x, x, x, x, x, x}; }

// Smallest integer >= x for 0 <= x < 2^31, without a library call.
inline int ceilPositive(float x) {
    const int i = int(x);
    return i + (float(i) < x);
}

template <typename V, typename T>
inline V load(const T* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <typename V, typename T>
inline void store(T* p, const V& v) {
    std::memcpy(p, &v, sizeof v);
}

inline i16x8 min16(i16x8 a, i16x8 b) { return a < b ? a : b; }
inline i16x8 max16(i16x8 a, i16x8 b) { return a < b ? b : a; }

}  // namespace

void Registration::projectRow(const uint16_t* depth, unsigned v) {
    const unsigned w = tof_.width();
    const float* r = ext_.r;
    const float* t = ext_.t;
    const float ry = tof_.rayY(v);
    const float W = float(rgbW_), H = float(rgbH_);
    const f32x4 zero = splat(0.0f), one = splat(1.0f), width = splat(W), height = splat(H);
    const size_t row = size_t(v) * w;
    unsigned u = 0;
    for (; u + 4 <= w; u += 4) {
        const uint16_t* d = depth + u;
        const i32x4 di = {d[0], d[1], d[2], d[3]};
        const f32x4 z = __builtin_convertvector(di, f32x4);
        const f32x4 x = load<f32x4>(tof_.raysX() + u) * z;
        const f32x4 y = ry * z;
        const f32x4 qx = r[0] * x + r[1] * y + r[2] * z + t[0];
        const f32x4 qy = r[3] * x + r[4] * y + r[5] * z + t[1];
        const f32x4 qz = r[6] * x + r[7] * y + r[8] * z + t[2];
        // Behind or on the colour camera, or beyond 16 bits: no projection.
        const i32x4 valid = (di != 0) & ~(qz < 1.0f) & ~(qz > 65535.0f);
        // Lanes without a projection compute from harmless values; only
        // their zero depth is read later.
        const f32x4 safeZ = valid ? qz : one;
        const f32x4 iz = 1.0f / safeZ;
        const f32x4 pu = valid ? rgbK_.fx * qx * iz + rgbK_.cx : zero;
        const f32x4 pv = valid ? rgbK_.fy * qy * iz + rgbK_.cy : zero;
        const i32x4 zq = valid & __builtin_convertvector(safeZ + 0.5f, i32x4);
        const f32x4 clu = pu < zero ? zero : (width < pu ? width : pu);
        const f32x4 clv = pv < zero ? zero : (height < pv ? height : pv);
        const i32x4 tu = __builtin_convertvector(clu, i32x4), tv = __builtin_convertvector(clv, i32x4);
        const i32x4 cu = tu - (__builtin_convertvector(tu, f32x4) < clu);
        const i32x4 cv = tv - (__builtin_convertvector(tv, f32x4) < clv);
        const i32x4 inside = (pu >= -0.5f) & (pv >= -0.5f) & (pu < W - 0.5f) & (pv < H - 0.5f);
        const i32x4 none = {-1, -1, -1, -1};
        const i32x4 nu = inside ? __builtin_convertvector(pu + 0.5f, i32x4) : none;
        const i32x4 nv = inside ? __builtin_convertvector(pv + 0.5f, i32x4) : none;
        store(z_.data() + row + u, __builtin_convertvector(zq, u16x4));
        store(cu_.data() + row + u, __builtin_convertvector(cu, i16x4));
        store(cv_.data() + row + u, __builtin_convertvector(cv, i16x4));
        store(nu_.data() + row + u, __builtin_convertvector(nu, i16x4));
        store(nv_.data() + row + u, __builtin_convertvector(nv, i16x4));
    }
    for (; u < w; ++u) {
        const size_t i = row + u;
        float pu, pv, pz;
        if (depth[u] == 0 || !project(u, v, depth[u], pu, pv, pz) || pz > 65535.0f) {
            z_[i] = 0;
            continue;
        }
        z_[i] = uint16_t(pz + 0.5f);
        cu_[i] = int16_t(ceilPositive(std::clamp(pu, 0.0f, W)));
        cv_[i] = int16_t(ceilPositive(std::clamp(pv, 0.0f, H)));
        const bool inside = pu >= -0.5f && pv >= -0.5f && pu < W - 0.5f && pv < H - 0.5f;
        nu_[i] = inside ? int16_t(pu + 0.5f) : int16_t(-1);
        nv_[i] = inside ? int16_t(pv + 0.5f) : int16_t(-1);
    }
}

void Registration::quadsOfRow(unsigned v) {
    const unsigned w = tof_.width(), h = tof_.height();
    const size_t row = size_t(v) * w;
    // The last row has nothing below: its "below" reads its own row, unused.
    const size_t below = v + 1 < h ? row + w : row;
    const i16x8 hasBelow = splat16(v + 1 < h ? -1 : 0);
    const i16x8 lanes = {0, 1, 2, 3, 4, 5, 6, 7};
    const i16x8 quadMax = splat16(kQuadMax), one = splat16(1), zero16 = splat16(0);
    for (unsigned u = 0; u < w; u += 8) {
        const size_t i = row + u, b = below + u;
        const u16x8 z = load<u16x8>(&z_[i]);
        const i16x8 cu = load<i16x8>(&cu_[i]), cv = load<i16x8>(&cv_[i]);
        // The pixel owns the colour pixels between its own projection and
        // those of its right and lower neighbours when they lie on the same
        // surface (depth within 5 %), so neighbouring quads tile the surface
        // without gaps or overlap, steep surfaces included. Across a depth
        // jump it keeps one colour pixel and the gap stays: the colour camera
        // sees something there the ToF camera does not.
        const u16x8 tolerance = z / uint16_t(20);
        auto sameSurface = [&](size_t at) -> i16x8 {
            const u16x8 n = load<u16x8>(&z_[at]);
            const u16x8 diff = n > z ? u16x8(n - z) : u16x8(z - n);
            return (n != 0) & (diff <= tolerance);
        };
        const i16x8 hasRight = (lanes + int16_t(u + 1)) < int16_t(w);
        const i16x8 right = sameSurface(i + 1) & hasRight;
        const i16x8 down = sameSurface(b) & hasBelow;
        const i16x8 diagonal = sameSurface(b + 1) & hasRight & hasBelow;
        i16x8 x0 = cu, x1 = cu, y0 = cv, y1 = cv;
        auto extend = [&](const i16x8& on, size_t at) {
            const i16x8 nu = load<i16x8>(&cu_[at]), nv = load<i16x8>(&cv_[at]);
            x0 = on ? min16(x0, nu) : x0;
            x1 = on ? max16(x1, nu) : x1;
            y0 = on ? min16(y0, nv) : y0;
            y1 = on ? max16(y1, nv) : y1;
        };
        extend(right, i + 1);
        extend(down, b);
        extend(diagonal, b + 1);
        // Half-open ranges; a degenerate one becomes the nearest pixel, or
        // nothing outside the image.
        x1 = min16(x1, x0 + quadMax) - one;
        y1 = min16(y1, y0 + quadMax) - one;
        const i16x8 flatX = x1 < x0, flatY = y1 < y0;
        const i16x8 nu = load<i16x8>(&nu_[i]), nv = load<i16x8>(&nv_[i]);
        const i16x8 owns = (z != 0) & ~((flatX | flatY) & (nu < zero16));
        x0 = flatX ? nu : x0;
        x1 = flatX ? nu : x1;
        y0 = flatY ? nv : y0;
        y1 = flatY ? nv : y1;
        store(&x0_[u], x0);
        store(&span_[u], owns ? x1 - x0 + one : zero16);
        store(&y0_[u], y0);
        store(&y1_[u], y1);
    }
}

void Registration::fillRow(unsigned v, uint16_t* out, bool trackSource) {
    const unsigned w = tof_.width();
    const size_t total = size_t(rgbW_) * rgbH_;
    const size_t W = rgbW_;
    uint32_t* src = source_.data();
    const i16x8 lanes = {0, 1, 2, 3, 4, 5, 6, 7};
    for (unsigned u = 0; u < w; ++u) {
        const int span = span_[u];
        if (span == 0) continue;
        const uint32_t i = uint32_t(size_t(v) * w + u);
        // The nearest surface wins a colour pixel, the first one on a tie,
        // and anything wins over 0 (nothing yet). Less one as unsigned, 0 is
        // the largest value, so one comparison decides.
        const uint16_t zq = z_[i];
        const uint16_t zm = uint16_t(zq - 1);
        const u16x8 zqv = {zq, zq, zq, zq, zq, zq, zq, zq};
        const u16x8 zmv = {zm, zm, zm, zm, zm, zm, zm, zm};
        const i16x8 inQuad = lanes < int16_t(span);
        const u32x4 iv = {i, i, i, i};
        const size_t x0 = size_t(x0_[u]);
        for (int y = y0_[u], y1 = y1_[u]; y <= y1; ++y) {
            const size_t at = size_t(y) * W + x0;
            uint16_t* row = out + at;
            if (at + kQuadMax > total) {  // the image's last pixels: one at a time
                for (int x = 0; x < span; ++x)
                    if (row[x] == 0 || zq < row[x]) {
                        row[x] = zq;
                        if (trackSource) src[at + size_t(x)] = i;
                    }
                continue;
            }
            const u16x8 cur = load<u16x8>(row);
            const i16x8 wins = inQuad & (zmv < u16x8(cur - uint16_t(1)));
            store(row, wins ? zqv : cur);
            if (!trackSource) continue;
            const u64x2 any = u64x2(wins);
            if (!(any[0] | any[1])) continue;
            // Each 16-bit lane mask doubled is the 32-bit mask of its lane.
            const u32x4 lo = u32x4(__builtin_shuffle(wins, i16x8{0, 0, 1, 1, 2, 2, 3, 3}));
            const u32x4 hi = u32x4(__builtin_shuffle(wins, i16x8{4, 4, 5, 5, 6, 6, 7, 7}));
            store(src + at, lo ? iv : load<u32x4>(src + at));
            store(src + at + 4, hi ? iv : load<u32x4>(src + at + 4));
        }
    }
}

void Registration::depthToRgb(const uint16_t* depth, uint16_t* out, bool trackSource) {
    std::memset(out, 0, size_t(rgbW_) * rgbH_ * sizeof(uint16_t));
    const unsigned w = tof_.width(), h = tof_.height();
    // Every depth pixel is projected first, so each one can see where its
    // right and lower neighbours landed.
    for (unsigned v = 0; v < h; ++v) projectRow(depth + size_t(v) * w, v);
    for (unsigned v = 0; v < h; ++v) {
        quadsOfRow(v);
        fillRow(v, out, trackSource);
    }
}

}  // namespace d3sdk
