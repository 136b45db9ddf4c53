// Cheap deterministic randomness and the few maths helpers the sensor loops
// need per pixel. Everything here is branch-light and allocation-free.
#pragma once

#include <cmath>
#include <cstdint>

namespace d3sim {

inline uint64_t splitmix64(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// xorshift64*: one multiply per draw, good enough for sensor noise and far
// cheaper than the standard engines.
class Rng {
public:
    explicit Rng(uint64_t seed) : s_(splitmix64(seed) | 1u) {}
    uint64_t next() {
        s_ ^= s_ >> 12;
        s_ ^= s_ << 25;
        s_ ^= s_ >> 27;
        return s_ * 0x2545F4914F6CDD1Dull;
    }

private:
    uint64_t s_;
};

// Stream for one frame: independent of how many frames were rendered before,
// so a frame can be reproduced from (seed, frame number) alone.
inline Rng frameRng(uint64_t seed, uint64_t frameNo, uint64_t stream) {
    return Rng(splitmix64(seed ^ splitmix64(frameNo * 4 + stream)));
}

// Standard normal quantiles at 4096 evenly spaced probabilities. A 12-bit
// slice of a random word picks one, so one draw yields five normals.
constexpr int kNormalBits = 12;
const float* normalTable();

inline float normalAt(const float* table, uint64_t bits, int slot) {
    return table[(bits >> (slot * kNormalBits)) & ((1u << kNormalBits) - 1)];
}

// atan2 to ~1e-5 rad, several times faster than std::atan2.
inline float fastAtan2(float y, float x) {
    const float ax = std::fabs(x), ay = std::fabs(y);
    const float mx = ax > ay ? ax : ay;
    const float mn = ax > ay ? ay : ax;
    const float a = mx > 0.0f ? mn / mx : 0.0f;
    const float s = a * a;
    float r = a * (0.99997726f +
                   s * (-0.33262347f + s * (0.19354346f + s * (-0.11643287f + s * (0.05265332f - 0.01172120f * s)))));
    if (ay > ax) r = 1.57079637f - r;
    if (x < 0.0f) r = 3.14159274f - r;
    return y < 0.0f ? -r : r;
}

}  // namespace d3sim
