#include "base/process/tool_places.h"

#include <algorithm>
#include <system_error>

#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor {

namespace fs = std::filesystem;

std::vector<fs::path> splitFolderList(std::string_view list, char separator) {
  std::vector<fs::path> folders;
  for (size_t begin = 0; begin < list.size();) {
    const size_t end = std::min(list.find(separator, begin), list.size());
    if (end > begin) folders.push_back(fromUtf8(list.substr(begin, end - begin)));
    begin = end + 1;
  }
  return folders;
}

fs::path findOnSearchPath(std::string_view program) {
  for (const fs::path& folder : searchPathFolders()) {
    if (fs::path file = folder / programFileName(program); isProgramFile(file)) return file;
  }
  return {};
}

void appendEntriesNamed(const fs::path& parent, std::string_view part, std::vector<fs::path>& entries) {
  const auto first = static_cast<std::ptrdiff_t>(entries.size());
  std::error_code error;
  for (fs::directory_iterator entry(parent, error), end; !error && entry != end; entry.increment(error)) {
    if (toLower(toUtf8(entry->path().filename())).find(part) != std::string::npos) entries.push_back(entry->path());
  }
  std::sort(entries.begin() + first, entries.end(), std::greater());
}

}  // namespace quor
