#include "gpu/compute/stage_timer.h"

#include <cstring>
#include <utility>

#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {
namespace {

// Stretches of one recording that are told apart; later ones count towards the last.
constexpr uint32_t kMarks = 1023;

}  // namespace

StageTimer::~StageTimer() {
  vkDestroyQueryPool(context_.device(), pool_, nullptr);
}

void StageTimer::set(Clock clock) {
  clock_ = clock;
  if (!enabled() || pool_ != VK_NULL_HANDLE) return;
  auto info = vulkanStruct<VkQueryPoolCreateInfo>(VK_STRUCTURE_TYPE_QUERY_POOL_CREATE_INFO);
  info.queryType = VK_QUERY_TYPE_TIMESTAMP;
  info.queryCount = kMarks + 1;
  check(vkCreateQueryPool(context_.device(), &info, nullptr, &pool_), "vkCreateQueryPool");
}

void StageTimer::begin(VkCommandBuffer commands) {
  open_.clear();
  vkCmdResetQueryPool(commands, pool_, 0, kMarks + 1);
}

void StageTimer::mark(VkCommandBuffer commands, const char* stage) {
  if (open_.size() == kMarks) return;
  vkCmdWriteTimestamp(commands, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT, pool_, static_cast<uint32_t>(open_.size()));
  open_.push_back(stage);
}

void StageTimer::end(VkCommandBuffer commands) {
  if (open_.empty()) return;
  vkCmdWriteTimestamp(commands, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT, pool_, static_cast<uint32_t>(open_.size()));
}

void StageTimer::finish() {
  if (open_.empty()) return;
  std::vector<uint64_t> ticks(open_.size() + 1);
  check(vkGetQueryPoolResults(context_.device(), pool_, 0, static_cast<uint32_t>(ticks.size()),
                              ticks.size() * sizeof(uint64_t), ticks.data(), sizeof(uint64_t),
                              VK_QUERY_RESULT_64_BIT | VK_QUERY_RESULT_WAIT_BIT),
        "vkGetQueryPoolResults");
  const uint32_t bits = context_.timestampBits();
  const uint64_t mask = bits >= 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1;
  for (size_t i = 0; i < open_.size(); ++i) {
    const auto elapsed = static_cast<double>((ticks[i + 1] - ticks[i]) & mask);
    add(open_[i], elapsed * static_cast<double>(context_.info().timestampPeriod) * 1e-6);
  }
  open_.clear();
}

void StageTimer::hostMark(const char* stage) {
  open_.assign(1, stage);
  hostStart_ = std::chrono::steady_clock::now();
}

void StageTimer::hostFinish() {
  if (open_.empty()) return;
  add(open_[0], std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - hostStart_).count());
  open_.clear();
}

std::vector<StageTime> StageTimer::take() {
  return std::exchange(table_, {});
}

void StageTimer::add(const char* stage, double milliseconds) {
  for (StageTime& row : table_) {
    if (std::strcmp(row.stage, stage) == 0) {
      row.milliseconds += milliseconds;
      ++row.count;
      return;
    }
  }
  table_.push_back({stage, milliseconds, 1});
}

}  // namespace quor::gs
