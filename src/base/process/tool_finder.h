// Where the two outside programs are: COLMAP, which solves cameras, and ffmpeg, the fall-back of the video decoder.
// The search runs no program and never fails: a missing tool is an error only for the stage that needs it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quor {

struct ToolLocation {
  std::filesystem::path executable;
  std::string source;  // "settings", "bundled", "PATH" or "installed", shown beside the path
};

// Searches `configured` (UTF-8, may be empty), the user's setting: the executable, the batch file that starts it on
// Windows, or a folder with it there, in bin/ or in a folder named after it, as archives unpack; then tools/colmap
// beside this program, the folders of PATH, and the folders where installers put COLMAP.
std::optional<ToolLocation> findColmap(const std::string& configured);
// The same, without the installers' folders; bundled in tools/ffmpeg.
std::optional<ToolLocation> findFfmpeg(const std::string& configured);

// The tools that a run of the pipeline may use.
struct Tools {
  std::optional<ToolLocation> colmap;
  std::optional<ToolLocation> ffmpeg;
};

}  // namespace quor
