#include "sample_capture/capture.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <stdexcept>
#include <thread>

#include "base/split_mix64.h"
#include "base/text.h"

namespace quor::sample {
namespace {

constexpr int kRaysAcross = 4;  // to a pixel, along each edge
static_assert(kRaysAcross * kRaysAcross == Scene::kLightSamples);

// The size of a pixel on the surface that the ray has met; grazing views stretch it.
double footprintOf(const PinholeView& view, const Ray& ray, const Scene::Hit& hit) {
  const double facing = std::max(0.05, -dot(ray.direction, hit.normal));
  return hit.distance / (view.fx * std::sqrt(facing));
}

uint8_t toByte(double value) {
  return static_cast<uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0)));
}

void renderRow(const Scene& scene, const PinholeView& view, int y, uint8_t* rgb) {
  for (int x = 0; x < view.width; ++x) {
    Vec3 sum;
    for (int sample = 0; sample < Scene::kLightSamples; ++sample) {
      const double dx = (sample % kRaysAcross + 0.5) / kRaysAcross, dy = (sample / kRaysAcross + 0.5) / kRaysAcross;
      const Ray ray = view.rayThrough(x + dx, y + dy);
      const Scene::Hit hit = scene.trace(ray);
      // Neighbouring rays take lamp points far apart.
      const int lightSample = (sample * 7 + 3) % Scene::kLightSamples;
      sum = sum + scene.colour(hit, footprintOf(view, ray, hit), lightSample);
    }
    sum = sum * (1.0 / Scene::kLightSamples);
    *rgb++ = toByte(sum.x);
    *rgb++ = toByte(sum.y);
    *rgb++ = toByte(sum.z);
  }
}

// w x y z of a rotation matrix (Shepperd 1978: the largest component first, for accuracy).
std::array<double, 4> quaternionOf(const std::array<double, 9>& r) {
  const std::array<double, 4> squares = {1 + r[0] + r[4] + r[8], 1 + r[0] - r[4] - r[8], 1 - r[0] + r[4] - r[8],
                                         1 - r[0] - r[4] + r[8]};
  const auto largest = std::max_element(squares.begin(), squares.end()) - squares.begin();
  const double s = 0.5 / std::sqrt(squares[static_cast<size_t>(largest)]);
  const double wx = (r[7] - r[5]) * s, wy = (r[2] - r[6]) * s, wz = (r[3] - r[1]) * s;
  const double xy = (r[1] + r[3]) * s, xz = (r[2] + r[6]) * s, yz = (r[5] + r[7]) * s;
  const double self = 0.25 / s;
  switch (largest) {
    case 0:
      return {self, wx, wy, wz};
    case 1:
      return {wx, self, xy, xz};
    case 2:
      return {wy, xy, self, yz};
    default:
      return {wz, xz, yz, self};
  }
}

// The place where the view shows the point; nothing when it lies outside or behind something.
bool observe(const Scene& scene, const PinholeView& view, Vec3 point, gs::colmap::Observation& observation) {
  const Vec3 c = view.toCamera(point);
  if (c.z <= 0.05) return false;
  observation.x = view.fx * c.x / c.z + view.cx;
  observation.y = view.fy * c.y / c.z + view.cy;
  if (observation.x < 0 || observation.x > view.width || observation.y < 0 || observation.y > view.height) return false;
  return scene.distance(view.rayThrough(observation.x, observation.y)) > length(c) - 1e-3;
}

gs::colmap::Model camerasOf(const std::vector<PinholeView>& views) {
  gs::colmap::Model model;
  if (views.empty()) return model;
  const PinholeView& lens = views.front();
  constexpr int32_t kPinhole = 1;
  model.cameras[1] = {1,
                      kPinhole,
                      static_cast<uint64_t>(lens.width),
                      static_cast<uint64_t>(lens.height),
                      {lens.fx, lens.fy, lens.cx, lens.cy}};
  for (size_t i = 0; i < views.size(); ++i) {
    model.images.push_back(
        {static_cast<uint32_t>(i + 1), 1, quaternionOf(views[i].rotation), views[i].translation, photoName(i)});
  }
  return model;
}

}  // namespace

Image renderView(const Scene& scene, const PinholeView& view) {
  Image image{view.width, view.height, {}};
  const size_t stride = static_cast<size_t>(view.width) * 3;
  image.rgb.resize(stride * static_cast<size_t>(view.height));
  std::atomic<int> next = 0;
  const auto work = [&] {
    for (int y = next++; y < view.height; y = next++) {
      renderRow(scene, view, y, image.rgb.data() + static_cast<size_t>(y) * stride);
    }
  };
  std::vector<std::jthread> helpers;
  for (unsigned i = 1; i < std::thread::hardware_concurrency(); ++i) helpers.emplace_back(work);
  work();
  helpers.clear();
  return image;
}

TrueModel trueModel(const Scene& scene, const std::vector<PinholeView>& views, size_t points, uint64_t seed) {
  TrueModel result;
  result.model = camerasOf(views);
  result.observations.resize(views.size());
  SplitMix64 random = SplitMix64::fromSeed(seed ^ 0x706f696e7473ULL);
  std::vector<float>& positions = result.model.points.positions;
  std::vector<uint8_t>& colors = result.model.points.colors;

  for (size_t tries = 0; result.model.points.count() < points; ++tries) {
    if (views.size() < 2 || tries > 20 * points + 1000) {
      throw std::runtime_error("The views do not see enough of the room together for that many points.");
    }
    const PinholeView& view = views[random.below(views.size())];
    const double x = view.width * random.uniform(), y = view.height * random.uniform();
    const Ray ray = view.rayThrough(x, y);
    const Scene::Hit hit = scene.trace(ray);
    // The model stores floats; what is observed is the stored point.
    const std::array<float, 3> stored = {static_cast<float>(hit.position.x), static_cast<float>(hit.position.y),
                                         static_cast<float>(hit.position.z)};
    const Vec3 point{stored[0], stored[1], stored[2]};
    std::vector<std::pair<size_t, gs::colmap::Observation>> seen;
    for (size_t i = 0; i < views.size(); ++i) {
      gs::colmap::Observation observation;
      observation.point = result.model.points.count();
      if (observe(scene, views[i], point, observation)) seen.emplace_back(i, observation);
    }
    if (seen.size() < 2) continue;
    for (const auto& [index, observation] : seen) result.observations[index].push_back(observation);
    const Vec3 colour = scene.colour(hit, footprintOf(view, ray, hit));
    positions.insert(positions.end(), stored.begin(), stored.end());
    colors.insert(colors.end(), {toByte(colour.x), toByte(colour.y), toByte(colour.z)});
  }
  return result;
}

std::string photoName(size_t view) {
  return formatText("photo_%04zu.jpg", view + 1);
}

}  // namespace quor::sample
