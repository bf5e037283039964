#include "gpu/device/device_choice.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "gpu/device/vulkan_context.h"
#include "gpu/memory/gpu_buffer.h"
#include "support/scoped_environment.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::ScopedEnvironment;

constexpr uint64_t kGiB = uint64_t{1} << 30;
constexpr VkQueueFlags kGraphics = VK_QUEUE_GRAPHICS_BIT, kCompute = VK_QUEUE_COMPUTE_BIT;
constexpr VkQueueFlags kCopy = VK_QUEUE_TRANSFER_BIT;

VkQueueFamilyProperties family(VkQueueFlags flags, uint32_t queues = 1) {
  return {flags, queues, 64, {1, 1, 1}};
}

TEST(DeviceChoice, TheTypeOutweighsAnyMemory) {
  EXPECT_GT(deviceScore(VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU, kGiB),
            deviceScore(VK_PHYSICAL_DEVICE_TYPE_CPU, UINT64_MAX));
}

TEST(DeviceChoice, FirstFamilyThatCanDoAll) {
  const std::vector families = {family(kCopy), family(kCompute), family(kGraphics | kCompute)};
  EXPECT_EQ(findComputeFamily(families, false), 1);
  EXPECT_EQ(findComputeFamily(families, true), 2);
  EXPECT_EQ(findComputeFamily(std::span(families).first(1), false), -1);
  EXPECT_EQ(findComputeFamily(std::span(families).first(2), true), -1);
}

TEST(DeviceChoice, TrainingGetsAQueueOfItsOwnBesideAWindow) {
  const auto expectPlan = [](const QueuePlan& plan, uint32_t computeFamily, uint32_t index, bool shared) {
    EXPECT_EQ(plan.computeFamily, computeFamily);
    EXPECT_EQ(plan.computeIndex, index);
    EXPECT_EQ(plan.shared(), shared);
  };
  const auto both = kGraphics | kCompute | kCopy;
  const std::vector dedicated = {family(both, 16), family(kCopy), family(kCompute | kCopy)};
  expectPlan(planQueues(dedicated, 0, true), 2, 0, false);
  expectPlan(planQueues(dedicated, 0, false), 0, 0, true);
  expectPlan(planQueues(std::vector{family(both, 2)}, 0, true), 0, 1, false);
  expectPlan(planQueues(std::vector{family(both, 1)}, 0, true), 0, 0, true);
}

TEST(DeviceChoice, FailedCallsAreSentencesWithAHint) {
  const std::pair<VkResult, const char*> rows[] = {
      {VK_ERROR_OUT_OF_DEVICE_MEMORY, "vkSomething failed (VkResult -2): out of GPU memory"},
      {VK_ERROR_DEVICE_LOST, "vkSomething failed (VkResult -4): the GPU device was lost (driver reset or hang)"},
      {VK_INCOMPLETE, "vkSomething failed (VkResult 5)"}};
  for (const auto& [result, text] : rows) {
    EXPECT_EQ(test::thrownText([code = result] { check(code, "vkSomething"); }), text);
  }
}

TEST(DeviceChoice, MemoryTypePrefersAndThenSettles) {
  constexpr VkMemoryPropertyFlags kHost = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
  constexpr VkMemoryPropertyFlags kCached = VK_MEMORY_PROPERTY_HOST_CACHED_BIT;
  VkPhysicalDeviceMemoryProperties memory = {};
  memory.memoryTypeCount = 3;
  memory.memoryTypes[0].propertyFlags = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT;
  memory.memoryTypes[1].propertyFlags = kHost;
  memory.memoryTypes[2].propertyFlags = kHost | kCached;
  EXPECT_EQ(chooseMemoryType(memory, 7, kHost, kCached), 2u);
  EXPECT_EQ(chooseMemoryType(memory, 7, kHost, 0), 1u);
  EXPECT_EQ(chooseMemoryType(memory, 3, kHost, kCached), 1u);
  EXPECT_THROW(chooseMemoryType(memory, 1, kHost, kCached), std::runtime_error);
}

TEST(DeviceChoice, EnvironmentOverridesOptions) {
  ContextOptions options;
  options.deviceIndex = 2;
  const auto indexWith = [&](const char* value) {
    const ScopedEnvironment variable("QUOR_DEVICE", value);
    return withEnvironment(options).deviceIndex;
  };
  EXPECT_EQ(indexWith("-1"), -1);
  EXPECT_EQ(indexWith("7 "), 7);
  for (const char* ignored : {static_cast<const char*>(nullptr), "fast", "", "99999999999999999999"}) {
    EXPECT_EQ(indexWith(ignored), 2);
  }
  const ScopedEnvironment validation("QUOR_VALIDATION", "1"), fallbacks("QUOR_FORCE_FALLBACKS", "-3");
  EXPECT_TRUE(withEnvironment({}).validation);
  EXPECT_TRUE(withEnvironment({}).forceFallbacks);
}

}  // namespace
}  // namespace quor::gs
