#include "base/files/file_lock.h"

#include "base/platform/win32/windows_api.h"

namespace quor {

// A file that is open without sharing can be opened by nobody else; the system deletes it with its only handle.
std::optional<FileLock> FileLock::tryAcquire(const std::filesystem::path& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (file != INVALID_HANDLE_VALUE) return FileLock(path, reinterpret_cast<std::intptr_t>(file));
  if (GetLastError() == ERROR_SHARING_VIOLATION) return std::nullopt;
  return FileLock({}, kNothing);
}

FileLock::~FileLock() {
  if (handle_ != kNothing) CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace quor
