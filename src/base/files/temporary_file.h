// A nameless file for data that memory cannot hold. No other program can open it, and the system frees it when it is
// closed or when the program ends, however that happens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace quor {

// Every failure is std::runtime_error with the system's bare reason. Reads and writes of different places may run on
// any number of threads at once.
class TemporaryFile {
 public:
  // Empty = the system's folder for such files.
  explicit TemporaryFile(std::filesystem::path folder);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::filesystem::path& folder() const { return folder_; }

  // The file grows as needed.
  void write(const void* from, size_t bytes, uint64_t offset);
  // Throws when the file ends before.
  void read(void* to, size_t bytes, uint64_t offset) const;

 private:
  std::filesystem::path folder_;
  std::intptr_t file_;  // a descriptor, or Windows' handle
};

}  // namespace quor
