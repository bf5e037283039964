// Which frames were taken with one camera. COLMAP refuses images of different sizes for one camera, so each group gets
// its own camera and its own feature extraction.
#pragma once

#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "project/project.h"

namespace quor {

// The frames' paths relative to the frames folder, with forward slashes, as in COLMAP's lists and models.
std::vector<std::string> frameNames(const Project& project);

// The project's groups with those images that are among `frames`, in the order of `frames`; empty groups are left out.
// Frames that no group names are grouped by their pixel size; those that cannot be read are left out with a warning.
// Every frame is in at most one group. A group without a camera model gets the project's.
std::vector<ImageGroup> cameraGroups(const Project& project, const std::vector<std::string>& frames, LogStore& log);

// Whether the source fixes every camera, so that the solve must not touch them.
bool hasFixedIntrinsics(const std::vector<ImageGroup>& groups);

}  // namespace quor
