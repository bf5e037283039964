// System-specific places for the search for outside programs.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quor {

// The file name of a program on this system, as "colmap.exe" for "colmap".
std::string programFileName(std::string_view program);

// A file, not a folder, that the user may run.
bool isProgramFile(const std::filesystem::path& path);

// Whether the path names a script that only sets up the environment of the program beside it, as COLMAP.bat does.
bool isStartScript(const std::filesystem::path& path);
// The variables that such a script sets, for a program that was unpacked into `folder`.
std::vector<std::pair<std::string, std::string>> startEnvironment(const std::filesystem::path& folder);

// The folders of PATH.
std::vector<std::filesystem::path> searchPathFolders();
// A program by its name in these folders; empty when none has it.
std::filesystem::path findOnSearchPath(std::string_view program);

// The folders that a list such as PATH names, in its order; empty entries are skipped.
std::vector<std::filesystem::path> splitFolderList(std::string_view list, char separator);
// Adds the folders and files right under `parent` that have `part` in their names, in whatever case, the newest version
// first as far as names tell.
void appendEntriesNamed(const std::filesystem::path& parent, std::string_view part,
                        std::vector<std::filesystem::path>& entries);

// Folders outside PATH where installers and users put COLMAP, in the order of preference; they need not exist.
std::vector<std::filesystem::path> colmapInstallFolders();
// Where to get COLMAP, as a sentence for the user.
std::string colmapAdvice();

}  // namespace quor
