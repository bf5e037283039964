// Shell scripts that stand for other programs.
#pragma once

#include <filesystem>
#include <string>

#include "support/temp_folder.h"

namespace quor::test {

// `body` as lines of /bin/sh. Makes the folders on the way.
inline std::filesystem::path writeScript(const std::filesystem::path& path, const std::string& body) {
  writeFile(path, "#!/bin/sh\n" + body);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  return path;
}

}  // namespace quor::test
