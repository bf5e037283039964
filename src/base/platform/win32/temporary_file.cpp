#include "base/files/temporary_file.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/platform/win32/windows_api.h"

namespace quor {
namespace {

constexpr size_t kMaxAtOnce = size_t{1} << 30;  // a call counts in 32 bits

std::runtime_error failure(DWORD error) {
  return std::runtime_error(systemMessage(error));
}

// Deleted by the system with its last handle; "temporary" asks it to leave the disk alone while the cache has room.
HANDLE openDeletedOnClose(const std::filesystem::path& folder) {
  static std::atomic<unsigned> number = 0;
  for (;;) {
    const std::wstring name =
        L"ombrelux-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++number) + L".tmp";
    const HANDLE file = CreateFileW((folder / name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file != INVALID_HANDLE_VALUE) return file;
    if (GetLastError() != ERROR_FILE_EXISTS) throw failure(GetLastError());
  }
}

HANDLE handle(std::intptr_t file) {
  return reinterpret_cast<HANDLE>(file);
}

// Where a call reads or writes, whatever the handle's own position is.
OVERLAPPED at(uint64_t offset) {
  OVERLAPPED place = {};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

}  // namespace

TemporaryFile::TemporaryFile(std::filesystem::path folder)
    : folder_(folder.empty() ? std::filesystem::temp_directory_path() : std::move(folder)),
      file_(reinterpret_cast<std::intptr_t>(openDeletedOnClose(folder_))) {}

TemporaryFile::~TemporaryFile() {
  CloseHandle(handle(file_));
}

void TemporaryFile::write(const void* from, size_t bytes, uint64_t offset) {
  const char* next = static_cast<const char*>(from);
  while (bytes > 0) {
    OVERLAPPED place = at(offset);
    DWORD written = 0;
    const DWORD part = static_cast<DWORD>(std::min(bytes, kMaxAtOnce));
    if (WriteFile(handle(file_), next, part, &written, &place) == 0) throw failure(GetLastError());
    if (written == 0) throw failure(ERROR_DISK_FULL);
    next += written;
    bytes -= written;
    offset += written;
  }
}

void TemporaryFile::read(void* to, size_t bytes, uint64_t offset) const {
  char* next = static_cast<char*>(to);
  while (bytes > 0) {
    OVERLAPPED place = at(offset);
    DWORD got = 0;
    const DWORD part = static_cast<DWORD>(std::min(bytes, kMaxAtOnce));
    const bool done = ReadFile(handle(file_), next, part, &got, &place) != 0;
    if (!done && GetLastError() != ERROR_HANDLE_EOF) throw failure(GetLastError());
    if (got == 0) throw std::runtime_error("the file is too short");
    next += got;
    bytes -= got;
    offset += got;
  }
}

}  // namespace quor
