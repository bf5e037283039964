// One photograph of a dataset, from its file to the view that is trained on.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/image/image.h"
#include "gs/data/source_camera.h"

namespace quor::gs {

struct LoadedView {
  Camera camera;  // of `image`'s size
  Image image;
};

// The photograph `name` under `folder`, or nothing when it cannot be read. A name that leads out of the folder is never
// followed.
std::optional<Image> readPhotograph(const std::filesystem::path& folder, const std::string& name);

// Scales a photograph so that the view's longest edge is at most `resolution` (0 = as it is) and undistorts it. Throws
// std::runtime_error when its size is not the camera's, uniformly scaled, or when the lens leaves nothing to see.
LoadedView viewOf(Image photograph, const std::string& name, const SourceCamera& source, int resolution);

}  // namespace quor::gs
