// A solved COLMAP model and its photographs, ready to train on: every photograph decoded, scaled to the job's
// resolution and freed of lens distortion, with the pinhole camera that belongs to the pixels that are left. However
// many they are, they take a bounded amount of memory (gs/data/host_image_cache.h).
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "colmap/model.h"
#include "gs/data/host_image_cache.h"
#include "gs/data/scene_geometry.h"
#include "gs/render/camera.h"

namespace quor::gs {

struct View {
  std::string name;  // as in the model
  Camera camera;     // of `image`'s size
  StoredImage image;
};

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

// The camera at 1 / 2^level of its size, each edge rounded and at least 1.
Camera cameraAtLevel(const Camera& camera, int level);

// Reads the model, then decodes the photographs on worker threads, each of which holds one photograph at a time.
// `progress` (may be empty) is called with (done, total), never from two threads at once; when `cancel` becomes true
// the load ends with Cancelled. Images that cannot be read, or whose names lead out of the images folder, are skipped
// with a warning in `log`. Views are in name order; when the split would leave no view to train on, no view is held
// out. Throws std::runtime_error with a whole sentence: no model, no images, an invalid camera or pose, an image that
// does not have its camera's shape, no room for the pixels.
Dataset loadDataset(const DatasetOptions& options, LogStore& log, const std::atomic<bool>& cancel,
                    const std::function<void(size_t, size_t)>& progress = {});

}  // namespace quor::gs
