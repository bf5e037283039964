#include "base/tool_places.h"

#include <unistd.h>

#include <algorithm>

#include "base/paths.h"
#include "base/text.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

// The newest version first, as far as names tell.
void appendColmapFolders(const fs::path& parent, std::vector<fs::path>& folders) {
  const auto first = static_cast<std::ptrdiff_t>(folders.size());
  std::error_code error;
  for (fs::directory_iterator entry(parent, error), end; !error && entry != end; entry.increment(error)) {
    if (toLower(toUtf8(entry->path().filename())).find("colmap") != std::string::npos) folders.push_back(entry->path());
  }
  std::sort(folders.begin() + first, folders.end(), std::greater());
}

}  // namespace

std::string programFileName(std::string_view program) {
  return std::string(program);
}

bool isProgramFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

std::vector<fs::path> searchPathFolders() {
  std::vector<fs::path> folders;
  const std::string all = environmentVariable("PATH").value_or("");
  for (size_t begin = 0; begin < all.size();) {
    const size_t end = std::min(all.find(':', begin), all.size());
    if (end > begin) folders.push_back(fromUtf8(all.substr(begin, end - begin)));
    begin = end + 1;
  }
  return folders;
}

std::vector<fs::path> colmapInstallFolders() {
  std::vector<fs::path> folders;
  const fs::path home = environmentVariable("HOME").value_or("");
  if (home.is_absolute()) folders = {home / ".local" / "bin", home / "bin"};
  folders.emplace_back("/usr/local/bin");
  appendColmapFolders("/opt", folders);
  for (const char* folder : {"/usr/bin", "/snap/bin"}) folders.emplace_back(folder);
  return folders;
}

}  // namespace quor
