// COLMAP's sparse model as data: cameras, registered images and sparse points, from the binary or the text encoding
// (https://colmap.github.io/format.html). What no reader needs (observations, tracks, point ids) is not kept.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace quor::gs::colmap {

struct Camera {
  uint32_t id = 0;
  int32_t model = 0;  // COLMAP's camera model id
  uint64_t width = 0, height = 0;
  std::vector<double> params;  // in COLMAP's order
};

struct Image {
  uint32_t id = 0;
  uint32_t cameraId = 0;
  std::array<double, 4> qvec = {1, 0, 0, 0};  // world to camera, w x y z
  std::array<double, 3> tvec = {0, 0, 0};
  std::string name;  // relative to the image folder
};

struct Points {
  std::vector<float> positions;  // 3 a point
  std::vector<uint8_t> colors;   // 3 a point
  std::vector<float> errors;     // pixels, mean over the point's observations, -1 unknown; empty in a model just read
  double meanError = -1;         // pixels, over the points that have a reprojection error; -1 when none has
  size_t count() const { return positions.size() / 3; }
};

struct Model {
  std::map<uint32_t, Camera> cameras;
  std::vector<Image> images;  // sorted by name
  Points points;
};

// Whether cameras and images lie in `dir`, both binary or both text.
bool hasModel(const std::filesystem::path& dir);
// The first of sparse/0, sparse, the folder itself and colmap/sparse/0 that holds a model; empty when none does.
std::filesystem::path findModelDir(const std::filesystem::path& projectDir);
std::filesystem::path imagesDir(const std::filesystem::path& root);  // root/images, else root

// The binary files where both are there, else the text files. Points stay empty without `withPoints` and where there is
// no points file. Throws std::runtime_error; never returns part of a model.
Model loadModel(const std::filesystem::path& dir, bool withPoints);

std::string modelName(int32_t id);  // "UNKNOWN" for any other id
// Focal lengths and principal point in pixels. False, with the outputs untouched, for an unknown model and for a camera
// that has too few parameters (the text encoding does not promise their number).
bool intrinsics(const Camera& camera, double& fx, double& fy, double& cx, double& cy);
// Radial and tangential coefficients; zeros for models that have none, and for the fisheye models, whose coefficients
// mean something else.
void distortion(const Camera& camera, double& k1, double& k2, double& p1, double& p2);
bool isSupported(const Camera& camera);  // can be trained on: models 0 to 4

}  // namespace quor::gs::colmap
