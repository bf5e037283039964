// Photographs of a Scene taken on an orbit through the room, and the true model that belongs to them: the cameras that
// took them and points on the surfaces that they show.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "base/image.h"
#include "colmap/model_writer.h"
#include "sample_capture/scene.h"

namespace quor::sample {

// A pinhole camera in its place: x_camera = rotation * x_world + translation, +x right, +y down, +z forward; the centre
// of the first pixel is (0.5, 0.5).
struct PinholeView {
  int width = 0, height = 0;
  double fx = 0, fy = 0, cx = 0, cy = 0;                         // pixels
  std::array<double, 9> rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};  // camera_from_world, row-major
  std::array<double, 3> translation = {0, 0, 0};

  Vec3 toCamera(Vec3 world) const;
  Vec3 centre() const;
  // The ray through a place in the image, in pixels.
  Ray rayThrough(double x, double y) const;
};

struct Orbit {
  int count = 36;
  ImageSize size = {320, 213};
  uint64_t seed = 1;
};

// Once around the middle of the room, rising and sinking, always looking at what stands there.
std::vector<PinholeView> orbitViews(const Orbit& orbit);

// What the camera sees, antialiased with up to 16 rays to a pixel, on all processors. The same scene and view give the
// same bytes.
Image renderView(const Scene& scene, const PinholeView& view);

struct TrueModel {
  gs::colmap::Model model;                             // image ids 1, 2, ... in the order of the views
  std::vector<gs::colmap::Observations> observations;  // one list a view
};

// One PINHOLE camera for all views, which have one size and one focal length, and `points` points, each seen by at
// least two views, with their true colours and true observations. Throws std::runtime_error when the views do not see
// enough of the room together.
TrueModel trueModel(const Scene& scene, const std::vector<PinholeView>& views, size_t points, uint64_t seed);

// The name of a photograph in the capture: "photo_0001.jpg" for view 0.
std::string photoName(size_t view);

}  // namespace quor::sample
