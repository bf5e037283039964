#include "base/files/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace quor {
namespace {

std::runtime_error failure(int error) {
  return std::runtime_error(std::generic_category().message(error));
}

// Open, and without a name: the system removes it with its last descriptor.
int openNameless(const std::filesystem::path& folder) {
  std::string name = (folder / "ombrelux-XXXXXX").string();
  const int file = ::mkostemp(name.data(), O_CLOEXEC);
  if (file < 0) throw failure(errno);
  if (::unlink(name.c_str()) != 0) {
    const int error = errno;
    ::close(file);
    ::unlink(name.c_str());
    throw failure(error);
  }
  return file;
}

}  // namespace

TemporaryFile::TemporaryFile(std::filesystem::path folder)
    : folder_(folder.empty() ? std::filesystem::temp_directory_path() : std::move(folder)),
      file_(openNameless(folder_)) {}

TemporaryFile::~TemporaryFile() {
  ::close(static_cast<int>(file_));
}

void TemporaryFile::write(const void* from, size_t bytes, uint64_t offset) {
  const char* next = static_cast<const char*>(from);
  while (bytes > 0) {
    const ssize_t written = ::pwrite(static_cast<int>(file_), next, bytes, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) throw failure(written < 0 ? errno : ENOSPC);
    next += written;
    bytes -= static_cast<size_t>(written);
    offset += static_cast<uint64_t>(written);
  }
}

void TemporaryFile::read(void* to, size_t bytes, uint64_t offset) const {
  char* next = static_cast<char*>(to);
  while (bytes > 0) {
    const ssize_t got = ::pread(static_cast<int>(file_), next, bytes, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw failure(errno);
    if (got == 0) throw std::runtime_error("the file is too short");
    next += got;
    bytes -= static_cast<size_t>(got);
    offset += static_cast<uint64_t>(got);
  }
}

}  // namespace quor
