#include "ui/models/view/view_content.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/split_mix64.h"
#include "base/text/text.h"
#include "colmap/model.h"
#include "gs/data/seed.h"
#include "gs/files/checkpoint.h"
#include "gs/files/ply.h"
#include "project/camera_report.h"
#include "ui/models/view/vec3.h"

namespace quor::ui {
namespace {

constexpr float kPointOpacity = 0.95f;
constexpr float kPointScale = 0.05f;  // of the distance to a point's neighbours: dots
constexpr size_t kSampledPoints = 2000;

float middle(std::vector<float>& values, double share) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

std::shared_ptr<const gs::GaussianSet> pointSplats(const gs::colmap::Points& points) {
  if (points.count() == 0) return nullptr;
  gs::SeedSettings settings;
  settings.opacity = kPointOpacity;
  settings.scaleMultiplier = kPointScale;
  settings.randomWhenSparse = false;
  SplitMix64 random = SplitMix64::fromSeed(0);
  auto set = std::make_shared<gs::GaussianSet>(gs::seedFromPoints(points.positions, points.colors, settings, random));
  set->shDegree = 0;
  return set;
}

// The median depth of the points before a camera, and of the cameras the median.
double typicalDistance(const CameraSet& cameras, const gs::colmap::Points& points) {
  std::vector<float> distances;
  const size_t stride = std::max<size_t>(points.count() / kSampledPoints, 1);
  for (const PosedPhoto& photo : cameras.photos) {
    const gs::Camera& camera = photo.source.camera;
    const Vec3 forward = {camera.rotation[6], camera.rotation[7], camera.rotation[8]};
    std::vector<float> depths;
    for (size_t i = 0; i < points.count(); i += stride) {
      const float* p = &points.positions[3 * i];
      const double depth = dot(forward, Vec3{p[0], p[1], p[2]}) + camera.translation[2];
      if (depth > 0) depths.push_back(static_cast<float>(depth));
    }
    if (!depths.empty()) distances.push_back(middle(depths, 0.5));
  }
  return distances.empty() ? cameras.geometry.radius : static_cast<double>(middle(distances, 0.5));
}

// The report lies beside the dataset that a project's solve has made.
void markFaults(const std::filesystem::path& dataset, CameraSet& set) {
  Project owner;
  owner.root = dataset.parent_path().parent_path();
  if (owner.solvedFolder() != dataset) return;
  const std::optional<CameraReport> report = CameraReport::load(owner);
  if (!report) return;
  std::map<std::string, size_t> places;
  for (size_t i = 0; i < set.photos.size(); ++i) places[set.photos[i].name] = i;
  const auto pairOf = [&](const auto& named) -> std::optional<std::array<size_t, 2>> {
    const auto first = places.find(named.first), second = places.find(named.second);
    if (first == places.end() || second == places.end()) return {};
    return std::array{first->second, second->second};
  };
  for (const CameraReport::Jump& jump : report->jumps) {
    if (const auto pair = pairOf(jump)) set.jumps.push_back(*pair);
  }
  if (report->trust != CameraTrust::Sound && report->weakestLink) set.weakestLink = pairOf(*report->weakestLink);
}

}  // namespace

CameraSet loadCameras(const std::filesystem::path& dataset) {
  const std::filesystem::path folder = gs::colmap::findModelDir(dataset);
  if (folder.empty()) throw std::runtime_error("No camera solve in " + toUtf8(dataset) + ".");
  const gs::colmap::Model model = gs::colmap::loadModel(folder, true);
  CameraSet set;
  set.images = gs::colmap::imagesDir(dataset);
  std::vector<gs::Camera> cameras;
  for (const gs::colmap::Image& image : model.images) {
    set.photos.push_back({image.name, gs::sourceCamera(model, image)});
    cameras.push_back(set.photos.back().source.camera);
  }
  set.geometry = gs::sceneGeometry(cameras);
  set.points = pointSplats(model.points);
  set.viewDistance = typicalDistance(set, model.points);
  markFaults(dataset, set);
  return set;
}

std::shared_ptr<const gs::GaussianSet> loadScene(const std::filesystem::path& file) {
  if (toLower(toUtf8(file.extension())) == ".quor") {
    return std::make_shared<gs::GaussianSet>(gs::readCheckpoint(file).set);
  }
  return std::make_shared<gs::GaussianSet>(gs::readPly(file));
}

Ball ballOf(const gs::GaussianSet& set) {
  Ball ball;
  if (set.count == 0) return ball;
  std::vector<float> values;
  for (size_t axis = 0; axis < 3; ++axis) {
    values.clear();
    for (uint64_t i = 0; i < set.count; ++i) values.push_back(set.positions[3 * i + axis]);
    ball.centre[axis] = static_cast<double>(middle(values, 0.5));
  }
  values.clear();
  for (uint64_t i = 0; i < set.count; ++i) {
    const float* p = &set.positions[3 * i];
    values.push_back(static_cast<float>(length(Vec3{p[0], p[1], p[2]} - ball.centre)));
  }
  ball.radius = std::max(static_cast<double>(middle(values, 0.8)), 1e-6);
  return ball;
}

}  // namespace quor::ui
