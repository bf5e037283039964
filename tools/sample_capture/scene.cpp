#include "sample_capture/scene.h"

#include <algorithm>
#include <cmath>

namespace quor::sample {
namespace {

constexpr double kLampSize = 0.7;
constexpr double kAmbient = 0.6;
constexpr double kEvenLight = 0.95;  // of a room without a lamp

}  // namespace

Scene Scene::seenBy(const Pose& camera) const {
  Scene seen = *this;
  if (!room_.staysWithCamera) return seen;
  const Vec3 eye = camera.centre();
  const double radius = std::hypot(eye.x, eye.y);
  if (radius > 0) {
    seen.cos_ = eye.x / radius;
    seen.sin_ = eye.y / radius;
  }
  return seen;
}

Vec3 Scene::lampPoint(int sample) const {
  const int column = sample % 4, row = sample / 4;
  const double i = (column + 0.5) / 4 - 0.5, j = (row + 0.5) / 4 - 0.5;
  return toWorld(room_.lamp + Vec3{i * kLampSize, j * kLampSize, 0});
}

// Distance from within the room to its walls.
double Scene::exitDistance(const Ray& ray) const {
  const auto slab = [](double origin, double direction, double half) {
    if (direction == 0) return 1e30;
    return ((direction > 0 ? half : -half) - origin) / direction;
  };
  const Vec3 origin = toRoom(ray.origin) - room_.centre(), direction = toRoom(ray.direction);
  return std::min({slab(origin.x, direction.x, room_.half.x), slab(origin.y, direction.y, room_.half.y),
                   slab(origin.z, direction.z, room_.half.z)});
}

Scene::Nearest Scene::nearest(const Ray& ray) const {
  Nearest found{exitDistance(ray), nullptr, nullptr};
  for (const Group& group : room_.groups) {
    if (!group.bounds.mayMeet(ray)) continue;
    for (const Box& box : group.boxes) {
      if (const auto distance = box.hit(ray, found.distance)) found = {*distance, &box, nullptr};
    }
    for (const Sphere& sphere : group.spheres) {
      if (const auto distance = sphere.hit(ray, found.distance)) found = {*distance, nullptr, &sphere};
    }
  }
  return found;
}

double Scene::distance(const Ray& ray) const {
  return nearest(ray).distance;
}

Scene::Hit Scene::trace(const Ray& ray) const {
  const Nearest found = nearest(ray);
  const Vec3 position = ray.origin + ray.direction * found.distance;
  if (found.box != nullptr) {
    return {found.distance, position, found.box->normal(position), found.box->surface(position), found.box->material()};
  }
  if (found.sphere != nullptr) {
    return {found.distance, position, found.sphere->normal(position), found.sphere->surface(position),
            found.sphere->material()};
  }
  const Vec3 local = toRoom(position) - room_.centre();
  const BoxFace face = faceOf(local, room_.half);
  const Vec3 inwards{face.axis == 0 ? -face.side : 0, face.axis == 1 ? -face.side : 0, face.axis == 2 ? -face.side : 0};
  const auto wall = static_cast<size_t>(face.axis) * 2 + (face.side > 0 ? 1U : 0U);
  return {found.distance,    position,
          toWorld(inwards),  {local, face.u, face.v + room_.half.z, face.edge, 0},
          room_.walls[wall], !room_.staysWithCamera};
}

bool Scene::lit(Vec3 position, Vec3 lamp) const {
  const Vec3 to = lamp - position;
  const double distance = length(to);
  const Ray ray{position, to * (1 / distance)};
  const auto stops = [&](const auto& shape) { return shape.hit(ray, distance).has_value(); };
  return std::none_of(room_.groups.begin(), room_.groups.end(), [&](const Group& group) {
    return group.bounds.mayMeet(ray) && (std::any_of(group.boxes.begin(), group.boxes.end(), stops) ||
                                         std::any_of(group.spheres.begin(), group.spheres.end(), stops));
  });
}

double Scene::openness(Vec3 position, Vec3 normal) const {
  const Vec3 local = toRoom(position) - room_.centre(), facing = toRoom(normal);
  double open = 1;
  const auto plane = [&](double distance, double towards) {
    open *= 1 - 0.4 * 0.5 * (1 - towards) * std::exp(-distance / 0.35);
  };
  plane(room_.half.x + local.x, facing.x);
  plane(room_.half.x - local.x, -facing.x);
  plane(room_.half.y + local.y, facing.y);
  plane(room_.half.y - local.y, -facing.y);
  plane(room_.half.z + local.z, facing.z);
  plane(room_.half.z - local.z, -facing.z);
  return open;
}

Vec3 Scene::shade(Vec3 albedo, const Hit& hit, Vec3 lamp) const {
  if (room_.lampLight == 0) return albedo * (kEvenLight * openness(hit.position, hit.normal));
  const Vec3 to = lamp - hit.position;
  const double facing = dot(to, hit.normal) / length(to);
  const bool lighted = facing > 0 && lit(hit.position + hit.normal * 1e-4, lamp);
  const double light = kAmbient * openness(hit.position, hit.normal) + (lighted ? room_.lampLight * facing : 0);
  const Vec3 colour = albedo * light;
  return {std::clamp(colour.x, 0.0, 1.0), std::clamp(colour.y, 0.0, 1.0), std::clamp(colour.z, 0.0, 1.0)};
}

Vec3 Scene::colour(const Hit& hit, double footprint, int lightSample) const {
  SurfacePoint surface = hit.surface;
  surface.footprint = footprint;
  return shade(albedo(hit.material, surface), hit, lampPoint(lightSample));
}

Vec3 Scene::colour(const Hit& hit, double footprint) const {
  SurfacePoint surface = hit.surface;
  surface.footprint = footprint;
  const Vec3 plain = albedo(hit.material, surface);
  Vec3 sum;
  for (int sample = 0; sample < kLightSamples; ++sample) sum = sum + shade(plain, hit, lampPoint(sample));
  return sum * (1.0 / kLightSamples);
}

}  // namespace quor::sample
