#include "base/files/staging_folder.h"

#include <stdexcept>

#include "base/files/paths.h"

namespace quor {

namespace fs = std::filesystem;

void removeInOneAct(const fs::path& folder) {
  fs::path aside = folder;
  aside += ".removed";
  std::error_code error;
  fs::remove_all(aside, error);
  if (!error && fs::exists(fs::symlink_status(folder, error))) fs::rename(folder, aside, error);
  if (error && error != std::errc::no_such_file_or_directory) {
    throw std::runtime_error("Cannot clear " + toUtf8(folder) + ": " + error.message() + ".");
  }
  fs::remove_all(aside, error);  // leftovers under this name do no harm
}

}  // namespace quor
