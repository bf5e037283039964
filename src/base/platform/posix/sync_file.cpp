#include "base/files/sync_file.h"

#include <fcntl.h>
#include <unistd.h>

namespace quor {

bool syncFile(const std::filesystem::path& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool synced = ::fsync(file) == 0;
  return ::close(file) == 0 && synced;
}

}  // namespace quor
