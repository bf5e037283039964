#include "base/files/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quor {
namespace {

// The last holder may have removed the file between its opening and its locking here: the lock would then guard
// nothing.
bool isStillThere(const std::filesystem::path& path, int file) {
  struct stat opened = {};
  struct stat there = {};
  return fstat(file, &opened) == 0 && stat(path.c_str(), &there) == 0 && opened.st_dev == there.st_dev &&
         opened.st_ino == there.st_ino;
}

}  // namespace

std::optional<FileLock> FileLock::tryAcquire(const std::filesystem::path& path) {
  for (;;) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return FileLock({}, kNothing);
    if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
      const bool held = errno == EWOULDBLOCK;
      ::close(file);
      return held ? std::nullopt : std::optional(FileLock({}, kNothing));
    }
    if (isStillThere(path, file)) return FileLock(path, file);
    ::close(file);
  }
}

FileLock::~FileLock() {
  if (handle_ == kNothing) return;
  ::unlink(path_.c_str());  // before it is unlocked, so that nobody holds a lock on a file without a name
  ::close(static_cast<int>(handle_));
}

}  // namespace quor
