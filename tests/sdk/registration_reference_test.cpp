// Registration against a plain, pixel-at-a-time statement of the same rules:
// frames of the simulated colour cameras and hostile ones (holes, far and
// behind-the-camera points, turned cameras, odd image sizes) must give the
// same bytes, source pixels and colours.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "FrameGenerator.h"
#include "Registration.h"
#include "intrinsics.h"

namespace {

using d3sdk::Extrinsics;
using d3sdk::PointProjector;
using d3sdk::Registration;

// The rules, one depth pixel at a time.
class Reference {
public:
    Reference(const CameraIntrinsicParam& tof, unsigned w, unsigned h, const CameraIntrinsicParam& rgb, unsigned rgbW,
              unsigned rgbH, const Extrinsics& ext)
        : k_(rgb), w_(w), h_(h), rgbW_(rgbW), rgbH_(rgbH), ext_(ext), projected_(size_t(w) * h) {
        rays_.configure(tof, w, h);
    }

    // Depth seen from the colour camera, with the depth pixel that won each
    // colour pixel (kept from earlier calls where nothing won, as the SDK does).
    void depthToRgb(const uint16_t* depth, std::vector<uint16_t>& out, std::vector<uint32_t>& source) {
        const int W = int(rgbW_), H = int(rgbH_);
        out.assign(size_t(W) * H, 0);
        source.resize(out.size());
        for (unsigned v = 0; v < h_; ++v)
            for (unsigned u = 0; u < w_; ++u) {
                Projected& p = projected_[v * w_ + u];
                p = Projected{};
                const float z = float(depth[v * w_ + u]);
                if (z == 0) continue;
                const float x = rays_.rayX(u) * z, y = rays_.rayY(v) * z;
                const float* r = ext_.r;
                const float qx = r[0] * x + r[1] * y + r[2] * z + ext_.t[0];
                const float qy = r[3] * x + r[4] * y + r[5] * z + ext_.t[1];
                const float qz = r[6] * x + r[7] * y + r[8] * z + ext_.t[2];
                if (qz < 1.0f || qz > 65535.0f) continue;
                const float iz = 1.0f / qz;
                const float pu = k_.fx * qx * iz + k_.cx, pv = k_.fy * qy * iz + k_.cy;
                p.z = uint16_t(qz + 0.5f);
                p.cu = int(std::ceil(std::clamp(pu, 0.0f, float(W))));
                p.cv = int(std::ceil(std::clamp(pv, 0.0f, float(H))));
                if (pu >= -0.5f && pv >= -0.5f && pu < float(W) - 0.5f && pv < float(H) - 0.5f) {
                    p.nu = int(pu + 0.5f);
                    p.nv = int(pv + 0.5f);
                }
            }
        for (unsigned v = 0; v < h_; ++v)
            for (unsigned u = 0; u < w_; ++u) {
                const uint32_t i = v * w_ + u;
                const Projected& p = projected_[i];
                if (p.z == 0) continue;
                int x0 = p.cu, x1 = p.cu, y0 = p.cv, y1 = p.cv;
                auto extend = [&](unsigned nu, unsigned nv) {
                    if (nu >= w_ || nv >= h_) return;
                    const Projected& n = projected_[nv * w_ + nu];
                    if (n.z == 0 || std::abs(int(n.z) - int(p.z)) > p.z / 20) return;
                    x0 = std::min(x0, n.cu);
                    x1 = std::max(x1, n.cu);
                    y0 = std::min(y0, n.cv);
                    y1 = std::max(y1, n.cv);
                };
                extend(u + 1, v);
                extend(u, v + 1);
                extend(u + 1, v + 1);
                x1 = std::min(x1, x0 + 8) - 1;
                y1 = std::min(y1, y0 + 8) - 1;
                if (x1 < x0 || y1 < y0) {
                    if (p.nu < 0) continue;
                    if (x1 < x0) x0 = x1 = p.nu;
                    if (y1 < y0) y0 = y1 = p.nv;
                }
                for (int y = y0; y <= y1; ++y)
                    for (int x = x0; x <= x1; ++x) {
                        uint16_t& o = out[size_t(y) * W + x];
                        if (o == 0 || p.z < o) {
                            o = p.z;
                            source[size_t(y) * W + x] = i;
                        }
                    }
            }
    }

