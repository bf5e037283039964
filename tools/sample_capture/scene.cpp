#include "sample_capture/scene.h"

#include <algorithm>
#include <cmath>

namespace quor::sample {
namespace {

constexpr Vec3 kLamp{0.9, -0.7, 2.6};
constexpr double kLampSize = 0.7;
constexpr double kAmbient = 0.6;
constexpr double kDirect = 0.5;

Vec3 lampPoint(int sample) {
  const int column = sample % 4, row = sample / 4;
  const double i = (column + 0.5) / 4 - 0.5, j = (row + 0.5) / 4 - 0.5;
  return kLamp + Vec3{i * kLampSize, j * kLampSize, 0};
}

// Distance from within the room to its walls.
double exitDistance(const Ray& ray) {
  const auto slab = [](double origin, double direction, double half) {
    if (direction == 0) return 1e30;
    return ((direction > 0 ? half : -half) - origin) / direction;
  };
  const Vec3 origin = ray.origin - kRoomCentre;
  return std::min({slab(origin.x, ray.direction.x, kRoomHalf.x), slab(origin.y, ray.direction.y, kRoomHalf.y),
                   slab(origin.z, ray.direction.z, kRoomHalf.z)});
}

}  // namespace

Scene::Scene(uint64_t seed) {
  Room room = furnishRoom(seed);
  walls_ = room.walls;
  groups_ = std::move(room.groups);
}

Scene::Nearest Scene::nearest(const Ray& ray) const {
  Nearest found{exitDistance(ray), nullptr, nullptr};
  for (const Group& group : groups_) {
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
  const Vec3 local = position - kRoomCentre;
  const BoxFace face = faceOf(local, kRoomHalf);
  const Vec3 inwards{face.axis == 0 ? -face.side : 0, face.axis == 1 ? -face.side : 0, face.axis == 2 ? -face.side : 0};
  const auto wall = static_cast<size_t>(face.axis) * 2 + (face.side > 0 ? 1U : 0U);
  return {found.distance, position, inwards, {local, face.u, face.v + kRoomHalf.z, face.edge, 0}, walls_[wall]};
}

bool Scene::lit(Vec3 position, Vec3 lamp) const {
  const Vec3 to = lamp - position;
  const double distance = length(to);
  const Ray ray{position, to * (1 / distance)};
  const auto stops = [&](const auto& shape) { return shape.hit(ray, distance).has_value(); };
  return std::none_of(groups_.begin(), groups_.end(), [&](const Group& group) {
    return group.bounds.mayMeet(ray) && (std::any_of(group.boxes.begin(), group.boxes.end(), stops) ||
                                         std::any_of(group.spheres.begin(), group.spheres.end(), stops));
  });
}

double Scene::openness(Vec3 position, Vec3 normal) const {
  const Vec3 local = position - kRoomCentre;
  double open = 1;
  const auto plane = [&](double distance, double facing) {
    open *= 1 - 0.4 * 0.5 * (1 - facing) * std::exp(-distance / 0.35);
  };
  plane(kRoomHalf.x + local.x, normal.x);
  plane(kRoomHalf.x - local.x, -normal.x);
  plane(kRoomHalf.y + local.y, normal.y);
  plane(kRoomHalf.y - local.y, -normal.y);
  plane(kRoomHalf.z + local.z, normal.z);
  plane(kRoomHalf.z - local.z, -normal.z);
  return open;
}

Vec3 Scene::shade(Vec3 albedo, const Hit& hit, Vec3 lamp) const {
  const Vec3 to = lamp - hit.position;
  const double facing = dot(to, hit.normal) / length(to);
  const bool lighted = facing > 0 && lit(hit.position + hit.normal * 1e-4, lamp);
  const double light = kAmbient * openness(hit.position, hit.normal) + (lighted ? kDirect * facing : 0);
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
