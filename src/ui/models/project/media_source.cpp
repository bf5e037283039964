#include "ui/models/project/media_source.h"

#include <algorithm>

#include "base/failures.h"
#include "base/files/paths.h"
#include "pipeline/media.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

std::string lastName(const fs::path& path) {
  return toUtf8(path.has_filename() ? path.filename() : path);
}

MediaSource rowOf(const InputSource& input, size_t imagesOfFolder) {
  MediaSource source;
  const fs::path path = fromUtf8(input.path);
  std::error_code ignored;
  source.inputs = {input};
  source.name = lastName(path);
  if (input.kind != InputKind::Images) return source;
  source.folder = fs::is_directory(path, ignored);
  source.images = source.folder ? imagesOfFolder : 1;
  return source;
}

bool isSinglePhotograph(const MediaSource& source) {
  return !source.isVideo() && !source.folder;
}

bool holds(const std::vector<MediaSource>& sources, const std::string& path) {
  return std::ranges::any_of(sources, [&](const MediaSource& source) {
    return std::ranges::any_of(source.inputs, [&](const InputSource& input) { return input.path == path; });
  });
}

}  // namespace

std::string MediaSource::text() const {
  switch (kind()) {
    case InputKind::Video:
      return name + ": video";
    case InputKind::Video360:
      return name + ": 360° video — re-projected into flat views";
    case InputKind::DualFisheye:
      return name + ": dual-fisheye 360° — both lenses extracted, OpenCV fisheye model";
    case InputKind::Images:
      break;
  }
  if (folder) return name + ": " + std::to_string(images) + " images (subfolders included)";
  return images == 1 ? name + ": image" : name + ": " + std::to_string(images) + " images";
}

void addMedia(FoundMedia& media, const fs::path& path, const Classification& found) {
  if (found.type == PathClass::Missing) {
    media.problems.push_back("No such file or folder: " + toUtf8(path));
    return;
  }
  if (found.type != PathClass::Media) {
    const char* what = found.type == PathClass::Project   ? " is an Ombrelux project: open it by itself."
                       : found.type == PathClass::Dataset ? " holds a COLMAP reconstruction: import it by itself."
                                                          : " holds no images or videos, so it was left out.";
    media.problems.push_back(toUtf8(path) + what);
    return;
  }
  media.origins.push_back(path);
  for (const InputSource& input : found.inputs) {
    std::vector<InputSource> one = {input};
    try {
      detectVideoKinds(one);
      mergeMedia(media.sources, {rowOf(one.front(), found.imageCount)});
    } catch (const std::exception& error) {
      media.problems.push_back(failureText(error));
    }
  }
}

void mergeMedia(std::vector<MediaSource>& sources, const std::vector<MediaSource>& more) {
  for (MediaSource source : more) {
    std::erase_if(source.inputs, [&](const InputSource& input) { return holds(sources, input.path); });
    if (source.inputs.empty()) continue;
    if (!isSinglePhotograph(source)) {
      sources.push_back(std::move(source));
      continue;
    }
    const fs::path folder = fromUtf8(source.inputs.front().path).parent_path();
    const auto same = std::ranges::find_if(sources, [&](const MediaSource& other) {
      return isSinglePhotograph(other) && fromUtf8(other.inputs.front().path).parent_path() == folder;
    });
    if (same == sources.end()) {
      sources.push_back(std::move(source));
      continue;
    }
    same->inputs.insert(same->inputs.end(), source.inputs.begin(), source.inputs.end());
    same->images = same->inputs.size();
    same->name = lastName(folder);
  }
}

std::vector<std::string> foundLines(const std::vector<fs::path>& origins, const std::vector<MediaSource>& sources) {
  std::string place = std::to_string(origins.size()) + (origins.size() == 1 ? " selection" : " selections");
  std::error_code ignored;
  if (origins.size() == 1 && fs::is_directory(origins.front(), ignored)) place = toUtf8(origins.front());
  std::vector<std::string> lines = {"Found " + std::to_string(sources.size()) + " sources in " + place};
  for (const MediaSource& source : sources) lines.push_back(source.text());
  return lines;
}

}  // namespace quor::ui
