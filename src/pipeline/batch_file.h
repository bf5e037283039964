// A queue of captures and what became of each, kept in batch.json so that it can be worked through in several sittings.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

enum class ItemState { Waiting, Finished, Failed };

struct BatchItem {
  std::vector<InputSource> sources;
  std::string colmapImport;  // UTF-8 path of a COLMAP dataset to wrap; empty when the item is built from sources
  std::string selection;     // the name the user knows it by
  IngestSettings ingest;
  SparseSettings sparse;
  TrainingSettings training;
  ItemState state = ItemState::Waiting;
  std::string note;                   // result or failure of the last attempt
  std::filesystem::path projectRoot;  // once known

  std::string name() const;  // the selection, or the name of its first source
};

struct Batch {
  std::filesystem::path file;         // where it was read from and is saved to; not stored
  std::filesystem::path destination;  // the items' projects are made in here
  std::vector<BatchItem> items;

  // Of a batch.json or of a folder that holds one. Missing keys keep their defaults. Throws std::runtime_error "No
  // batch.json in FOLDER", or a sentence that says what is wrong with the file.
  static Batch load(const std::filesystem::path& fileOrFolder);
  // Written beside the file and moved over it. Throws std::runtime_error.
  void save() const;

  // One item for each capture in a folder: each video, each folder of photographs, each COLMAP dataset directly in it.
  // Projects are left out. Throws std::runtime_error when there is none.
  static Batch compose(const std::filesystem::path& folder, const std::filesystem::path& destination);
};

}  // namespace quor
