#include "sample_capture/capture.h"

#include <stdexcept>

#include "base/split_mix64.h"
#include "base/text/text.h"
#include "sample_capture/footprint.h"

namespace quor::sample {
namespace {

// The place where the view shows the point; nothing when it lies outside or behind something.
bool observe(const Scene& scene, const PinholeView& view, Vec3 point, gs::colmap::Observation& observation) {
  const Vec3 c = view.toCamera(point);
  if (c.z <= 0.05) return false;
  observation.x = view.fx * c.x / c.z + view.cx;
  observation.y = view.fy * c.y / c.z + view.cy;
  if (observation.x < 0 || observation.x > view.width || observation.y < 0 || observation.y > view.height) return false;
  return scene.distance(view.rayThrough(observation.x, observation.y)) > length(c) - 1e-3;
}

gs::colmap::Model camerasOf(const std::vector<PinholeView>& views, std::string (*name)(size_t)) {
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
        {static_cast<uint32_t>(i + 1), 1, quaternionOf(views[i].rotation), views[i].translation, name(i)});
  }
  return model;
}

}  // namespace

TrueModel trueModel(const Scene& scene, const std::vector<PinholeView>& views, size_t points, uint64_t seed,
                    std::string (*name)(size_t)) {
  TrueModel result;
  result.model = camerasOf(views, name);
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
    const Scene seenNow = scene.seenBy(view);
    const Scene::Hit hit = seenNow.trace(ray);
    if (!hit.still) continue;
    // The model stores floats, so observe the stored point.
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
    const Vec3 colour = seenNow.colour(hit, footprintOf(view.pixelsPerRadian(), ray, hit));
    positions.insert(positions.end(), stored.begin(), stored.end());
    const std::array<uint8_t, 3> bytes = toBytes(colour);
    colors.insert(colors.end(), bytes.begin(), bytes.end());
  }
  return result;
}

std::string photoName(size_t view) {
  return formatText("photo_%04zu.jpg", view + 1);
}

std::string frameName(size_t view) {
  return formatText("f%05zu.jpg", view + 1);
}

}  // namespace quor::sample
