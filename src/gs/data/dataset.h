// A solved COLMAP model and its photographs, ready to train on: every photograph decoded, scaled to the job's
// resolution and freed of lens distortion, with the pinhole camera that belongs to the pixels that are left. However
// many they are, they take a bounded amount of memory (gs/image_pool.h).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/image/image.h"
#include "base/log/log_store.h"
#include "colmap/model.h"
#include "gs/data/host_image_cache.h"
#include "gs/render/camera.h"

namespace quor::gs {

// A view with its pixels at hand: one at a time, or one a thread.
struct LoadedView {
  std::string name;  // as in the model
  Camera camera;     // of `image`'s size
  Image image;
};

struct View {
  std::string name;  // as in the model
  Camera camera;     // of `image`'s size
  StoredImage image;

  LoadedView load() const { return {name, camera, image.load()}; }
};

// Where the cameras stand. The extent is the trainer's unit of length: COLMAP scenes have none.
struct SceneGeometry {
  std::array<double, 3> centre = {0, 0, 0};  // mean of the camera centres
  double radius = 1;                         // largest distance of a camera centre from it; 1 when that is not > 1e-6
  double extent = 1.1;                       // 1.1 * radius
  // The mean of the cameras' up vectors, normalised; (0, -1, 0) when they disagree (the mean is shorter than 0.5).
  std::array<double, 3> up = {0, -1, 0};
};

SceneGeometry sceneGeometry(const std::vector<Camera>& cameras);

struct DatasetOptions {
  std::filesystem::path folder;  // holds images/ and the model (see colmap::findModelDir)
  int resolution = 0;            // longest edge of the images in pixels; 0 = their own size
  bool evalMode = false;         // hold views out
  int testEvery = 8;             // every N-th view in name order, when evalMode is on and N > 0

  // Where the two lie apart from each other; empty = found from `folder`.
  std::filesystem::path imagesFolder;
  std::filesystem::path modelFolder;

  HostImageCacheOptions pool = {};  // for the photographs, training and held-out
};

struct Dataset {
  std::vector<View> training;
  std::vector<View> heldOut;
  colmap::Points points;
  SceneGeometry geometry;      // of all registered views that could be read
  HostImageCacheOptions pool;  // that the photographs lie in

  uint64_t imageBytes() const;  // of all views
};

// Which of `count` images, in dataset order, are trained on and which are held out.
struct ViewSplit {
  std::vector<size_t> training;
  std::vector<size_t> heldOut;
};
ViewSplit splitViews(size_t count, bool evalMode, int testEvery);

// The camera at 1 / 2^level of its size, each edge rounded and at least 1.
Camera cameraAtLevel(const Camera& camera, int level);

// Reads the model, then decodes the photographs on worker threads, each of which holds no more than the one that it
// is at. `progress` (may be empty) is called with (done, total), never from two threads at once; when `cancel`
// becomes true the load ends with std::runtime_error "Cancelled". Images that cannot be read, or whose names lead
// out of the images folder, are skipped with a warning in `log`; views are in name order, and when the split would
// leave none to train on, none is held out. Throws std::runtime_error with a whole sentence: no model, no images, a
// camera or a pose that is none, an image that is not its camera's shape, no room for the pixels.
Dataset loadDataset(const DatasetOptions& options, LogStore& log, const std::atomic<bool>& cancel,
                    const std::function<void(size_t, size_t)>& progress = {});

}  // namespace quor::gs
