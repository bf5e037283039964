#include "colmap/model.h"

#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "colmap/model_files.h"

namespace quor::gs::colmap {
namespace {

namespace fs = std::filesystem;

// Indexed by COLMAP's id.
constexpr CameraModel kCameraModels[] = {
    {"SIMPLE_PINHOLE", 3, true},
    {"PINHOLE", 4, false},
    {"SIMPLE_RADIAL", 4, true},
    {"RADIAL", 5, true},
    {"OPENCV", 8, false},
    {"OPENCV_FISHEYE", 8, false},
    {"FULL_OPENCV", 12, false},
    {"FOV", 5, false},
    {"SIMPLE_RADIAL_FISHEYE", 4, true},
    {"RADIAL_FISHEYE", 5, true},
    {"THIN_PRISM_FISHEYE", 12, false},
};

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

bool hasPair(const fs::path& dir, const char* extension) {
  return isThere(dir / (std::string("cameras") + extension)) && isThere(dir / (std::string("images") + extension));
}

}  // namespace

const CameraModel* cameraModel(int32_t id) {
  if (id < 0 || id >= static_cast<int32_t>(std::size(kCameraModels))) return nullptr;
  return &kCameraModels[id];
}

std::optional<int32_t> cameraModelId(std::string_view name) {
  const auto found = std::ranges::find(kCameraModels, name, &CameraModel::name);
  if (found == std::end(kCameraModels)) return std::nullopt;
  return static_cast<int32_t>(found - std::begin(kCameraModels));
}

std::ifstream openModelFile(const fs::path& path) {
  std::error_code ignored;
  std::ifstream file;
  // Opening a pipe would wait for somebody to write into it.
  if (fs::is_regular_file(path, ignored)) file.open(path, std::ios::binary);
  if (!file.is_open()) throw std::runtime_error("Cannot open " + toUtf8(path));
  return file;
}

bool hasModel(const fs::path& dir) {
  return hasPair(dir, ".bin") || hasPair(dir, ".txt");
}

fs::path findModelDir(const fs::path& projectDir) {
  for (const fs::path& dir :
       {projectDir / "sparse" / "0", projectDir / "sparse", projectDir, projectDir / "colmap" / "sparse" / "0"}) {
    if (hasModel(dir)) return dir;
  }
  return {};
}

fs::path imagesDir(const fs::path& root) {
  std::error_code ignored;
  return fs::is_directory(root / "images", ignored) ? root / "images" : root;
}

Model loadModel(const fs::path& dir, bool withPoints) {
  Model model;
  if (hasPair(dir, ".bin")) {
    model.cameras = readCamerasBinary(dir / "cameras.bin");
    model.images = readImagesBinary(dir / "images.bin");
    if (withPoints && isThere(dir / "points3D.bin")) model.points = readPointsBinary(dir / "points3D.bin");
  } else if (hasPair(dir, ".txt")) {
    model.cameras = readCamerasText(dir / "cameras.txt");
    model.images = readImagesText(dir / "images.txt");
    if (withPoints && isThere(dir / "points3D.txt")) model.points = readPointsText(dir / "points3D.txt");
  } else {
    throw std::runtime_error("No COLMAP model (cameras + images) in " + toUtf8(dir));
  }
  // File-name order is time order for extracted frames; ids are not.
  std::ranges::stable_sort(model.images, {}, &Image::name);
  return model;
}

std::string modelName(int32_t id) {
  const CameraModel* model = cameraModel(id);
  return model ? std::string(model->name) : "UNKNOWN";
}

bool intrinsics(const Camera& camera, double& fx, double& fy, double& cx, double& cy) {
  const CameraModel* model = cameraModel(camera.model);
  const std::vector<double>& p = camera.params;
  if (!model || p.size() < (model->oneFocal ? 3u : 4u)) return false;
  fx = p[0];
  fy = model->oneFocal ? p[0] : p[1];
  cx = model->oneFocal ? p[1] : p[2];
  cy = model->oneFocal ? p[2] : p[3];
  return true;
}

void distortion(const Camera& camera, double& k1, double& k2, double& p1, double& p2) {
  const auto param = [&](size_t i) { return i < camera.params.size() ? camera.params[i] : 0.0; };
  k1 = k2 = p1 = p2 = 0;
  switch (camera.model) {
    case 2:
      k1 = param(3);
      break;
    case 3:
      k1 = param(3);
      k2 = param(4);
      break;
    case 4:
    case 6:
      k1 = param(4);
      k2 = param(5);
      p1 = param(6);
      p2 = param(7);
      break;
    default:
      break;
  }
}

bool isSupported(const Camera& camera) {
  return camera.model >= 0 && camera.model <= 4;
}

}  // namespace quor::gs::colmap
