#include "base/files/sync_file.h"

#include "base/platform/win32/windows_api.h"

namespace quor {

bool syncFile(const std::filesystem::path& path) {
  const Handle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  return file && FlushFileBuffers(file.get()) != 0;
}

}  // namespace quor
