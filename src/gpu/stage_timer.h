// Times the named stretches of a stream's recordings with the GPU's timestamps. On a queue without timestamps it stays
// off.
#pragma once

#include <volk.h>

#include <cstdint>
#include <vector>

namespace quor::gs {

class VulkanContext;

struct StageTime {
  const char* stage;
  double milliseconds;
  uint64_t count;  // stretches of that name
};

class StageTimer {
 public:
  explicit StageTimer(VulkanContext& context) : context_(context) {}
  ~StageTimer();
  StageTimer(const StageTimer&) = delete;
  StageTimer& operator=(const StageTimer&) = delete;

  void enable(bool on);
  bool enabled() const { return enabled_; }

  // The calls of one recording, in this order; all but finish() record into `commands`.
  void begin(VkCommandBuffer commands);
  void mark(VkCommandBuffer commands, const char* stage);
  void end(VkCommandBuffer commands);
  void finish();  // after the GPU is done

  std::vector<StageTime> take();

 private:
  void add(const char* stage, double milliseconds);

  VulkanContext& context_;
  bool enabled_ = false;
  VkQueryPool pool_ = VK_NULL_HANDLE;
  std::vector<const char*> open_;  // stages marked in this recording
  std::vector<StageTime> table_;
};

}  // namespace quor::gs
