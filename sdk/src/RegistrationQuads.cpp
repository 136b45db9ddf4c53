// Depth seen from the colour camera: every depth pixel projected, the colour
// pixels each one owns worked out, then written nearest-first. The projection
// and the bounds are computed for several pixels at once with the same
// operations, in the same order, as for one pixel, so every lane gives the
// result the one-pixel statement of the rules gives, bit for bit. The vector
// types are the compiler's generic ones: any target builds them.
//
// The loops read only locals: their stores go through memcpy, which may alias
// any member, so a member would be read again on every pass.
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
// Neighbouring quads of a depth row lie two or three colour pixels apart, so
// an eight-pixel write overlaps the next quad's read, and a read that partly
// overlaps a store still in flight waits for it. Taking every fourth pixel of
// the row per pass keeps the writes of one pass apart.
constexpr unsigned kPasses = 4;

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
    const float W = float(rgbW_), H = float(rgbH_);
    const size_t row = size_t(v) * w;
    const f32x4 r0 = splat(ext_.r[0]), r1 = splat(ext_.r[1]), r2 = splat(ext_.r[2]);
    const f32x4 r3 = splat(ext_.r[3]), r4 = splat(ext_.r[4]), r5 = splat(ext_.r[5]);
    const f32x4 r6 = splat(ext_.r[6]), r7 = splat(ext_.r[7]), r8 = splat(ext_.r[8]);
    const f32x4 t0 = splat(ext_.t[0]), t1 = splat(ext_.t[1]), t2 = splat(ext_.t[2]);
    const f32x4 fx = splat(rgbK_.fx), fy = splat(rgbK_.fy), cx = splat(rgbK_.cx), cy = splat(rgbK_.cy);
    const f32x4 ry = splat(tof_.rayY(v));
    const f32x4 zero = splat(0.0f), one = splat(1.0f), width = splat(W), height = splat(H);
    const float* raysX = tof_.raysX();
    uint16_t* zOut = z_.data() + row;
    int16_t *cuOut = cu_.data() + row, *cvOut = cv_.data() + row;
    int16_t *nuOut = nu_.data() + row, *nvOut = nv_.data() + row;
    unsigned u = 0;
    for (; u + 4 <= w; u += 4) {
        const uint16_t* d = depth + u;
        const i32x4 di = {d[0], d[1], d[2], d[3]};
        const f32x4 z = __builtin_convertvector(di, f32x4);
        const f32x4 x = load<f32x4>(raysX + u) * z;
        const f32x4 y = ry * z;
        const f32x4 qx = r0 * x + r1 * y + r2 * z + t0;
        const f32x4 qy = r3 * x + r4 * y + r5 * z + t1;
        const f32x4 qz = r6 * x + r7 * y + r8 * z + t2;
        // Behind or on the colour camera, or beyond 16 bits: no projection.
        const i32x4 valid = (di != 0) & ~(qz < 1.0f) & ~(qz > 65535.0f);
        // Lanes without a projection compute from harmless values; only
        // their zero depth is read later.
        const f32x4 safeZ = valid ? qz : one;
        const f32x4 iz = one / safeZ;
        const f32x4 pu = valid ? fx * qx * iz + cx : zero;
        const f32x4 pv = valid ? fy * qy * iz + cy : zero;
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
        store(zOut + u, __builtin_convertvector(zq, u16x4));
        store(cuOut + u, __builtin_convertvector(cu, i16x4));
        store(cvOut + u, __builtin_convertvector(cv, i16x4));
        store(nuOut + u, __builtin_convertvector(nu, i16x4));
        store(nvOut + u, __builtin_convertvector(nv, i16x4));
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
    const uint16_t* zs = z_.data();
    const int16_t *cus = cu_.data(), *cvs = cv_.data(), *nus = nu_.data(), *nvs = nv_.data();
    int16_t *x0s = x0_.data(), *spans = span_.data(), *y0s = y0_.data(), *y1s = y1_.data();
    const i16x8 hasBelow = splat16(v + 1 < h ? -1 : 0);
    const i16x8 lanes = {0, 1, 2, 3, 4, 5, 6, 7};
    const i16x8 quadMax = splat16(kQuadMax), one = splat16(1), zero16 = splat16(0);
    const u16x8 twenty = {20, 20, 20, 20, 20, 20, 20, 20};
    for (unsigned u = 0; u < w; u += 8) {
        const size_t i = row + u, b = below + u;
        const u16x8 z = load<u16x8>(zs + i);
        const i16x8 cu = load<i16x8>(cus + i), cv = load<i16x8>(cvs + i);
        // The pixel owns the colour pixels between its own projection and
        // those of its right and lower neighbours when they lie on the same
        // surface (depth within 5 %), so neighbouring quads tile the surface
        // without gaps or overlap, steep surfaces included. Across a depth
        // jump it keeps one colour pixel and the gap stays: the colour camera
        // sees something there the ToF camera does not.
        const u16x8 tolerance = z / twenty;
        auto sameSurface = [&](size_t at) -> i16x8 {
            const u16x8 n = load<u16x8>(zs + at);
            const u16x8 diff = n > z ? u16x8(n - z) : u16x8(z - n);
            return (n != 0) & (diff <= tolerance);
        };
        const i16x8 hasRight = (lanes + int16_t(u + 1)) < int16_t(w);
        const i16x8 right = sameSurface(i + 1) & hasRight;
        const i16x8 down = sameSurface(b) & hasBelow;
        const i16x8 diagonal = sameSurface(b + 1) & hasRight & hasBelow;
        i16x8 x0 = cu, x1 = cu, y0 = cv, y1 = cv;
        auto extend = [&](const i16x8& on, size_t at) {
            const i16x8 nu = load<i16x8>(cus + at), nv = load<i16x8>(cvs + at);
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
        const i16x8 nu = load<i16x8>(nus + i), nv = load<i16x8>(nvs + i);
        const i16x8 owns = (z != 0) & ~((flatX | flatY) & (nu < zero16));
        x0 = flatX ? nu : x0;
        x1 = flatX ? nu : x1;
        y0 = flatY ? nv : y0;
        y1 = flatY ? nv : y1;
        store(x0s + u, x0);
        store(spans + u, owns ? x1 - x0 + one : zero16);
        store(y0s + u, y0);
        store(y1s + u, y1);
    }
}

void Registration::fillRow(unsigned v, uint16_t* out, bool trackSource) {
    const unsigned w = tof_.width();
    const size_t total = size_t(rgbW_) * rgbH_;
    const size_t W = rgbW_;
    uint32_t* src = source_.data();
    const uint16_t* zs = z_.data() + size_t(v) * w;
    const int16_t *x0s = x0_.data(), *spans = span_.data(), *y0s = y0_.data(), *y1s = y1_.data();
    const i16x8 lanes = {0, 1, 2, 3, 4, 5, 6, 7};
    // The shift wraps, so it is done on unsigned lanes.
    const u16x8 toShifted = {0x7fff, 0x7fff, 0x7fff, 0x7fff, 0x7fff, 0x7fff, 0x7fff, 0x7fff};
    const u16x8 fromShifted = {0x8001, 0x8001, 0x8001, 0x8001, 0x8001, 0x8001, 0x8001, 0x8001};
    // The nearest surface wins a colour pixel and, on a tie, the depth pixel
    // that comes first (the passes take the pixels out of order; without
    // sources the order does not matter). Anything wins over 0 (nothing yet).
    for (unsigned pass = 0; pass < kPasses; ++pass) {
        for (unsigned u = pass; u < w; u += kPasses) {
            const int span = spans[u];
            if (span == 0) continue;
            const uint32_t i = uint32_t(size_t(v) * w + u);
            // Shifted by 0x7fff (mod 2^16) and read as signed, 0 becomes the
            // largest value and every depth keeps its order, so a plain
            // minimum decides. Lanes outside the quad compare with the
            // largest value, which changes nothing.
            const uint16_t zq = zs[u];
            const i16x8 inQuad = lanes < int16_t(span);
            const i16x8 limit = inQuad ? splat16(int16_t(uint16_t(zq + 0x7fff))) : splat16(0x7fff);
            const size_t x0 = size_t(x0s[u]);
            const int y0 = y0s[u], y1 = y1s[u];
            uint16_t* row = out + size_t(y0) * W + x0;
            if (size_t(y1) * W + x0 + kQuadMax > total) {  // the image's last pixels: one at a time
                for (int y = y0; y <= y1; ++y, row += W)
                    for (int x = 0; x < span; ++x) {
                        uint32_t& from = src[size_t(row - out) + size_t(x)];
                        if (row[x] == 0 || zq < row[x] || (trackSource && zq == row[x] && i < from)) {
                            row[x] = zq;
                            if (trackSource) from = i;
                        }
                    }
                continue;
            }
            if (!trackSource) {
                for (int y = y0; y <= y1; ++y, row += W) {
                    const i16x8 cur = i16x8(load<u16x8>(row) + toShifted);
                    store(row, u16x8(cur < limit ? cur : limit) + fromShifted);
                }
                continue;
            }
            const u32x4 iv = {i, i, i, i};
            for (int y = y0; y <= y1; ++y, row += W) {
                uint32_t* from = src + (row - out);
                const i16x8 cur = i16x8(load<u16x8>(row) + toShifted);
                i16x8 wins = limit < cur;
                const i16x8 tie = inQuad & (limit == cur);
                const u64x2 tied = u64x2(tie);
                if (tied[0] | tied[1])  // rare: two quads meet at the same depth
                    for (int k = 0; k < kQuadMax; ++k)
                        if (tie[k] && i < from[k]) wins[k] = -1;
                store(row, u16x8(wins ? limit : cur) + fromShifted);
                const u64x2 any = u64x2(wins);
                if (!(any[0] | any[1])) continue;
                // Each 16-bit lane mask doubled is the 32-bit mask of its lane.
                const u32x4 lo = u32x4(__builtin_shufflevector(wins, wins, 0, 0, 1, 1, 2, 2, 3, 3));
                const u32x4 hi = u32x4(__builtin_shufflevector(wins, wins, 4, 4, 5, 5, 6, 6, 7, 7));
                store(from, lo ? iv : load<u32x4>(from));
                store(from + 4, hi ? iv : load<u32x4>(from + 4));
            }
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
