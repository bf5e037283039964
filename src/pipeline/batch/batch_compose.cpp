// Which captures a folder holds.
#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "pipeline/batch/batch_file.h"
#include "pipeline/intake.h"
#include "pipeline/media.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

// Throws std::filesystem::filesystem_error.
std::vector<fs::path> entriesOf(const fs::path& folder) {
  std::vector<fs::path> entries;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const bool hidden = toUtf8(entry.path().filename()).starts_with('.');
    std::error_code ignored;
    // A single photograph is no capture.
    const bool photo = entry.is_regular_file(ignored) && isImageFile(entry.path());
    if (!hidden && !photo) entries.push_back(entry.path());
  }
  std::ranges::sort(entries, {}, [](const fs::path& path) { return toUtf8(path); });
  return entries;
}

}  // namespace

std::optional<BatchItem> captureAt(const fs::path& path) {
  BatchItem item;
  item.selection = toUtf8(path.filename());
  Classification found = classifyPath(path);
  if (found.type == PathClass::Dataset) {
    item.colmapImport = toUtf8(path);
    return item;
  }
  if (found.type != PathClass::Media) return std::nullopt;
  detectVideoKinds(found.inputs);
  item.sources = std::move(found.inputs);
  item.sparse = suggestedSettings(item.sources);
  return item;
}

Batch Batch::compose(const fs::path& folder, const fs::path& destination) {
  const std::string given = toUtf8(folder);
  const fs::path root = absolutePath(given);
  const Classification whole = classifyExisting(given);
  std::error_code ignored;
  if (!fs::is_directory(root, ignored)) throw std::runtime_error(given + " is no folder of captures.");
  if (whole.type == PathClass::Project) throw std::runtime_error(given + " is already an Ombrelux project.");

  Batch batch;
  batch.destination = destination.empty() ? root : absolutePath(toUtf8(destination));
  batch.file = batch.destination / "batch.json";
  if (whole.type != PathClass::Dataset) {
    for (const fs::path& entry : entriesOf(root)) {
      if (std::optional<BatchItem> item = captureAt(entry)) batch.items.push_back(std::move(*item));
    }
  }
  if (batch.items.empty()) {
    std::optional<BatchItem> item = captureAt(root);
    if (!item) throw std::runtime_error("No captures in " + given + ": no videos, photographs or COLMAP datasets.");
    batch.items.push_back(std::move(*item));
  }
  return batch;
}

}  // namespace quor
