#include "sample_capture/render.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/parallel.h"
#include "sample_capture/footprint.h"

namespace quor::sample {
namespace {

constexpr int kRaysAcross = 4;        // to a pixel, along each edge
constexpr double kAgreement = 0.035;  // of display values
static_assert(kRaysAcross * kRaysAcross == Scene::kLightSamples);

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

template <typename View>
Vec3 renderPixel(const Scene& scene, const View& view, int x, int y, Rays rays) {
  if (!view.shows(x + 0.5, y + 0.5)) return {};
  PixelSum pixel;
  const auto add = [&](int i, int j) {
    const Ray ray = view.rayThrough(x + (i + 0.5) / kRaysAcross, y + (j + 0.5) / kRaysAcross);
    const Scene::Hit hit = scene.trace(ray);
    // Neighbouring rays take lamp points far apart.
    const int lightSample = ((j * kRaysAcross + i) * 7 + 3) % Scene::kLightSamples;
    pixel.add(scene.colour(hit, footprintOf(view.pixelsPerRadian(), ray, hit), lightSample));
  };
  if (rays == Rays::Video) {
    add(0, 1);
    add(3, 2);
    return pixel.mean();
  }
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

template <typename View>
Image render(const Scene& scene, const View& view, Rays rays) {
  Image image{view.width, view.height, {}};
  const size_t stride = static_cast<size_t>(view.width) * 3;
  image.rgb.resize(stride * static_cast<size_t>(view.height));
  const Scene seen = scene.seenBy(view);
  parallelFor(static_cast<size_t>(view.height), [&](size_t y) {
    uint8_t* rgb = image.rgb.data() + y * stride;
    for (int x = 0; x < view.width; ++x) {
      for (const uint8_t value : toBytes(renderPixel(seen, view, x, static_cast<int>(y), rays))) *rgb++ = value;
    }
  });
  return image;
}

}  // namespace

Image renderView(const Scene& scene, const PinholeView& view, Rays rays) {
  return render(scene, view, rays);
}

Image renderView(const Scene& scene, const EquirectangularView& view, Rays rays) {
  return render(scene, view, rays);
}

Image renderView(const Scene& scene, const FisheyeView& view, Rays rays) {
  return render(scene, view, rays);
}

}  // namespace quor::sample
