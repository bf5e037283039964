// The splats of a running training, for a viewer on another thread. The trainer copies them here between two steps, but
// only when a copy is wanted and nobody is reading the last one: it never waits for a reader, and its only cost is a
// copy of the values on the GPU.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "gpu/compute/compute_stream.h"
#include "gs/splats/splat_store.h"

namespace quor::gs {

// GPU bytes a splat that a copy takes.
inline constexpr uint64_t kLiveBytesPerSplat = kFloatsPerSplat * sizeof(float);

class LiveScene {
 public:
  explicit LiveScene(VulkanContext& context) : splats_(context, SplatStore::Use::RenderOnly) {}

  // From any thread: asks for a copy of the next step's splats.
  void want() { wanted_ = true; }
  bool wanted() const { return wanted_; }

  // The trainer's thread. Submits on `stream`. False when nothing was copied: not wanted, being read, or out of memory
  // (then no copy is made until clear()).
  bool offer(ComputeStream& stream, const SplatStore& splats, int shDegree);

  // A look at the last copy; the trainer goes on without making another while it is held.
  class Reading {
   public:
    const SplatStore& splats() const { return scene_->splats_; }
    int shDegree() const { return scene_->shDegree_; }
    uint64_t version() const { return scene_->version_; }  // rises with every copy; 0: there is none

   private:
    friend class LiveScene;
    explicit Reading(LiveScene& scene) : lock_(scene.mutex_), scene_(&scene) {}
    std::unique_lock<std::mutex> lock_;
    LiveScene* scene_;
  };
  Reading read() { return Reading(*this); }

  // Frees the copy, and lets a new training make copies again.
  void clear();

 private:
  std::mutex mutex_;  // guards everything below
  SplatStore splats_;
  int shDegree_ = 0;
  uint64_t version_ = 0;
  bool full_ = false;
  std::atomic<bool> wanted_ = false;
};

}  // namespace quor::gs
