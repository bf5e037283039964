#include "base/desktop/open_folder.h"

#include "base/platform/posix/detached.h"
#include "base/process/tool_places.h"

namespace quor {

bool openFolder(const std::filesystem::path& folder) {
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) return false;
  const std::filesystem::path opener = findOnSearchPath("xdg-open");
  return !opener.empty() && startDetached(opener, {std::filesystem::absolute(folder, error).native()});
}

}  // namespace quor
