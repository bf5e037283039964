#include "base/process/tool_finder.h"

#include <system_error>
#include <vector>

#include "base/files/paths.h"
#include "base/process/tool_places.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

// Empty or absolute: the program must stay the same file whatever the working directory is.
fs::path findInFolder(const fs::path& folder, const std::string& fileName) {
  std::error_code error;
  for (const fs::path& file : {folder / fileName, folder / "bin" / fileName}) {
    if (isProgramFile(file)) return fs::absolute(file, error);
  }
  return {};
}

fs::path findInFolders(const std::vector<fs::path>& folders, const std::string& fileName) {
  for (const fs::path& folder : folders) {
    if (fs::path file = findInFolder(folder, fileName); !file.empty()) return file;
  }
  return {};
}

// The folder itself, or one right under it that is named after the tool: an archive's own, that it unpacks to.
fs::path findUnpacked(const fs::path& folder, const std::string& tool, const std::string& fileName) {
  std::vector<fs::path> folders{folder};
  appendEntriesNamed(folder, tool, folders);
  return findInFolders(folders, fileName);
}

fs::path findConfigured(const std::string& configured, const std::string& tool, const std::string& fileName) {
  const fs::path candidate = fromUtf8(configured);
  if (candidate.empty()) return {};
  std::error_code error;
  if (isProgramFile(candidate)) {
    const fs::path file = fs::absolute(candidate, error);
    const fs::path started = isStartScript(file) ? findInFolder(file.parent_path(), fileName) : fs::path();
    return started.empty() ? file : started;
  }
  if (fs::path file = findUnpacked(candidate, tool, fileName); !file.empty()) return file;
  // A bare name that is nothing here is meant as a shell would take it.
  return candidate.has_parent_path() ? fs::path() : findInFolders(searchPathFolders(), programFileName(configured));
}

std::optional<ToolLocation> find(const std::string& configured, const char* tool,
                                 const std::vector<fs::path>& installFolders) {
  const std::string fileName = programFileName(tool);
  const fs::path own = executableFolder();
  if (fs::path file = findConfigured(configured, tool, fileName); !file.empty()) return {{file, "settings"}};
  if (fs::path file = findUnpacked(own / "tools" / tool, tool, fileName); !own.empty() && !file.empty()) {
    return {{file, "bundled"}};
  }
  if (fs::path file = findInFolders(searchPathFolders(), fileName); !file.empty()) return {{file, "PATH"}};
  if (fs::path file = findInFolders(installFolders, fileName); !file.empty()) return {{file, "installed"}};
  return std::nullopt;
}

}  // namespace

std::optional<ToolLocation> findColmap(const std::string& configured) {
  return find(configured, "colmap", colmapInstallFolders());
}

std::optional<ToolLocation> findFfmpeg(const std::string& configured) {
  return find(configured, "ffmpeg", {});
}

}  // namespace quor
