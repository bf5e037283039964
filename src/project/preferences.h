// The user's settings for all projects: settings.json in the user's folder, written whenever one of them changes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quor {

struct Preferences {
  std::string colmapPath;                   // executable or folder (UTF-8, like all paths here); empty: searched for
  std::string ffmpegPath;                   // the same
  std::string lastDirectory;                // of a file dialog
  std::vector<std::string> recentProjects;  // folders, newest first
  int deviceIndex = -1;                     // negative: chosen automatically
  bool visualizer = true;                   // live viewport during training
  float uiScale = 1.0F;

  bool operator==(const Preferences&) const = default;

  // A missing, unreadable or damaged file gives the defaults; so does each invalid member.
  static Preferences load(const std::filesystem::path& file = defaultFile());
  // Makes the folder. Throws std::runtime_error and leaves the earlier file as it was.
  void save(const std::filesystem::path& file = defaultFile()) const;

  // Puts the project first; the oldest of more than kMaxRecent are dropped.
  void addRecent(const std::string& project);
  static constexpr size_t kMaxRecent = 12;

  // userDataFolder()/settings.json
  static std::filesystem::path defaultFile();
};

}  // namespace quor
