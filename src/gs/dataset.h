// A solved COLMAP model and its photographs, ready to train on: every photograph decoded, scaled to the job's
// resolution and freed of lens distortion, with the pinhole camera that belongs to the pixels that are left.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/image.h"
#include "base/log_store.h"
#include "colmap/model.h"
#include "gs/camera.h"

namespace quor::gs {

struct View {
  std::string name;  // as in the model
  Camera camera;     // of `image`'s size
  Image image;
};

// Where the cameras stand. The extent is the trainer's unit of length: COLMAP scenes have none.
struct SceneGeometry {
  std::array<double, 3> centre = {0, 0, 0};  // mean of the camera centres
  double radius = 1;                         // largest distance of a camera centre from it; 1 when that is not > 1e-6
  double extent = 1.1;                       // 1.1 * radius
  std::array<double, 3> up = {0, -1, 0};     // mean of the cameras' up vectors; (0, -1, 0) when they disagree
};

SceneGeometry sceneGeometry(const std::vector<Camera>& cameras);

struct DatasetOptions {
  std::filesystem::path folder;  // holds images/ and the model (see colmap::findModelDir)
  int resolution = 0;            // longest edge of the images in pixels; 0 = their own size
  bool evalMode = false;         // hold views out
  int testEvery = 8;             // every N-th view in name order, when evalMode is on and N > 0
};

struct Dataset {
  std::vector<View> training;
  std::vector<View> heldOut;
  colmap::Points points;
  SceneGeometry geometry;  // of all registered views that could be read

  uint64_t imageBytes() const;  // of all views
};

// Which of `count` images, in dataset order, are trained on and which are held out.
struct ViewSplit {
  std::vector<size_t> training;
  std::vector<size_t> heldOut;
};
ViewSplit splitViews(size_t count, bool evalMode, int testEvery);

// Reads the model, then decodes the photographs on worker threads. `progress` (may be empty) is called with (done,
// total), never from two threads at once; when `cancel` becomes true the load ends with std::runtime_error "Cancelled".
// Images that cannot be read are skipped with a warning in `log`. Throws std::runtime_error with a whole sentence.
Dataset loadDataset(const DatasetOptions& options, LogStore& log, const std::atomic<bool>& cancel,
                    const std::function<void(size_t, size_t)>& progress = {});

}  // namespace quor::gs
