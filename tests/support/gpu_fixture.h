// A GoogleTest fixture for what runs on the GPU. All tests of a program share one device with the validation layer on,
// and one kernel registry; a test during which the layer says anything fails. A second device acts as if float atomics
// and subgroup reduction were missing.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "gpu/compute/compute_stream.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/gpu_buffer.h"
#include "gpu/memory/transfer.h"
#include "support/driver_leaks.h"

// The kernels of every folder that the test program may use.
#if __has_include("gs/splat_kernels.h")
#include "gs/splat_kernels.h"
#endif
#if __has_include("sfm/match/matching_kernels.h")
#include "sfm/match/matching_kernels.h"
#endif

namespace quor::gs {

struct GpuTestDevice {
  explicit GpuTestDevice(bool fallbacks)
      : context(ContextOptions{.validation = true, .forceFallbacks = fallbacks}), registry(context, {
#if __has_include("gs/splat_kernels.h")
          splatKernels(),
#endif
#if __has_include("sfm/match/matching_kernels.h")
              matchingKernels(),
#endif
        }) {
  }

  static GpuTestDevice& plain();
  static GpuTestDevice& withFallbacks();

  VulkanContext context;
  KernelRegistry registry;
};

// Made when first asked for, gone after the last test: before static objects, among them the layer's own.
class GpuTestDevices : public testing::Environment {
 public:
  void TearDown() override {
    for (auto& device : devices_) device.reset();
  }
  GpuTestDevice& get(bool fallbacks) {
    std::unique_ptr<GpuTestDevice>& device = devices_[fallbacks ? 1 : 0];
    applyLayerPolicy();
    if (!device) device = std::make_unique<GpuTestDevice>(fallbacks);
    return *device;
  }

 private:
  std::array<std::unique_ptr<GpuTestDevice>, 2> devices_;
};

inline auto* const gpu_test_devices =
    static_cast<GpuTestDevices*>(testing::AddGlobalTestEnvironment(new GpuTestDevices));

inline GpuTestDevice& GpuTestDevice::plain() {
  return gpu_test_devices->get(false);
}
inline GpuTestDevice& GpuTestDevice::withFallbacks() {
  return gpu_test_devices->get(true);
}

class GpuTest : public testing::Test {
 protected:
  explicit GpuTest(GpuTestDevice& device = GpuTestDevice::plain())
      : context(device.context), registry(device.registry), messagesBefore_(device.context.validationMessages()) {}

  void TearDown() override {
    EXPECT_EQ(context.validationMessages(), messagesBefore_) << "The validation layer complained; see standard error.";
  }

  template <class T>
  GpuBuffer makeBuffer(const std::vector<T>& items, const char* name = "test") {
    GpuBuffer buffer(context, items.size() * sizeof(T), BufferKind::Device, name);
    transfer.upload(buffer, items.data(), 0, items.size() * sizeof(T));
    return buffer;
  }

  template <class T>
  std::vector<T> readBuffer(const GpuBuffer& buffer) {
    std::vector<T> items(buffer.size() / sizeof(T));
    transfer.download(buffer, items.data(), 0, items.size() * sizeof(T));
    return items;
  }

  VulkanContext& context;
  KernelRegistry& registry;
  Transfer transfer{context};
  ComputeStream stream{context, registry};

 private:
  uint64_t messagesBefore_;
};

// The same on the device without float atomics and subgroup reduction.
class GpuFallbackTest : public GpuTest {
 protected:
  GpuFallbackTest() : GpuTest(GpuTestDevice::withFallbacks()) {}
};

}  // namespace quor::gs
