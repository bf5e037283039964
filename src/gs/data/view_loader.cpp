#include "gs/data/view_loader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include "base/files/paths.h"

namespace quor::gs {
namespace {

constexpr int kMinPixels = 8;

bool staysInside(const std::filesystem::path& path) {
  return !path.empty() && !path.has_root_path() && std::find(path.begin(), path.end(), "..") == path.end();
}

// Each edge may have been rounded to a whole pixel, so a scaled image of very few pixels would pass for any shape.
bool uniformlyScaled(const Camera& camera, int width, int height) {
  if (width == camera.width && height == camera.height) return true;
  if (std::min(width, height) < kMinPixels) return false;
  const int64_t difference = int64_t{width} * camera.height - int64_t{height} * camera.width;
  return std::abs(difference) <= std::max(camera.width, camera.height);
}

std::string sizeText(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// The scale in (0, 1] that brings the longest edge down to `resolution`.
double scaleTo(int resolution, double longestEdge) {
  return resolution > 0 && longestEdge > resolution ? resolution / longestEdge : 1.0;
}

void shrink(Image& image, Camera& camera, double scale) {
  const auto side = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * scale))); };
  const int width = side(image.width);
  const int height = side(image.height);
  if (width == image.width && height == image.height) return;
  image = resizeImage(image, width, height);
  camera = camera.resized(width, height);
}

}  // namespace

std::optional<Image> readPhotograph(const std::filesystem::path& folder, const std::string& name) {
  const std::filesystem::path relative = fromUtf8(name);
  if (!staysInside(relative)) return std::nullopt;
  const std::filesystem::path file = folder / relative;
  std::error_code ignored;
  // A pipe or a device in an image's place must not stall the load.
  if (!std::filesystem::is_regular_file(file, ignored)) return std::nullopt;
  try {
    return readImage(file);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

LoadedView viewOf(Image photograph, const std::string& name, const SourceCamera& source, int resolution) {
  if (!uniformlyScaled(source.camera, photograph.width, photograph.height)) {
    throw std::runtime_error("Image " + name + " has " + sizeText(photograph.width, photograph.height) +
                             " pixels, but its camera in the COLMAP model has " +
                             sizeText(source.camera.width, source.camera.height) +
                             ". Was it rotated or cropped after the cameras were solved?");
  }
  Camera camera = source.camera.resized(photograph.width, photograph.height);
  if (source.distortion.none()) {
    shrink(photograph, camera, scaleTo(resolution, std::max(camera.width, camera.height)));
    return {camera, std::move(photograph)};
  }
  // It is the undistorted view that must keep within the resolution: it can be smaller or larger than the photograph.
  const PlaneWindow window = visibleWindow(camera, source.distortion);
  if (window.empty()) {
    throw std::runtime_error("Image " + name +
                             " cannot be undistorted: its camera in the COLMAP model has a lens "
                             "distortion that leaves nothing to see.");
  }
  const double longest = std::max(camera.fx * (window.right - window.left), camera.fy * (window.bottom - window.top));
  const double scale = scaleTo(resolution, longest);
  const Camera target = windowCamera(camera, window, scale);
  shrink(photograph, camera, scale);
  return {target, undistort(photograph, camera, source.distortion, target)};
}

}  // namespace quor::gs
