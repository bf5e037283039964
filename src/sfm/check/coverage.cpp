#include "sfm/check/coverage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <set>

#include "sfm/refine/pose.h"

namespace quor {
namespace {

constexpr size_t kFewestAround = 6;
constexpr double kInwards = 0.5;  // cosine between the view and the way to the scene's middle
constexpr int kSectors = 12;
constexpr double kSector = 360.0 / kSectors;
constexpr double kDegree = std::numbers::pi / 180;

std::optional<Eigen::Vector3d> medianPoint(const gs::colmap::Model& model) {
  std::array<std::vector<double>, 3> along;
  for (size_t i = 0; i < model.points.positions.size(); ++i) along[i % 3].push_back(double{model.points.positions[i]});
  Eigen::Vector3d middle;
  for (size_t k = 0; k < 3; ++k) {
    if (along[k].empty()) return std::nullopt;
    const auto half = along[k].begin() + static_cast<std::ptrdiff_t>(along[k].size() / 2);
    std::ranges::nth_element(along[k], half);
    middle[static_cast<Eigen::Index>(k)] = *half;
  }
  return middle;
}

int sectorOf(double azimuth) {
  return static_cast<int>(azimuth / kSector) % kSectors;
}

std::set<int> coveredSectors(const Coverage& coverage) {
  std::set<int> sectors;
  for (const Coverage::Place& place : coverage.places) sectors.insert(sectorOf(place.azimuth));
  return sectors;
}

std::vector<CameraReport::Gap> gapsOf(const std::vector<Coverage::Place>& places) {
  std::vector<CameraReport::Gap> gaps;
  for (size_t i = 0; i < places.size(); ++i) {
    const Coverage::Place &first = places[i], &second = places[(i + 1) % places.size()];
    const double degrees = std::fmod(second.azimuth - first.azimuth + 360, 360);
    if (degrees > kSector) gaps.push_back({first.image, second.image, degrees});
  }
  return gaps;
}

}  // namespace

std::optional<Coverage> coverageOf(const gs::colmap::Model& model) {
  const std::optional<Eigen::Vector3d> middle = medianPoint(model);
  if (!middle || model.images.size() < kFewestAround) return std::nullopt;
  Eigen::Vector3d up = Eigen::Vector3d::Zero();  // against the images' own downward axes
  size_t inwards = 0;
  for (const gs::colmap::Image& image : model.images) {
    const refine::Pose pose = refine::poseOf(image);
    up -= pose.rotation.conjugate() * Eigen::Vector3d::UnitY();
    const Eigen::Vector3d view = pose.rotation.conjugate() * Eigen::Vector3d::UnitZ();
    inwards += view.dot((*middle - pose.centre()).normalized()) > kInwards ? 1 : 0;
  }
  if (up.norm() < 1e-9 || 10 * inwards < 8 * model.images.size()) return std::nullopt;
  const Eigen::Quaterniond level = Eigen::Quaterniond::FromTwoVectors(up, Eigen::Vector3d::UnitZ());
  Coverage coverage;
  for (const gs::colmap::Image& image : model.images) {
    const Eigen::Vector3d from = level * (refine::poseOf(image).centre() - *middle);
    const double azimuth = std::atan2(from.y(), from.x()) / kDegree;
    coverage.places.push_back(
        {image.name, std::fmod(azimuth + 360, 360), std::atan2(from.z(), std::hypot(from.x(), from.y())) / kDegree});
  }
  std::ranges::sort(coverage.places, {}, &Coverage::Place::azimuth);
  coverage.degrees = kSector * static_cast<double>(coveredSectors(coverage).size());
  coverage.gaps = gapsOf(coverage.places);
  return coverage;
}

Image drawCoverage(const Coverage& coverage) {
  constexpr int kSide = 320, kFiner = 3;
  constexpr double kRim = 0.48, kDot = 0.011, kLine = 0.003;  // shares of the side
  constexpr std::array<double, 3> kPaper{255, 255, 255}, kCovered{196, 228, 200}, kOpen{246, 208, 200},
      kInk{40, 44, 52};
  const std::set<int> covered = coveredSectors(coverage);
  struct Dot {
    double x, y, radius;
  };
  std::vector<Dot> dots;
  const auto first = std::ranges::min_element(coverage.places, {}, &Coverage::Place::image);
  for (auto place = coverage.places.begin(); place != coverage.places.end(); ++place) {
    const double radius = kRim * (90 - place->elevation) / 180, angle = place->azimuth * kDegree;
    dots.push_back({radius * std::cos(angle), -radius * std::sin(angle), place == first ? 2 * kDot : kDot});
  }
  const int side = kFiner * kSide;
  Image picture{side, side, {}};
  picture.rgb.reserve(static_cast<size_t>(side) * static_cast<size_t>(side) * 3);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      const double x = (column + 0.5) / side - 0.5, y = (row + 0.5) / side - 0.5, radius = std::hypot(x, y);
      const double azimuth = std::fmod(std::atan2(-y, x) / kDegree + 360, 360);
      std::array<double, 3> color = kPaper;
      if (radius < kRim) color = covered.contains(sectorOf(azimuth)) ? kCovered : kOpen;
      const bool circle = std::abs(radius - kRim) < kLine || std::abs(radius - kRim / 2) < kLine / 2;
      const bool dot =
          std::ranges::any_of(dots, [&](const Dot& at) { return std::hypot(x - at.x, y - at.y) < at.radius; });
      if (circle || dot) color = kInk;
      for (const double value : color) picture.rgb.push_back(static_cast<uint8_t>(value));
    }
  }
  return resizeImage(picture, kSide, kSide);
}

}  // namespace quor
