#include "project/classify.h"

#include <algorithm>
#include <string_view>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "colmap/model.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kVideoExtensions[] = {".mp4",  ".mov",  ".m4v", ".mkv", ".avi", ".webm", ".mts",
                                                 ".m2ts", ".insv", ".360", ".wmv", ".mpg", ".mpeg"};
constexpr std::string_view kImageExtensions[] = {".jpg", ".jpeg", ".png",  ".bmp",  ".tga",
                                                 ".tif", ".tiff", ".webp", ".heic", ".heif"};

std::string extensionOf(const fs::path& path) {
  return toLower(toUtf8(path.extension()));
}

void walk(const fs::path& folder, MediaFiles& found) {
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const fs::path& path = it->path();
    std::error_code unreadable;
    if (toUtf8(path.filename()).starts_with('.')) continue;
    // A link to a folder is not followed: it may lead to itself, or out of what the user gave.
    if (it->symlink_status(unreadable).type() == fs::file_type::directory) {
      if (!Project::isProject(path)) walk(path, found);
    } else if (it->is_regular_file(unreadable)) {
      if (isImageFile(path)) found.images.push_back(path);
      if (isVideoFile(path)) found.videos.push_back(path);
    }
  }
}

Classification classifyFile(const fs::path& path) {
  const std::string extension = extensionOf(path);
  if (extension == ".ply") return {PathClass::Scene, {}, 0};
  if (extension == ".quor") return {PathClass::Checkpoint, {}, 0};
  if (isImageFile(path)) return {PathClass::Media, {{toUtf8(path), InputKind::Images}}, 1};
  if (isVideoFile(path)) return {PathClass::Media, {{toUtf8(path), InputKind::Video}}, 0};
  return {};
}

Classification classifyFolder(const fs::path& folder) {
  if (Project::isProject(folder)) return {PathClass::Project, {}, 0};
  std::error_code ignored;
  if (fs::is_directory(folder / "images", ignored) && !gs::colmap::findModelDir(folder).empty()) {
    return {PathClass::Dataset, {}, 0};
  }
  const MediaFiles media = findMedia(folder);
  Classification result;
  result.imageCount = media.images.size();
  if (!media.images.empty()) result.inputs.push_back({toUtf8(folder), InputKind::Images});
  for (const fs::path& video : media.videos) result.inputs.push_back({toUtf8(video), InputKind::Video});
  if (!result.inputs.empty()) result.type = PathClass::Media;
  return result;
}

}  // namespace

fs::path absolutePath(const std::string& path) {
  fs::path absolute = fs::absolute(fromUtf8(path));
  const bool hasParents = std::find(absolute.begin(), absolute.end(), "..") != absolute.end();
  absolute = hasParents ? fs::weakly_canonical(absolute) : absolute.lexically_normal();
  return absolute.has_filename() || !absolute.has_relative_path() ? absolute : absolute.parent_path();
}

bool isVideoFile(const fs::path& path) {
  return std::ranges::count(kVideoExtensions, extensionOf(path)) > 0;
}
bool isImageFile(const fs::path& path) {
  return std::ranges::count(kImageExtensions, extensionOf(path)) > 0;
}

MediaFiles findMedia(const fs::path& folder) {
  MediaFiles found;
  walk(folder, found);
  for (auto* files : {&found.images, &found.videos}) {
    std::ranges::sort(*files, {}, [](const fs::path& path) { return toUtf8(path); });
  }
  return found;
}

Classification classifyPath(const fs::path& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (fs::is_directory(status)) return classifyFolder(path);
  if (fs::is_regular_file(status)) return classifyFile(path);
  return {fs::exists(status) ? PathClass::Nothing : PathClass::Missing, {}, 0};
}

}  // namespace quor
