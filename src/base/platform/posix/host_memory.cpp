#include "base/host_memory.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace quor {
namespace {

namespace fs = std::filesystem;

// The number in a file; UINT64_MAX without one, which in these files means no limit.
uint64_t numberIn(const fs::path& path) {
  std::ifstream file(path);
  uint64_t number = 0;
  return file >> number ? number : UINT64_MAX;
}

// The number behind a label at the beginning of a line; 0 without one.
uint64_t numberBehind(const std::string& label, const fs::path& path) {
  std::ifstream file(path);
  std::string word, rest;
  while (file >> word) {
    uint64_t number = 0;
    if (word == label && file >> number) return number;
    std::getline(file, rest);
  }
  return 0;
}

// How a control group's files are called, in both versions of the system.
struct GroupFiles {
  fs::path root;
  const char *limit, *used, *idleCache;
};

// The memory left by the limits of a control group and its parents. Cached files count as free.
uint64_t roomInGroup(const GroupFiles& files, const std::string& group) {
  uint64_t room = UINT64_MAX;
  for (fs::path folder = files.root / fs::path(group).relative_path();; folder = folder.parent_path()) {
    const uint64_t limit = numberIn(folder / files.limit);
    const uint64_t used = numberIn(folder / files.used);
    if (limit != UINT64_MAX && used != UINT64_MAX) {
      const uint64_t taken = used - std::min(used, numberBehind(files.idleCache, folder / "memory.stat"));
      room = std::min(room, limit - std::min(limit, taken));
    }
    if (folder.native().size() <= files.root.native().size()) return room;
  }
}

// A container has less than the computer.
uint64_t roomInGroups() {
  const GroupFiles one = {"/sys/fs/cgroup/memory", "memory.limit_in_bytes", "memory.usage_in_bytes",
                          "total_inactive_file"};
  const GroupFiles two = {"/sys/fs/cgroup", "memory.max", "memory.current", "inactive_file"};
  uint64_t room = UINT64_MAX;
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {  // number:controllers:path
    const size_t first = line.find(':'), second = line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
    const std::string group = line.substr(second + 1);
    if (controllers == ",,") room = std::min(room, roomInGroup(two, group));
    if (controllers.find(",memory,") != std::string::npos) room = std::min(room, roomInGroup(one, group));
  }
  return room;
}

}  // namespace

uint64_t availableHostMemory() {
  const uint64_t kibibytes = numberBehind("MemAvailable:", "/proc/meminfo");
  return std::min(kibibytes > 0 ? kibibytes * 1024 : UINT64_MAX, roomInGroups());
}

}  // namespace quor
