#include "gs/data/dataset.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/parallel.h"
#include "base/text/text.h"
#include "gs/data/source_camera.h"
#include "gs/data/view_loader.h"
#include "gs/data/view_split.h"

namespace quor::gs {
namespace {

colmap::Model readModel(const DatasetOptions& options, LogStore& log) {
  std::filesystem::path folder = options.modelFolder;
  if (folder.empty()) folder = colmap::findModelDir(options.folder);
  if (folder.empty() || !colmap::hasModel(folder)) {
    throw std::runtime_error("No COLMAP model found in " + toUtf8(folder.empty() ? options.folder : folder) +
                             " (expected sparse/0/cameras.bin and images.bin).");
  }
  colmap::Model model = colmap::loadModel(folder, true);
  if (model.images.empty()) throw std::runtime_error("The COLMAP model has no registered images.");

  colmap::Points finite;
  const colmap::Points& points = model.points;
  for (size_t i = 0; i < points.count(); ++i) {
    const auto position = points.positions.begin() + static_cast<std::ptrdiff_t>(3 * i);
    const auto colour = points.colors.begin() + static_cast<std::ptrdiff_t>(3 * i);
    if (!std::all_of(position, position + 3, isCoordinate)) continue;
    finite.positions.insert(finite.positions.end(), position, position + 3);
    finite.colors.insert(finite.colors.end(), colour, colour + 3);
  }
  if (finite.count() < points.count()) {
    log.warning(std::to_string(points.count() - finite.count()) +
                " point(s) of the COLMAP model have no valid position and were dropped.");
  }
  model.points = std::move(finite);
  return model;
}

// Reads the photographs into the pool on worker threads. When several are refused, the first in order is reported.
class PhotographLoader {
 public:
  PhotographLoader(const colmap::Model& model, std::filesystem::path folder, int resolution, HostImageCache& pool,
                   const std::atomic<bool>& cancel, const std::function<void(size_t, size_t)>& progress)
      : images_(model.images),
        folder_(std::move(folder)),
        resolution_(resolution),
        pool_(pool),
        cancel_(cancel),
        progress_(progress),
        views_(images_.size()) {
    for (const colmap::Image& image : images_) sources_.push_back(sourceCamera(model, image));
  }

  // One entry an image, empty where it could not be read.
  std::vector<std::optional<View>> load() {
    parallelFor(images_.size(), [this](size_t i) { loadOne(i); });
    if (cancel_) throw Cancelled();
    return std::move(views_);
  }

 private:
  void loadOne(size_t i) {
    if (cancel_) return;
    try {
      if (std::optional<Image> photograph = readPhotograph(folder_, images_[i].name)) {
        LoadedView view = viewOf(std::move(*photograph), images_[i].name, sources_[i], resolution_);
        views_[i] = View{images_[i].name, view.camera, pool_.store(std::move(view.image))};
      }
    } catch (const std::bad_alloc&) {
      throw std::runtime_error("There is not enough memory for the dataset's images.");
    }
    const std::lock_guard lock(progressMutex_);
    ++done_;
    if (progress_) progress_(done_, images_.size());
  }

  const std::vector<colmap::Image>& images_;
  const std::filesystem::path folder_;
  const int resolution_;
  HostImageCache& pool_;
  const std::atomic<bool>& cancel_;
  const std::function<void(size_t, size_t)>& progress_;
  std::vector<SourceCamera> sources_;
  std::vector<std::optional<View>> views_;
  std::mutex progressMutex_;
  size_t done_ = 0;
};

void warnOfSkipped(const colmap::Model& model, const std::vector<std::optional<View>>& views, LogStore& log) {
  constexpr size_t kNamed = 3;
  size_t skipped = 0;
  std::string names;
  for (size_t i = 0; i < views.size(); ++i) {
    if (views[i]) continue;
    ++skipped;
    if (skipped <= kNamed) names += (skipped > 1 ? ", " : "") + model.images[i].name;
  }
  if (skipped == 0) return;
  if (skipped > kNamed) names += ", ...";
  log.warning(std::to_string(skipped) + " image(s) could not be read and were skipped (" + names + ").");
}

// Splits by the model's images, not by those that could be read, so that an unreadable file moves no other view from
// one list to the other.
void distribute(std::vector<std::optional<View>> views, const DatasetOptions& options, Dataset& dataset,
                LogStore& log) {
  const ViewSplit split = splitViews(views.size(), options.evalMode, options.testEvery);
  const auto move = [&](const std::vector<size_t>& from, std::vector<View>& to) {
    for (const size_t i : from) {
      if (views[i]) to.push_back(std::move(*views[i]));
    }
  };
  move(split.training, dataset.training);
  move(split.heldOut, dataset.heldOut);
  if (dataset.training.empty()) {
    log.warning("Holding views out would leave none to train on, so none is held out.");
    dataset.training.swap(dataset.heldOut);
  }
}

}  // namespace

Camera cameraAtLevel(const Camera& camera, int level) {
  const auto side = [&](int length) { return std::max(1, static_cast<int>(std::lround(std::ldexp(length, -level)))); };
  return camera.resized(side(camera.width), side(camera.height));
}

uint64_t Dataset::imageBytes() const {
  uint64_t bytes = 0;
  for (const View& view : training) bytes += view.image.bytes();
  for (const View& view : heldOut) bytes += view.image.bytes();
  return bytes;
}

Dataset loadDataset(const DatasetOptions& options, LogStore& log, const std::atomic<bool>& cancel,
                    const std::function<void(size_t, size_t)>& progress) {
  colmap::Model model = readModel(options, log);
  const std::filesystem::path folder =
      options.imagesFolder.empty() ? colmap::imagesDir(options.folder) : options.imagesFolder;
  HostImageCache pool(options.pool);
  auto views = PhotographLoader(model, folder, options.resolution, pool, cancel, progress).load();

  std::vector<Camera> cameras;
  for (const auto& view : views) {
    if (view) cameras.push_back(view->camera);
  }
  if (cameras.empty()) {
    throw std::runtime_error("None of the dataset's images could be read from " + toUtf8(folder));
  }
  warnOfSkipped(model, views, log);

  Dataset dataset;
  dataset.pool = pool.options();
  dataset.geometry = sceneGeometry(cameras);
  dataset.points = std::move(model.points);
  distribute(std::move(views), options, dataset, log);
  log.info("Dataset: " + std::to_string(dataset.training.size()) + " training views, " +
           std::to_string(dataset.heldOut.size()) + " held out, " + std::to_string(dataset.points.count()) +
           " sparse points");
  if (pool.filedImages() > 0) {
    log.info(formatText("%zu photographs (%.2f GB) do not fit into memory: a temporary file holds them.",
                        pool.filedImages(), static_cast<double>(pool.filedBytes()) * 1e-9));
  }
  return dataset;
}

}  // namespace quor::gs
