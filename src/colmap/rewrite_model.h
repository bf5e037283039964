// Moves a binary model to another frame without reading it into a colmap::Model, which would lose the observations, the
// tracks, the ids and the errors.
#pragma once

#include <array>
#include <filesystem>
#include <functional>

#include "colmap/model.h"

namespace quor::gs::colmap {

// Passes every pose (qvec and tvec; the rest of the image is not set) and every point through a function and keeps all
// other bytes of images.bin and points3D.bin. rigs.bin and frames.bin, in which newer versions repeat the poses, are
// removed: these versions make them anew from the images. Each file is replaced whole; throws std::runtime_error for a
// file that is missing, cut off or cannot be written.
void rewriteBinaryModel(const std::filesystem::path& dir, const std::function<void(Image&)>& movePose,
                        const std::function<void(std::array<double, 3>&)>& movePoint);

}  // namespace quor::gs::colmap
