// Folders that exist complete or not at all, whenever the program ends.
#pragma once

#include <filesystem>
#include <system_error>
#include <utility>

namespace quor {

// Moves the folder aside and removes it there, so that a partly deleted folder is never mistaken for a complete one. A
// folder that does not exist is no failure. Throws std::runtime_error "Cannot clear FOLDER: reason.".
void removeInOneAct(const std::filesystem::path& folder);

// A folder in which a result is gathered before it is moved to its place. If the work fails or is cancelled, the
// destructor removes the folder.
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
