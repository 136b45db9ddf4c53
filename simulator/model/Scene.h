// The small world in front of the simulated camera, in the ToF camera frame:
// x right, y down, z forward, millimetres. The camera hangs 700 mm above the
// floor and looks horizontally at a back wall; a pallet with a box on it, a
// pillar and a slowly rolling sphere give edges at several depths.
#pragma once

#include <cstdint>

namespace d3sim {

struct Vec3 {
    float x, y, z;
};

struct Box3 {
    Vec3 min, max;
};

namespace scene {
constexpr float kWallZ = 3500.0f;  // back wall: plane z = kWallZ, facing the camera
constexpr float kFloorY = 700.0f;  // floor: plane y = kFloorY (camera height above it)
constexpr Box3 kPallet{{-800.0f, 550.0f, 2100.0f}, {0.0f, kFloorY, 2900.0f}};
// The box stands on the pallet; its front face is the plane z = 2300 and its
// right front edge (x = -200) is a crisp vertical line for registration checks.
constexpr Box3 kBox{{-700.0f, 150.0f, 2300.0f}, {-200.0f, 550.0f, 2800.0f}};
constexpr Box3 kPillar{{900.0f, -3000.0f, 2600.0f}, {1150.0f, kFloorY, 2850.0f}};
constexpr float kSphereRadius = 250.0f;
constexpr float kSphereZ = 1800.0f;
constexpr float kSphereY = kFloorY - kSphereRadius;  // resting on the floor
constexpr float kSphereMidX = 450.0f;
constexpr float kSphereSwingX = 250.0f;
constexpr double kSpherePeriodFrames = 600.0;
}  // namespace scene

enum class Surface : uint8_t { None, Floor, Wall, Pallet, Box, Pillar, Sphere };

struct Hit {
    float t = 0.0f;  // distance along the (not necessarily unit) ray direction
    Surface surface = Surface::None;
    Vec3 normal{0.0f, 0.0f, 0.0f};
};

class Scene {
public:
    // The scene at a frame; withSphere=false gives the static part only, which
    // the sensors cache once and overlay with the moving sphere per frame.
    explicit Scene(uint64_t frameNo, bool withSphere = true);

    // Nearest hit of the ray origin + t*dir, t > 0.
    bool intersect(const Vec3& origin, const Vec3& dir, Hit& hit) const;
    bool intersectSphere(const Vec3& origin, const Vec3& dir, Hit& hit) const;
    bool hasSphere() const { return withSphere_; }
    Vec3 sphereCenter() const { return sphere_; }

    static Vec3 sphereCenterAt(uint64_t frameNo);
    // Fraction of the ToF light a surface sends back (diffuse reflectivity).
    static float reflectivity(Surface s);

private:
    Vec3 sphere_;
    bool withSphere_;
};

// Slab test; on a hit, t is the entry distance and normal the entered face.
bool intersectBox(const Box3& box, const Vec3& origin, const Vec3& dir, float& t, Vec3& normal);

}  // namespace d3sim
