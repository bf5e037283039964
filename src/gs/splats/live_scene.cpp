#include "gs/splats/live_scene.h"

#include <stdexcept>

namespace quor::gs {

bool LiveScene::offer(ComputeStream& stream, const SplatStore& splats, int shDegree) {
  if (!wanted_) return false;
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock.owns_lock() || full_) return false;
  try {
    splats_.reserve(splats.count() > splats_.capacity() ? splats.capacity() : splats.count());
  } catch (const std::runtime_error&) {  // a viewer must not end the training
    full_ = true;
    splats_.clear();
    version_ = 0;
    return false;
  }
  splats_.copyValues(stream, splats, 0);
  stream.submit();
  shDegree_ = shDegree;
  ++version_;
  wanted_ = false;
  return true;
}

void LiveScene::clear() {
  const std::lock_guard lock(mutex_);
  splats_.clear();
  version_ = 0;
  full_ = false;
}

}  // namespace quor::gs
