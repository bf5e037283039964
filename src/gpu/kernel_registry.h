// Pipelines of the embedded kernels, built when first needed and kept. Any thread may ask.
#pragma once

#include <volk.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace quor::gs {

class VulkanContext;

struct Kernel {
  VkPipeline pipeline = VK_NULL_HANDLE;
  VkPipelineLayout layout = VK_NULL_HANDLE;
  VkDescriptorSetLayout setLayout = VK_NULL_HANDLE;
  uint32_t bindings = 0;
  std::array<uint32_t, 3> localSize = {1, 1, 1};
};

// What a module's SPIR-V says of its interface.
struct KernelInterface {
  uint32_t bindings = 0;
  std::array<uint32_t, 3> localSize = {1, 1, 1};
};
KernelInterface inspectModule(std::span<const uint32_t> words);  // throws "not a SPIR-V module"

class KernelRegistry {
 public:
  explicit KernelRegistry(VulkanContext& context);
  ~KernelRegistry();
  KernelRegistry(const KernelRegistry&) = delete;
  KernelRegistry& operator=(const KernelRegistry&) = delete;

  // The kernel of that exact name; throws std::runtime_error when there is none or the driver refuses it.
  const Kernel& get(std::string_view name);

  // Builds those of the named kernels that are missing, on several threads; returns when all are built.
  void prepare(std::span<const std::string> names);

  // The variant of the backward rasterizer that this device runs.
  std::string backwardKernelName() const;

  // (private parts are the implementation's)
};

}  // namespace quor::gs
