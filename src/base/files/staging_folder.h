// Folders that are complete or absent, whenever the program ends.
#pragma once

#include <filesystem>
#include <system_error>
#include <utility>

namespace quor {

// Renames the folder to FOLDER.removed and deletes it there, so that a partly deleted folder is never mistaken for a
// complete one. A missing folder is no failure. Throws std::runtime_error "Cannot clear FOLDER: reason.".
void removeInOneAct(const std::filesystem::path& folder);

// A folder in which a result is built before it is renamed to its final place. The destructor removes whatever is left
// of it, after a failure or a cancellation.
class StagingFolder {
 public:
  explicit StagingFolder(std::filesystem::path path) : path_(std::move(path)) {}
  ~StagingFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace quor
