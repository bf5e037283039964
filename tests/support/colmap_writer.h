// Writes COLMAP models for tests, in the binary encoding: unlike the text one it holds every value, also invalid ones.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "colmap/model.h"
#include "support/temp_folder.h"

namespace quor::test {

template <typename T>
void append(std::string& bytes, const T& value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

inline std::string cameraBytes(const gs::colmap::Model& model) {
  std::string bytes;
  append(bytes, uint64_t{model.cameras.size()});
  for (const auto& [id, camera] : model.cameras) {
    append(bytes, id);
    append(bytes, camera.model);
    append(bytes, camera.width);
    append(bytes, camera.height);
    for (const double value : camera.params) append(bytes, value);
  }
  return bytes;
}

inline std::string imageBytes(const gs::colmap::Model& model) {
  std::string bytes;
  append(bytes, uint64_t{model.images.size()});
  for (const gs::colmap::Image& image : model.images) {
    append(bytes, image.id);
    append(bytes, image.qvec);
    append(bytes, image.tvec);
    append(bytes, image.cameraId);
    bytes += image.name;
    bytes += '\0';
    append(bytes, uint64_t{0});
  }
  return bytes;
}

inline std::string pointBytes(const gs::colmap::Model& model) {
  std::string bytes;
  append(bytes, uint64_t{model.points.count()});
  for (size_t i = 0; i < model.points.count(); ++i) {
    append(bytes, uint64_t{i});
    for (size_t a = 0; a < 3; ++a) append(bytes, static_cast<double>(model.points.positions[3 * i + a]));
    for (size_t c = 0; c < 3; ++c) append(bytes, model.points.colors[3 * i + c]);
    append(bytes, 0.0);
    append(bytes, uint64_t{0});
  }
  return bytes;
}

inline void writeModel(const std::filesystem::path& folder, const gs::colmap::Model& model) {
  writeFile(folder / "cameras.bin", cameraBytes(model));
  writeFile(folder / "images.bin", imageBytes(model));
  writeFile(folder / "points3D.bin", pointBytes(model));
}

}  // namespace quor::test
