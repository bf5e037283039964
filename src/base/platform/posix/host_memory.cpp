#include "base/host_memory.h"

#include <fstream>
#include <string>

namespace quor {

uint64_t availableHostMemory() {
  std::ifstream file("/proc/meminfo");
  std::string label, unit;
  uint64_t kibibytes = 0;
  while (file >> label >> kibibytes) {
    if (label == "MemAvailable:") return kibibytes * 1024;
    std::getline(file, unit);
  }
  return UINT64_MAX;
}

}  // namespace quor
