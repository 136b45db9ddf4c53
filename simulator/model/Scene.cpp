#include "Scene.h"

#include <cmath>
#include <limits>

namespace d3sim {

Scene::Scene(uint64_t frameNo, bool withSphere) : sphere_(sphereCenterAt(frameNo)), withSphere_(withSphere) {}

Vec3 Scene::sphereCenterAt(uint64_t frameNo) {
    // Only the frame number drives motion, so any frame can be rendered alone.
    const double phase =
        std::fmod(static_cast<double>(frameNo), scene::kSpherePeriodFrames) / scene::kSpherePeriodFrames;
    const float x = scene::kSphereMidX + scene::kSphereSwingX * static_cast<float>(std::sin(2.0 * M_PI * phase));
    return {x, scene::kSphereY, scene::kSphereZ};
}

float Scene::reflectivity(Surface s) {
    switch (s) {
        case Surface::Floor:
            return 0.35f;
        case Surface::Wall:
            return 0.60f;
        case Surface::Pallet:
            return 0.45f;
        case Surface::Box:
            return 0.55f;
        case Surface::Pillar:
            return 0.70f;
        case Surface::Sphere:
            return 0.85f;
        case Surface::None:
            break;
    }
    return 0.0f;
}

namespace {
// Slab test with the ray's reciprocal direction precomputed, as every box of
// the scene is tested against the same ray.
bool slabs(const Box3& box, const Vec3& o, const Vec3& inv, float& t, Vec3& normal) {
    const float inf = std::numeric_limits<float>::infinity();
    float tNear = -inf, tFar = inf;
    int axisNear = -1;
    bool nearIsMin = true;
    const float os[3] = {o.x, o.y, o.z}, is[3] = {inv.x, inv.y, inv.z};
    const float lo[3] = {box.min.x, box.min.y, box.min.z}, hi[3] = {box.max.x, box.max.y, box.max.z};
    for (int a = 0; a < 3; ++a) {
        if (std::isinf(is[a])) {  // parallel to these faces
            if (os[a] < lo[a] || os[a] > hi[a]) return false;
            continue;
        }
        float t0 = (lo[a] - os[a]) * is[a], t1 = (hi[a] - os[a]) * is[a];
        const bool entersMin = t0 <= t1;
        if (!entersMin) std::swap(t0, t1);
        if (t0 > tNear) tNear = t0, axisNear = a, nearIsMin = entersMin;
        if (t1 < tFar) tFar = t1;
        if (tNear > tFar) return false;
    }
    if (axisNear < 0 || tNear <= 0.0f) return false;
    t = tNear;
    float n[3] = {0.0f, 0.0f, 0.0f};
    n[axisNear] = nearIsMin ? -1.0f : 1.0f;
    normal = {n[0], n[1], n[2]};
    return true;
}

Vec3 reciprocal(const Vec3& d) { return {1.0f / d.x, 1.0f / d.y, 1.0f / d.z}; }

struct SceneBox {
    const Box3* box;
    Surface surface;
};
constexpr SceneBox kBoxes[] = {
    {&scene::kPallet, Surface::Pallet}, {&scene::kBox, Surface::Box}, {&scene::kPillar, Surface::Pillar}};
}  // namespace

bool intersectBox(const Box3& box, const Vec3& o, const Vec3& d, float& t, Vec3& normal) {
    return slabs(box, o, reciprocal(d), t, normal);
}

bool Scene::intersectSphere(const Vec3& o, const Vec3& d, Hit& hit) const {
    const Vec3 oc{o.x - sphere_.x, o.y - sphere_.y, o.z - sphere_.z};
    const float a = d.x * d.x + d.y * d.y + d.z * d.z;
    const float b = oc.x * d.x + oc.y * d.y + oc.z * d.z;
    const float c = oc.x * oc.x + oc.y * oc.y + oc.z * oc.z - scene::kSphereRadius * scene::kSphereRadius;
    const float disc = b * b - a * c;
    if (disc < 0.0f) return false;
    const float t = (-b - std::sqrt(disc)) / a;
    if (t <= 0.0f) return false;
    hit.t = t;
    hit.surface = Surface::Sphere;
    const float inv = 1.0f / scene::kSphereRadius;
    hit.normal = {(oc.x + t * d.x) * inv, (oc.y + t * d.y) * inv, (oc.z + t * d.z) * inv};
    return true;
}

bool Scene::intersect(const Vec3& o, const Vec3& d, Hit& hit) const {
    hit.t = std::numeric_limits<float>::infinity();
    hit.surface = Surface::None;
    if (d.z > 0.0f) {
        const float t = (scene::kWallZ - o.z) / d.z;
        if (t > 0.0f) hit = {t, Surface::Wall, {0.0f, 0.0f, -1.0f}};
    }
    if (d.y > 0.0f) {
        const float t = (scene::kFloorY - o.y) / d.y;
        if (t > 0.0f && t < hit.t) hit = {t, Surface::Floor, {0.0f, -1.0f, 0.0f}};
    }
    const Vec3 inv = reciprocal(d);
    for (const SceneBox& b : kBoxes) {
        float t;
        Vec3 n;
        if (slabs(*b.box, o, inv, t, n) && t < hit.t) hit = {t, b.surface, n};
    }
    if (withSphere_) {
        Hit sh;
        if (intersectSphere(o, d, sh) && sh.t < hit.t) hit = sh;
    }
    return hit.surface != Surface::None;
}

}  // namespace d3sim
