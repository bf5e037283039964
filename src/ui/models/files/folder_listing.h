// The entries of a folder in natural order. Reads the disk: for worker threads.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quor::ui {

struct FolderEntry {
  std::string name;  // UTF-8
  bool isFolder = false;
  bool isHidden = false;
  uint64_t bytes = 0;  // files
};

// "view2" before "view10", whatever the case.
bool naturalLess(std::string_view a, std::string_view b);

// Folders first, each kind in natural order. Entries that cannot be asked about are left out. Throws std::runtime_error
// with a sentence when the folder cannot be read.
std::vector<FolderEntry> listFolder(const std::filesystem::path& folder);

struct Place {
  std::string name;
  std::filesystem::path folder;
};
// The user's home, the file system's roots and the drives that are there.
std::vector<Place> listPlaces();

// Empty when the system does not tell.
std::filesystem::path homeFolder();

// Whether the path ends in one of the extensions (lower case, without the dot), whatever its case; any does when there
// are none.
bool hasExtension(const std::filesystem::path& path, const std::vector<std::string>& extensions);

}  // namespace quor::ui