    // Colour at each depth pixel, black where hidden from the colour camera.
    std::vector<RGB888Pixel> rgbToDepth(const uint16_t* depth, const std::vector<uint16_t>& zbuffer,
                                        const std::vector<RGB888Pixel>& rgb) const {
        std::vector<RGB888Pixel> out(projected_.size(), RGB888Pixel{0, 0, 0});
        for (size_t i = 0; i < out.size(); ++i) {
            const Projected& p = projected_[i];
            if (depth[i] == 0 || p.z == 0 || p.nu < 0) continue;
            const size_t j = size_t(p.nv) * rgbW_ + size_t(p.nu);
            const float nearest = float(zbuffer[j]);
            if (nearest > 0 && float(p.z) > nearest + 10.0f + 0.03f * nearest) continue;
            out[i] = rgb[j];
        }
        return out;
    }

private:
    struct Projected {
        uint16_t z = 0;
        int cu = 0, cv = 0, nu = -1, nv = -1;
    };
    PointProjector rays_;
    CameraIntrinsicParam k_;
    unsigned w_, h_, rgbW_, rgbH_;
    Extrinsics ext_;
    std::vector<Projected> projected_;
};

struct Cameras {
    CameraIntrinsicParam tof, rgb;
    unsigned w, h, rgbW, rgbH;
    Extrinsics ext;
};

std::vector<RGB888Pixel> testColours(unsigned w, unsigned h) {
    std::vector<RGB888Pixel> rgb(size_t(w) * h);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = RGB888Pixel{uint8_t(i), uint8_t(i >> 8), uint8_t(i >> 16)};
    return rgb;
}

// Runs both on each depth frame, one registration object throughout (as a
// session keeps it), and compares everything a frame call can see.
void expectSameAsReference(const Cameras& s, const std::vector<std::vector<uint16_t>>& frames) {
    Registration reg;
    reg.configure(s.tof, s.w, s.h, s.rgb, s.rgbW, s.rgbH, s.ext);
    Reference ref(s.tof, s.w, s.h, s.rgb, s.rgbW, s.rgbH, s.ext);
    const auto rgb = testColours(s.rgbW, s.rgbH);
    const size_t n = size_t(s.rgbW) * s.rgbH;
    std::vector<uint16_t> expected, got(n), untracked(n);
    std::vector<uint32_t> expectedSource;
    std::vector<RGB888Pixel> colours(size_t(s.w) * s.h);
    for (size_t f = 0; f < frames.size(); ++f) {
        const uint16_t* depth = frames[f].data();
        ref.depthToRgb(depth, expected, expectedSource);
        reg.depthToRgb(depth, got.data(), true);
        ASSERT_EQ(got, expected) << "frame " << f;
        size_t covered = 0;
        for (size_t i = 0; i < n; ++i) {
            if (!got[i]) continue;
            ++covered;
            ASSERT_EQ(reg.sourceIndex()[i], expectedSource[i]) << "frame " << f << " colour pixel " << i;
        }
        reg.depthToRgb(depth, untracked.data(), false);
        ASSERT_EQ(untracked, expected) << "frame " << f;
        reg.rgbToDepth(depth, untracked.data(), rgb.data(), colours.data());
        const auto expectedColours = ref.rgbToDepth(depth, expected, rgb);
        ASSERT_EQ(std::memcmp(colours.data(), expectedColours.data(), colours.size() * 3), 0) << "frame " << f;
        EXPECT_GT(covered, 0u) << "frame " << f << " shows nothing: a useless case";
    }
}

CameraIntrinsicParam fromModel(const d3sim::Intrinsics& k) { return intrinsics(k.fx, k.fy, k.cx, k.cy); }

}  // namespace

// The colour models' real calibration and scene, a few seconds apart.
TEST(RegistrationReference, SimulatedColourCamerasGiveTheSameResult) {
    for (char model : {'3', '4'}) {
        d3sim::FrameGenerator gen(model, 5);
        Cameras s{fromModel(gen.tofIntrinsics()), fromModel(gen.rgbIntrinsics()), 640, 480,
                  unsigned(gen.rgbWidth()),       unsigned(gen.rgbHeight()),      {}};
        const d3sim::Extrinsics e = gen.rgbExtrinsics();
        std::copy(e.r, e.r + 9, s.ext.r);
        std::copy(e.t, e.t + 3, s.ext.t);
        d3sim::CameraSettings settings;
        d3sim::FrameSet set;
        std::vector<std::vector<uint16_t>> frames;
        for (uint64_t no : {0, 60, 200}) {
            gen.render(no, settings, set);
            frames.push_back(set.depth);
        }
        SCOPED_TRACE(std::string("model ") + model);
        expectSameAsReference(s, frames);
    }
}

// Random depth with holes and values up to the top of the range, a colour
// camera turned and pushed so that some points fall behind it or off the
// image, and sizes that are not multiples of anything.
TEST(RegistrationReference, HostileFramesAndOddSizesGiveTheSameResult) {
    std::mt19937 rng(17);
    const float c = std::cos(0.3f), sn = std::sin(0.3f);
    struct Case {
        unsigned w, h, rgbW, rgbH;
        float tz;
    };
    for (const Case& k : {Case{37, 23, 53, 31, -800.0f}, Case{640, 480, 1920, 1080, 40.0f}, Case{64, 48, 17, 9, 0.0f},
                          Case{9, 7, 400, 300, -200.0f}}) {
        Cameras s{intrinsics(float(k.w) * 0.8f, float(k.w) * 0.8f, float(k.w) / 2, float(k.h) / 2),
                  intrinsics(float(k.rgbW) * 0.7f, float(k.rgbW) * 0.75f, float(k.rgbW) / 2 + 3, float(k.rgbH) / 2 - 2),
                  k.w,
                  k.h,
                  k.rgbW,
                  k.rgbH,
                  {}};
        const float r[9] = {c, 0, sn, 0, 1, 0, -sn, 0, c};  // turned about the vertical axis
        std::copy(r, r + 9, s.ext.r);
        s.ext.t[0] = -30;
        s.ext.t[1] = 12;
        s.ext.t[2] = k.tz;
        std::vector<std::vector<uint16_t>> frames;
        for (int f = 0; f < 3; ++f) {
            std::vector<uint16_t> d(size_t(k.w) * k.h);
            for (unsigned v = 0; v < k.h; ++v)
                for (unsigned u = 0; u < k.w; ++u) {
                    const unsigned roll = rng() % 100;
                    uint16_t z = uint16_t(600 + 9 * u + 5 * v + rng() % 40);  // a slanted wall with noise
                    if (roll < 6)
                        z = 0;
                    else if (roll < 9)
                        z = uint16_t(rng());  // anywhere, up to 65535
                    else if (roll < 12)
                        z = uint16_t(1 + rng() % 300);
                    d[v * k.w + u] = z;
                }
            frames.push_back(std::move(d));
        }
        SCOPED_TRACE("depth " + std::to_string(k.w) + "x" + std::to_string(k.h) + ", colour " + std::to_string(k.rgbW) +
                     "x" + std::to_string(k.rgbH));
        expectSameAsReference(s, frames);
    }
}
