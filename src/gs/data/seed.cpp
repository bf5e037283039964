#include "gs/data/seed.h"

#include <algorithm>
#include <cmath>
#include <nanoflann.hpp>
#include <numeric>
#include <vector>

#include "gs/splats/sh.h"

namespace quor::gs {
namespace {

constexpr size_t kNeighbours = 3;
constexpr double kMinExtent = 0.001;

struct Cloud {
  std::vector<float> positions;
  std::vector<uint8_t> colours;
  size_t count() const { return positions.size() / 3; }
};

// The interface that nanoflann requires of a point set.
struct PointAdaptor {
  std::span<const float> positions;
  size_t kdtree_get_point_count() const { return positions.size() / 3; }
  float kdtree_get_pt(size_t i, size_t axis) const { return positions[3 * i + axis]; }
  template <class Box>
  bool kdtree_get_bbox(Box&) const {
    return false;
  }
};
using KdTree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, PointAdaptor, double>,
                                                   PointAdaptor, 3, size_t>;

// Root of the mean squared distance to the nearest other points. The floor keeps coincident points from making splats
// of zero size, whose scale gradient vanishes; Kerbl et al. 2023 floor the square at 1e-7, here it is relative to the
// extent because a scene has no unit. A point without neighbours gets a tenth of the extent.
std::vector<double> neighbourDistances(std::span<const float> positions, double extent) {
  const PointAdaptor points{positions};
  const size_t count = points.kdtree_get_point_count();
  if (count < 2) return std::vector<double>(count, 0.1 * extent);
  const KdTree tree(3, points, nanoflann::KDTreeSingleIndexAdaptorParams(10));
  std::vector<double> distances(count);
  for (size_t i = 0; i < count; ++i) {
    size_t indices[kNeighbours + 1];
    double squares[kNeighbours + 1];
    const size_t found = tree.knnSearch(&positions[3 * i], kNeighbours + 1, indices, squares);
    double sum = 0;
    size_t used = 0;
    for (size_t k = 0; k < found && used < kNeighbours; ++k) {
      if (indices[k] == i) continue;
      sum += squares[k];
      ++used;
    }
    const double mean = sum / static_cast<double>(used);
    distances[i] = std::sqrt(std::max(mean, 1e-7 * extent * extent));
  }
  return distances;
}

// Keeps isolated outliers from making giant splats.
void clampToPercentile(std::vector<double>& distances, double fraction) {
  std::vector<double> sorted = distances;
  std::sort(sorted.begin(), sorted.end());
  const double rank = fraction * static_cast<double>(sorted.size() - 1);
  const auto low = static_cast<size_t>(rank);
  const size_t high = std::min(low + 1, sorted.size() - 1);
  const double limit = sorted[low] + (rank - static_cast<double>(low)) * (sorted[high] - sorted[low]);
  for (double& distance : distances) distance = std::min(distance, limit);
}

Cloud randomCloud(uint64_t count, const SeedSettings& settings, double extent, SplitMix64& random) {
  Cloud cloud;
  cloud.positions.reserve(3 * count);
  for (uint64_t i = 0; i < count; ++i) {
    for (size_t a = 0; a < 3; ++a) {
      cloud.positions.push_back(static_cast<float>(settings.centre[a] + (2.0 * random.uniform() - 1.0) * extent));
    }
  }
  cloud.colours.assign(3 * count, 128);
  return cloud;
}

// The point that each splat is made from.
std::vector<size_t> choosePoints(size_t points, uint64_t count, SplitMix64& random) {
  std::vector<size_t> chosen(points);
  std::iota(chosen.begin(), chosen.end(), size_t{0});
  if (points > count) {
    for (size_t i = 0; i < count; ++i) std::swap(chosen[i], chosen[i + random.below(points - i)]);
  }
  chosen.resize(count);
  return chosen;
}

}  // namespace

GaussianSet seedFromPoints(std::span<const float> positions, std::span<const uint8_t> colours,
                           const SeedSettings& settings, SplitMix64& random) {
  const double extent = std::max(settings.extent, kMinExtent);
  Cloud scattered;
  const size_t given = positions.size() / 3;
  if (given == 0 || (settings.randomWhenSparse && given < kMinSeedPoints)) {
    scattered = randomCloud(settings.count == 0 ? kRandomSeeds : std::min(settings.count, kRandomSeeds), settings,
                            extent, random);
    positions = scattered.positions;
    colours = scattered.colours;
  }
  const size_t points = positions.size() / 3;
  std::vector<double> distances = neighbourDistances(positions, extent);
  clampToPercentile(distances, 0.9);

  GaussianSet set;
  set.resize(settings.count == 0 ? points : settings.count);
  const std::vector<size_t> chosen = choosePoints(points, set.count, random);
  const double opacity = std::clamp(static_cast<double>(settings.opacity), 1e-6, 0.999999);
  std::fill(set.opacities.begin(), set.opacities.end(), static_cast<float>(std::log(opacity / (1.0 - opacity))));
  for (uint64_t i = 0; i < set.count; ++i) {
    const size_t point = i < points ? chosen[i] : random.below(points);
    const auto logScale = static_cast<float>(std::log(distances[point] * settings.scaleMultiplier));
    for (size_t a = 0; a < 3; ++a) {
      const double offset = i < points ? 0.0 : random.normal() * distances[point];
      set.positions[3 * i + a] = static_cast<float>(positions[3 * point + a] + offset);
      set.scales[3 * i + a] = logScale;
      set.shDc[3 * i + a] = shDcFromColour(colours[3 * point + a]);
    }
    set.rotations[4 * i] = 1.0f;
  }
  return set;
}

}  // namespace quor::gs
