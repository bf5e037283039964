// The parts of the search for outside programs that depend on the system.
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

// The folders of PATH.
std::vector<std::filesystem::path> searchPathFolders();

// The folders that a list such as PATH names, in its order; empty entries are skipped.
std::vector<std::filesystem::path> splitFolderList(std::string_view list, char separator);
// Adds the folders and files right under `parent` that have `part` in their names, in whatever case, the newest version
// first as far as names tell.
void appendEntriesNamed(const std::filesystem::path& parent, std::string_view part,
                        std::vector<std::filesystem::path>& entries);

// Folders outside PATH where installers and users put COLMAP, in the order of preference; they need not exist.
std::vector<std::filesystem::path> colmapInstallFolders();

}  // namespace quor
