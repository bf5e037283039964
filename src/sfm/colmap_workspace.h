// The files of a solve in a project's colmap folder.
#pragma once

#include <filesystem>

#include "project/project.h"

namespace quor {

struct ColmapWorkspace {
  explicit ColmapWorkspace(const Project& project);

  std::filesystem::path frames;         // images of all groups, in sub-folders or not
  std::filesystem::path folder;         // colmap/
  std::filesystem::path database;       // features and matches
  std::filesystem::path featureRecord;  // what they were made of
  std::filesystem::path sparse;         // the mapper's models, numbered
  std::filesystem::path rig;            // poses of a rig's moments, for COLMAP to find points for
  std::filesystem::path retries;        // further attempts, while they run
  std::filesystem::path lists;          // image lists, one a camera group
  std::filesystem::path log;            // all that COLMAP has printed
  std::filesystem::path report;         // what the solve is worth
  std::filesystem::path coverage;       // and the sides that it was taken from, as a picture
  std::filesystem::path undistorted;    // the finished dataset
  std::filesystem::path unfinished;     // the dataset while it is being written

  // Removes the results of an earlier solve but its database, the finished dataset first and in one act, and makes the
  // folders. Throws std::runtime_error.
  void clear() const;
  void removeDatabase() const;  // throws std::runtime_error
  // Makes the dataset that was written to `unfinished` the finished one.
  void finish() const;
};

}  // namespace quor
