#include "ingest/camera_groups.h"

#include <algorithm>
#include <cmath>

#include "base/text/text.h"

namespace quor {
namespace {

bool mayBeSame(const std::string& a, const std::string& b) {
  return a.empty() || b.empty() || a == b;
}

// Cameras round the same length in different ways.
bool mayBeSame(double a, double b) {
  return a == 0 || b == 0 || std::abs(a - b) < 0.005 * std::max(a, b);
}

bool mayBeSame(const PhotoInfo& a, const PhotoInfo& b) {
  return mayBeSame(a.make, b.make) && mayBeSame(a.model, b.model) && mayBeSame(a.focal35mm, b.focal35mm) &&
         mayBeSame(a.focalLength, b.focalLength);
}

}  // namespace

void CameraGroups::add(const std::string& image, ImageSize size, const PhotoInfo& info) {
  auto group = std::ranges::find_if(groups_, [&](const Group& g) {
    return g.size.width == size.width && g.size.height == size.height && mayBeSame(g.camera, info);
  });
  if (group == groups_.end()) group = groups_.insert(groups_.end(), {size, info, {}});
  PhotoInfo& camera = group->camera;
  if (camera.make.empty()) camera.make = info.make;
  if (camera.model.empty()) camera.model = info.model;
  if (camera.focal35mm == 0) camera.focal35mm = info.focal35mm;
  if (camera.focalLength == 0) camera.focalLength = info.focalLength;
  group->images.push_back(image);
}

std::vector<CameraGroup> CameraGroups::finish() {
  std::vector<CameraGroup> result;
  for (Group& from : groups_) {
    CameraGroup group;
    group.name = groups_.size() == 1 ? "photos" : formatText("photos%02zu", result.size() + 1);
    group.images = std::move(from.images);
    group.signature =
        formatText("%d x %d, %s, %s, %.1f mm (%.2f mm)", from.size.width, from.size.height, from.camera.make.c_str(),
                   from.camera.model.c_str(), from.camera.focal35mm, from.camera.focalLength);
    result.push_back(std::move(group));
  }
  groups_.clear();
  return result;
}

}  // namespace quor
