// The right to write in a project's folder. Whoever runs its stages holds it meanwhile, so that a window and a command,
// or two commands, never write the same files.
#pragma once

#include "base/files/file_lock.h"
#include "project/project.h"

namespace quor {

class ProjectLock {
 public:
  // Throws std::runtime_error with a sentence that names the folder when somebody else holds it.
  explicit ProjectLock(const Project& project);

 private:
  FileLock lock_;
};

}  // namespace quor
