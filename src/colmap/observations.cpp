#include "colmap/observations.h"

#include <stdexcept>
#include <unordered_map>

#include "colmap/model_files.h"

namespace quor::gs::colmap {

std::vector<Observations> loadObservations(const std::filesystem::path& dir, const Model& model) {
  std::unordered_map<uint64_t, size_t> points;
  for (const uint64_t id : readPointIdsBinary(dir / "points3D.bin")) points.emplace(id, points.size());
  std::map<uint32_t, Observations> lists = readObservationsBinary(dir / "images.bin", points);
  std::vector<Observations> observations;
  observations.reserve(model.images.size());
  for (const Image& image : model.images) {
    const auto list = lists.find(image.id);
    if (list == lists.end()) throw std::runtime_error("The COLMAP model has no observations of " + image.name);
    observations.push_back(std::move(list->second));
  }
  return observations;
}

}  // namespace quor::gs::colmap
