// A queue of captures with the result of each, kept in batch.json so that it can be worked through in several sittings.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

enum class ItemState { Waiting, Finished, Failed };
const char* itemStateName(ItemState state);  // "waiting", "finished" or "failed"

struct BatchItem : Settings {
  std::vector<InputSource> sources;
  std::string colmapImport;  // UTF-8 path of a COLMAP dataset to wrap; empty when the item is built from sources
  std::string selection;     // the name the user knows it by
  ItemState state = ItemState::Waiting;
  std::string note;                   // result or failure of the last attempt
  std::filesystem::path projectRoot;  // once known

  nlohmann::ordered_json asRead;  // as it stood in the file, with keys that only a newer version knows

  std::string name() const;  // the selection, or the name of its first source
};

struct Batch {
  std::filesystem::path file;         // where it was read from and is saved to; not stored
  std::filesystem::path destination;  // the items' projects are made in here
  std::vector<BatchItem> items;

  nlohmann::ordered_json asRead;  // without its items

  // Of a batch.json or of a folder that holds one. Missing keys keep their defaults: the destination is the file's
  // folder, the camera settings are those of a new project from the same sources, and a video whose kind is not written
  // is looked at. Relative paths are relative to the file's folder; all paths in here are absolute. Throws
  // std::runtime_error "No batch.json in FOLDER", or a sentence about the file.
  static Batch load(const std::filesystem::path& fileOrFolder);
  // Written beside the file and moved over it; makes the file's folder. Keys that were read and are not known here stay
  // in it, and so does the wording of relative paths. Throws std::runtime_error.
  void save() const;

  size_t count(ItemState state) const;

  // One item for each capture in a folder: each video, each folder of photographs or videos, each COLMAP dataset
  // directly in it, in byte order. Projects are left out, and so are photographs beside other captures; a folder of
  // photographs alone, or one that is a dataset itself, is the only capture. The batch will be saved as the
  // destination's batch.json; an empty destination means the folder itself. Throws std::runtime_error when it finds no
  // capture.
  static Batch compose(const std::filesystem::path& folder, const std::filesystem::path& destination);
};

// The capture at a path: a video, a folder of photographs or videos, or a COLMAP dataset; nothing for any other path.
std::optional<BatchItem> captureAt(const std::filesystem::path& path);

}  // namespace quor
