// Pipelines of the embedded kernels, built when first needed and kept. Any thread may ask.
#pragma once

#include <volk.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "gpu/compute/embedded_kernels.h"
#include "gpu/compute/kernel_module.h"

namespace quor::gs {

class VulkanContext;

struct Kernel {
  VkPipeline pipeline = VK_NULL_HANDLE;
  VkPipelineLayout layout = VK_NULL_HANDLE;
  VkDescriptorSetLayout setLayout = VK_NULL_HANDLE;
  uint32_t bindings = 0;
  std::array<uint32_t, 3> localSize = {1, 1, 1};
};

class KernelRegistry {
 public:
  // Knows the kernels of gpu/kernels and those of `tables`.
  explicit KernelRegistry(VulkanContext& context, std::initializer_list<std::span<const EmbeddedKernel>> tables = {});
  ~KernelRegistry();
  KernelRegistry(const KernelRegistry&) = delete;
  KernelRegistry& operator=(const KernelRegistry&) = delete;

  // The kernel of that exact name; throws std::runtime_error when there is none, when the device lacks what it needs,
  // or when the driver refuses it.
  const Kernel& get(std::string_view name);

  // Builds those of the named kernels that are missing, on several threads; returns when all are built.
  void prepare(std::span<const std::string> names);

  // Whether the device offers all that the kernel needs. Builds nothing.
  bool runs(std::string_view name) const;

  // The variant of the backward rasterizer that this device runs.
  std::string backwardKernelName() const;

  // What was found to be the best variant of a kernel on this device, for all who share this registry; none until
  // somebody has looked.
  void chooseVariant(const std::string& kernel, const std::string& variant);
  std::optional<std::string> chosenVariant(const std::string& kernel) const;

 private:
  // One embedded module. Its own lock lets different kernels be built side by side and each only once.
  struct Slot {
    EmbeddedKernel module;
    std::mutex building;
    std::atomic<bool> built = false;
    Kernel kernel;
  };

  size_t indexOf(std::string_view name) const;
  const Kernel& getAt(size_t index);
  Kernel build(const EmbeddedKernel& module) const;
  void createLayouts(Kernel& kernel) const;
  void createPipeline(Kernel& kernel, const EmbeddedKernel& module) const;
  void destroy(const Kernel& kernel) const noexcept;

  VulkanContext& context_;
  VkPipelineCache cache_ = VK_NULL_HANDLE;
  std::unordered_map<std::string_view, size_t> index_;  // never changes after construction
  std::vector<Slot> slots_;
  mutable std::mutex choosing_;
  std::map<std::string, std::string> chosen_;  // kernel to variant
};

}  // namespace quor::gs
