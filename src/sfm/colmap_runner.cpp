#include "sfm/colmap_runner.h"

namespace quor {

std::filesystem::path solvedDataset(const Project& project) {
  return project.solvedFolder();
}

}  // namespace quor
