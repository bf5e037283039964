#include "base/process/tool_places.h"

#include <algorithm>
#include <system_error>

#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor {

namespace fs = std::filesystem;

std::string programFileName(std::string_view program) {
  std::string name(program);
  return toLower(name).ends_with(".exe") ? name : name + ".exe";
}

bool isProgramFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);  // every file may be run
}

bool isStartScript(const fs::path& path) {
  const std::string extension = toLower(toUtf8(path.extension()));
  return extension == ".bat" || extension == ".cmd";
}

std::vector<std::pair<std::string, std::string>> startEnvironment(const fs::path& folder) {
  const std::string search = toUtf8(folder / "bin") + ";" + toUtf8(folder / "lib");
  return {{"PATH", search + ";" + environmentVariable("PATH").value_or("")}};
}

std::vector<fs::path> searchPathFolders() {
  std::string list = environmentVariable("PATH").value_or("");
  std::erase(list, '"');  // which some put around a name with blanks
  return splitFolderList(list, ';');
}

std::vector<fs::path> colmapInstallFolders() {
  std::vector<fs::path> folders;
  for (const char* variable : {"ProgramFiles", "ProgramW6432", "LOCALAPPDATA"}) {
    const fs::path parent = fromUtf8(environmentVariable(variable).value_or(""));
    if (parent.is_absolute()) appendEntriesNamed(parent, "colmap", folders);
  }
  return folders;
}

std::string colmapAdvice() {
  return "Download its Windows version from https://github.com/colmap/colmap/releases and unpack it into " +
         toUtf8(executableFolder() / "tools" / "colmap") + ".";
}

}  // namespace quor
