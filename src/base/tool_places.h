// What the search for outside programs asks the system.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quor {

// "colmap" as a file of that program is called here.
std::string programFileName(std::string_view program);

// A file, not a folder, that the user may run.
bool isProgramFile(const std::filesystem::path& path);

// The folders of PATH in its order. An empty entry names none.
std::vector<std::filesystem::path> searchPathFolders();

// Folders outside PATH where installers and users put COLMAP, in the order of preference; they need not exist.
std::vector<std::filesystem::path> colmapInstallFolders();

}  // namespace quor
