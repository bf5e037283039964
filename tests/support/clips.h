// Small videos, made with the ffmpeg program for a test.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "base/process/tool_places.h"

namespace quor::test {

// ffmpeg ARGUMENTS file:TARGET
inline std::filesystem::path makeClip(const std::filesystem::path& target, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"-nostdin", "-y", "-loglevel", "error"});
  arguments.push_back("file:" + toUtf8(target));
  std::string said;
  const ChildResult result = runChildProcess(
      {findOnSearchPath("ffmpeg"), arguments, {}}, [&](std::string_view line) { said.append(line).append("\n"); },
      [] { return false; });
  if (result.exitCode != 0) throw std::runtime_error("ffmpeg failed to make " + toUtf8(target) + ":\n" + said);
  return target;
}

// H.264 from a source of ffmpeg's ("testsrc=size=64x48:rate=10:duration=1").
inline std::filesystem::path makeClip(const std::filesystem::path& target, const std::string& source) {
  return makeClip(target, {"-f", "lavfi", "-i", source, "-c:v", "libx264", "-crf", "10"});
}

}  // namespace quor::test
