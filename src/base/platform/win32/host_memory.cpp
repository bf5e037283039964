#include "base/host_memory.h"

#include <algorithm>

#include "base/platform/win32/windows_api.h"

namespace quor {

uint64_t availableHostMemory() {
  MEMORYSTATUSEX status = {};
  status.dwLength = sizeof status;
  if (GlobalMemoryStatusEx(&status) == 0) return UINT64_MAX;
  // The commit limit can be lower than the free memory.
  return std::min<uint64_t>(status.ullAvailPhys, status.ullAvailPageFile);
}

}  // namespace quor
