// What the colour camera sees before exposure: ray tracing of the few scene
// primitives, procedural textures and a single directional light.
#include <algorithm>
#include <cmath>

#include "RgbSensor.h"

namespace d3sim {

namespace {
constexpr float kAmbientLight = 0.35f;
// Unit vector towards the light: above, in front and to the left, so box
// fronts are lit and their right-hand sides stay in shade.
constexpr Vec3 kLight{-0.4000f / 1.0012f, -0.8000f / 1.0012f, -0.4500f / 1.0012f};
constexpr float kLevelOne = 16384.0f;  // fixed-point light level of a white, fully lit surface

struct Rgb {
    float r, g, b;
};

// Floor that is safe for the coordinates of this scene and cheaper than std::floor.
inline int ifloor(float x) { return static_cast<int>(x + 100000.0f) - 100000; }

Rgb albedo(Surface s, const Vec3& p, const Vec3& n) {
    switch (s) {
        case Surface::Floor: {
            // 500 mm tiles.
            const bool dark = (ifloor(p.x * (1.0f / 500.0f)) + ifloor(p.z * (1.0f / 500.0f))) & 1;
            return dark ? Rgb{0.30f, 0.30f, 0.33f} : Rgb{0.55f, 0.55f, 0.52f};
        }
        case Surface::Wall: {
            // Bricks 500 x 125 mm with mortar joints, every other course offset.
            const int course = ifloor(p.y * (1.0f / 125.0f));
            const float inCourse = p.y - course * 125.0f;
            const float x = p.x + ((course & 1) ? 250.0f : 0.0f);
            const float inBrick = x - ifloor(x * (1.0f / 500.0f)) * 500.0f;
            if (inCourse < 12.0f || inBrick < 12.0f) return {0.75f, 0.74f, 0.70f};
            return {0.62f, 0.36f, 0.28f};
        }
        case Surface::Pallet: {
            // Slats 130 mm wide with 30 mm dark gaps along x.
            const float x = p.x - scene::kPallet.min.x;
            const bool gap = x - ifloor(x * (1.0f / 160.0f)) * 160.0f >= 130.0f;
            return gap ? Rgb{0.15f, 0.11f, 0.07f} : Rgb{0.58f, 0.42f, 0.24f};
        }
        case Surface::Box: {
            if (n.z < 0.0f) {
                // Front face: a white label and a dark tape band.
                if (p.x > -600.0f && p.x < -400.0f && p.y > 250.0f && p.y < 400.0f) return {0.90f, 0.90f, 0.88f};
                if (p.y < 190.0f) return {0.12f, 0.12f, 0.12f};
            }
            return {0.64f, 0.47f, 0.29f};
        }
        case Surface::Pillar:
            return {0.30f, 0.40f, 0.62f};
        case Surface::Sphere: {
            const bool red = ifloor((p.y - scene::kSphereY) * (1.0f / 100.0f)) & 1;
            return red ? Rgb{0.80f, 0.10f, 0.10f} : Rgb{0.85f, 0.85f, 0.85f};
        }
        case Surface::None:
            break;
    }
    return {0.0f, 0.0f, 0.0f};
}
}  // namespace

void RgbSensor::shadeRow(int v, int u0, int u1, const Scene& scene, const PixelRect& sphere, uint16_t* level) {
    const float dy = dy_[v];
    // Background: the back wall, or the floor where it comes first; constant
    // along a row because every ray in it has the same dy and dz.
    float tBg = scene::kWallZ - centre_.z;
    Surface bg = Surface::Wall;
    Vec3 nBg{0.0f, 0.0f, -1.0f};
    if (dy > 0.0f && (scene::kFloorY - centre_.y) / dy < tBg) {
        tBg = (scene::kFloorY - centre_.y) / dy;
        bg = Surface::Floor;
        nBg = {0.0f, -1.0f, 0.0f};
    }
    std::fill(rowT_.begin() + u0, rowT_.begin() + u1, tBg);
    std::fill(rowSurface_.begin() + u0, rowSurface_.begin() + u1, bg);
    std::fill(rowNormal_.begin() + u0, rowNormal_.begin() + u1, nBg);
    struct Item {
        const Box3& box;
        const PixelRect& rect;
        Surface s;
    };
    const Item items[] = {{scene::kPallet, palletRect_, Surface::Pallet},
                          {scene::kBox, boxRect_, Surface::Box},
                          {scene::kPillar, pillarRect_, Surface::Pillar}};
    for (const Item& it : items) {
        if (v < it.rect.v0 || v >= it.rect.v1) continue;
        for (int u = std::max(u0, it.rect.u0); u < std::min(u1, it.rect.u1); ++u) {
            float t;
            Vec3 n;
            if (intersectBox(it.box, centre_, {dx_[u], dy, 1.0f}, t, n) && t < rowT_[u])
                rowT_[u] = t, rowSurface_[u] = it.s, rowNormal_[u] = n;
        }
    }
    if (scene.hasSphere() && v >= sphere.v0 && v < sphere.v1)
        for (int u = std::max(u0, sphere.u0); u < std::min(u1, sphere.u1); ++u) {
            Hit h;
            if (scene.intersectSphere(centre_, {dx_[u], dy, 1.0f}, h) && h.t < rowT_[u])
                rowT_[u] = h.t, rowSurface_[u] = Surface::Sphere, rowNormal_[u] = h.normal;
        }
    for (int u = u0; u < u1; ++u) {
        const float t = rowT_[u];
        const Vec3 p{centre_.x + t * dx_[u], centre_.y + t * dy, centre_.z + t};
        const Vec3& n = rowNormal_[u];
        const Rgb a = albedo(rowSurface_[u], p, n);
        const float lit = n.x * kLight.x + n.y * kLight.y + n.z * kLight.z;
        const float s = kLevelOne * (kAmbientLight + (1.0f - kAmbientLight) * std::max(0.0f, lit));
        level[3 * u] = static_cast<uint16_t>(a.r * s);
        level[3 * u + 1] = static_cast<uint16_t>(a.g * s);
        level[3 * u + 2] = static_cast<uint16_t>(a.b * s);
    }
}

}  // namespace d3sim
