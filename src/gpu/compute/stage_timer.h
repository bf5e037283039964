// Times the named stretches of a stream's recordings: with the GPU's timestamps or, on a queue without them, with the
// host's clock, for which the stream submits each stretch on its own.
#pragma once

#include <volk.h>

#include <chrono>
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

  enum class Clock { Off, Gpu, Host };
  void set(Clock clock);
  bool enabled() const { return clock_ == Clock::Gpu; }
  bool byHost() const { return clock_ == Clock::Host; }

  // The calls of one recording, in this order; all but finish() record into `commands`.
  void begin(VkCommandBuffer commands);
  void mark(VkCommandBuffer commands, const char* stage);
  void end(VkCommandBuffer commands);
  void finish();  // after the GPU is done

  // By the host's clock: between two submissions, and after one.
  void hostMark(const char* stage);
  void hostFinish();

  std::vector<StageTime> take();

 private:
  void add(const char* stage, double milliseconds);

  VulkanContext& context_;
  Clock clock_ = Clock::Off;
  VkQueryPool pool_ = VK_NULL_HANDLE;
  std::vector<const char*> open_;  // stages marked in this recording
  std::chrono::steady_clock::time_point hostStart_;
  std::vector<StageTime> table_;
};

}  // namespace quor::gs
