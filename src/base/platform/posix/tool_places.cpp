#include "base/process/tool_places.h"

#include <unistd.h>

#include "base/files/paths.h"

namespace quor {

namespace fs = std::filesystem;

std::string programFileName(std::string_view program) {
  return std::string(program);
}

bool isProgramFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

bool isStartScript(const fs::path&) {
  return false;  // scripts are run like any program
}

std::vector<std::pair<std::string, std::string>> startEnvironment(const fs::path&) {
  return {};
}

std::vector<fs::path> searchPathFolders() {
  return splitFolderList(environmentVariable("PATH").value_or(""), ':');
}

std::vector<fs::path> colmapInstallFolders() {
  std::vector<fs::path> folders;
  const fs::path home = environmentVariable("HOME").value_or("");
  if (home.is_absolute()) folders = {home / ".local" / "bin", home / "bin"};
  folders.emplace_back("/usr/local/bin");
  appendEntriesNamed("/opt", "colmap", folders);
  for (const char* folder : {"/usr/bin", "/snap/bin"}) folders.emplace_back(folder);
  return folders;
}

std::string colmapAdvice() {
  return "Distributions have it as the package colmap; https://colmap.github.io/install.html tells of other ways.";
}

}  // namespace quor
