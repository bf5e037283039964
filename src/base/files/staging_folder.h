// Folders that are there whole or not at all, whenever the program ends.
#pragma once

#include <filesystem>
#include <system_error>
#include <utility>

namespace quor {

// Moves the folder aside and removes it there, so that nobody takes half of it for all of it. A folder that is not
// there is no failure; throws std::runtime_error "Cannot clear FOLDER: reason.".
void removeInOneAct(const std::filesystem::path& folder);

// A folder in which a result is gathered before it is moved to its place. What is still there when this object goes,
// because the work failed or was cancelled, is of no use to anybody and is removed.
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
