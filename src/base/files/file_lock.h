// Keeps two programs from writing the same files: a lock that the system holds on a small file, and releases when its
// owner goes or the program dies, however that happens.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <utility>

namespace quor {

class FileLock {
 public:
  // Makes `file` and locks it; nothing when it is locked already, by another program or by this one. Where nothing can
  // be locked, as in a read-only folder or on some network file systems, the lock returned holds nothing: the work goes
  // on as it would without locks.
  static std::optional<FileLock> tryAcquire(const std::filesystem::path& file);
  ~FileLock();  // unlocks and removes the file
  FileLock(FileLock&& other) noexcept
      : path_(std::move(other.path_)), handle_(std::exchange(other.handle_, kNothing)) {}
  FileLock& operator=(FileLock&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(handle_, other.handle_);
    return *this;
  }

 private:
  static constexpr std::intptr_t kNothing = -1;
  FileLock(std::filesystem::path path, std::intptr_t handle) : path_(std::move(path)), handle_(handle) {}

  std::filesystem::path path_;
  std::intptr_t handle_;  // a descriptor, or Windows' handle
};

}  // namespace quor
