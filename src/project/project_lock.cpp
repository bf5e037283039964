#include "project/project_lock.h"

#include <stdexcept>

#include "base/files/paths.h"

namespace quor {
namespace {

FileLock acquire(const Project& project) {
  std::optional<FileLock> lock = FileLock::tryAcquire(project.root / ".ombrelux.lock");
  if (lock) return *std::move(lock);
  throw std::runtime_error("Another Ombrelux is working on " + toUtf8(project.root) +
                           ". Wait until it has finished, or end it there.");
}

}  // namespace

ProjectLock::ProjectLock(const Project& project) : lock_(acquire(project)) {}

}  // namespace quor
