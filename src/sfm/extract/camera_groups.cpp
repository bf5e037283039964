#include "sfm/extract/camera_groups.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "base/files/paths.h"
#include "base/image/image.h"
#include "base/parallel.h"
#include "project/classify.h"

namespace quor {
namespace {

using Size = std::pair<int, int>;  // {0, 0}: cannot be read

std::vector<Size> frameSizes(const Project& project, const std::vector<std::string>& frames) {
  std::vector<Size> sizes(frames.size());
  parallelFor(frames.size(), [&](size_t i) {
    try {
      const ImageSize size = readImageSize(project.framesFolder() / fromUtf8(frames[i]));
      sizes[i] = {size.width, size.height};
    } catch (const std::exception&) {
    }
  });
  return sizes;
}

std::vector<ImageGroup> groupBySize(const Project& project, const std::vector<std::string>& frames, LogStore& log) {
  const std::vector<Size> sizes = frameSizes(project, frames);
  std::map<Size, ImageGroup> bySize;
  for (size_t i = 0; i < frames.size(); ++i) {
    if (sizes[i] == Size{}) {
      log.warning("The frame " + frames[i] + " cannot be read and is left out.");
      continue;
    }
    bySize[sizes[i]].images.push_back(frames[i]);
  }
  std::vector<ImageGroup> groups;
  for (auto& [size, group] : bySize) {
    group.name = std::to_string(size.first) + "x" + std::to_string(size.second);
    groups.push_back(std::move(group));
  }
  return groups;
}

}  // namespace

std::vector<std::string> frameNames(const Project& project) {
  const std::filesystem::path folder = project.framesFolder();
  std::vector<std::string> names;
  for (const std::filesystem::path& path : findMedia(folder).images) {
    const std::u8string name = path.lexically_relative(folder).generic_u8string();
    names.emplace_back(name.begin(), name.end());
  }
  return names;
}

std::vector<ImageGroup> cameraGroups(const Project& project, const std::vector<std::string>& frames, LogStore& log) {
  std::map<std::string, size_t> groupOf;
  for (size_t g = 0; g < project.extraction.groups.size(); ++g) {
    for (const std::string& image : project.extraction.groups[g].images) groupOf.emplace(image, g);
  }

  std::vector<ImageGroup> groups = project.extraction.groups;
  for (ImageGroup& group : groups) group.images.clear();
  std::vector<std::string> others;
  for (const std::string& frame : frames) {
    const auto found = groupOf.find(frame);
    (found == groupOf.end() ? others : groups[found->second].images).push_back(frame);
  }
  std::erase_if(groups, [](const ImageGroup& group) { return group.images.empty(); });
  for (ImageGroup& group : groupBySize(project, others, log)) groups.push_back(std::move(group));

  for (ImageGroup& group : groups) {
    if (!group.cameraModel.empty()) continue;
    group.cameraModel = project.sparse.cameraModel;
    group.cameraParams.clear();  // they belong to no model
  }
  return groups;
}

bool hasFixedIntrinsics(const std::vector<ImageGroup>& groups) {
  return std::ranges::all_of(
      groups, [](const ImageGroup& group) { return group.cameraModel == "PINHOLE" && !group.cameraParams.empty(); });
}

}  // namespace quor
