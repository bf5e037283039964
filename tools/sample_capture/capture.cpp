#include "sample_capture/capture.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/parallel.h"
#include "base/split_mix64.h"
#include "base/text.h"

namespace quor::sample {
namespace {

constexpr int kRaysAcross = 4;        // to a pixel, along each edge
constexpr double kAgreement = 0.035;  // of display values
static_assert(kRaysAcross * kRaysAcross == Scene::kLightSamples);

// The size of a pixel on the surface that the ray has met; grazing views stretch it.
double footprintOf(const PinholeView& view, const Ray& ray, const Scene::Hit& hit) {
  const double facing = std::max(0.05, -dot(ray.direction, hit.normal));
  return hit.distance / (view.fx * std::sqrt(facing));
}

uint8_t toByte(double value) {
  return static_cast<uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0)));
}

// Adds up the light that rays through a pixel bring, and how much they differ.
class PixelSum {
 public:
  void add(Vec3 colour) {
    sum_ = sum_ + colour;
    low_ = {std::min(low_.x, colour.x), std::min(low_.y, colour.y), std::min(low_.z, colour.z)};
    high_ = {std::max(high_.x, colour.x), std::max(high_.y, colour.y), std::max(high_.z, colour.z)};
    ++count_;
  }
  double spread() const { return std::max({high_.x - low_.x, high_.y - low_.y, high_.z - low_.z}); }
  Vec3 mean() const { return sum_ * (1.0 / count_); }

 private:
  Vec3 sum_, low_{1, 1, 1}, high_;
  int count_ = 0;
};

// Sixteen rays to a pixel; four where they agree, one from each quarter.
Vec3 renderPixel(const Scene& scene, const PinholeView& view, int x, int y) {
  PixelSum pixel;
  const auto add = [&](int i, int j) {
    const Ray ray = view.rayThrough(x + (i + 0.5) / kRaysAcross, y + (j + 0.5) / kRaysAcross);
    const Scene::Hit hit = scene.trace(ray);
    // Neighbouring rays take lamp points far apart.
    const int lightSample = ((j * kRaysAcross + i) * 7 + 3) % Scene::kLightSamples;
    pixel.add(scene.colour(hit, footprintOf(view, ray, hit), lightSample));
  };
  // The first four stand like a turned square, so that an edge in either direction parts them.
  constexpr std::array<int, kRaysAcross> kFirstColumn = {1, 3, 0, 2};
  for (int j = 0; j < kRaysAcross; ++j) add(kFirstColumn[static_cast<size_t>(j)], j);
  if (pixel.spread() < kAgreement) return pixel.mean();
  for (int j = 0; j < kRaysAcross; ++j) {
    for (int i = 0; i < kRaysAcross; ++i) {
      if (i != kFirstColumn[static_cast<size_t>(j)]) add(i, j);
    }
  }
  return pixel.mean();
}

void renderRow(const Scene& scene, const PinholeView& view, int y, uint8_t* rgb) {
  for (int x = 0; x < view.width; ++x) {
    const Vec3 colour = renderPixel(scene, view, x, y);
    *rgb++ = toByte(colour.x);
    *rgb++ = toByte(colour.y);
    *rgb++ = toByte(colour.z);
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
  parallelFor(static_cast<size_t>(view.height),
              [&](size_t y) { renderRow(scene, view, static_cast<int>(y), image.rgb.data() + y * stride); });
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
