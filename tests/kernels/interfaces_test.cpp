// Every embedded kernel against what C++ declares of it, and against devices that lack something.
#include "gpu/kernels/interfaces.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "gpu/compute/embedded_kernels.h"
#include "gpu/compute/kernel_module.h"
#include "gs/render/kernels/interfaces.h"
#include "gs/splat_kernels.h"
#include "gs/train/kernels/interfaces.h"
#include "sfm/match/kernels/interfaces.h"
#include "sfm/match/matching_kernels.h"
#include "support/gpu_fixture.h"
#include "support/spirv_reader.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using kernels::Access;

struct Declared {
  std::vector<kernels::Binding> bindings;
  size_t pushBytes;
};

template <class K>
Declared declared() {
  return {{K::kBindings.begin(), K::kBindings.end()}, sizeof(typename K::Push)};
}

const std::map<std::string, Declared>& declarations() {
#define ENTRY(Type, NAME, KERNEL) {NAME, declared<kernels::Type>()},
  static const std::map<std::string, Declared> all = {GPU_KERNELS(ENTRY) RENDER_KERNELS(ENTRY) TRAIN_KERNELS(ENTRY)
                                                          MATCH_KERNELS(ENTRY)};
#undef ENTRY
  return all;
}

// A variant is named after the kernel whose interface it has: "adam_quads", "rasterize_backward:SG=1,NATIVE_ATOMIC=0".
std::string declaredNameOf(std::string name) {
  while (!name.empty() && !declarations().contains(name))
    name.erase(std::min(name.find_last_of("_:"), name.size() - 1));
  return name;
}

std::vector<EmbeddedKernel> allKernels() {
  std::vector<EmbeddedKernel> all;
  for (const auto& table : {gpuKernels(), splatKernels(), matchingKernels()}) {
    all.insert(all.end(), table.begin(), table.end());
  }
  return all;
}

std::span<const uint32_t> wordsOf(const EmbeddedKernel& kernel) {
  return {kernel.words, kernel.bytes / sizeof(uint32_t)};
}

std::string accessOf(const std::vector<kernels::Binding>& bindings) {
  std::string text;
  for (size_t i = 0; i < bindings.size(); ++i) {
    const Access access = bindings[i].access;
    if (i > 0) text += ' ';
    const char* word = access == Access::readonly ? "ro" : access == Access::writeonly ? "wo" : "rw";
    text += bindings[i].index == i ? word : "?";
  }
  return text;
}

TEST(KernelInterfaces, AreThoseThatTheHostDeclares) {
  std::map<std::string, int> used;
  for (const EmbeddedKernel& kernel : allKernels()) {
    SCOPED_TRACE(kernel.name);
    const std::string name = declaredNameOf(std::string(kernel.name));
    ASSERT_NE(name, "");
    ++used[name];
    const Declared& host = declarations().at(name);
    const SpirvReader module(wordsOf(kernel));
    EXPECT_EQ(accessOf(host.bindings), module.access());
    EXPECT_EQ(host.pushBytes, module.pushBytes());
    EXPECT_LE(host.bindings.size(), 16u);
    EXPECT_LE(host.pushBytes, 128u);
    EXPECT_EQ(inspectModule(wordsOf(kernel)).bindings, host.bindings.size());
  }
  for (const auto& [name, host] : declarations()) EXPECT_GT(used[name], 0) << name << " is declared and not embedded";
}

const EmbeddedKernel& kernelNamed(const std::vector<EmbeddedKernel>& all, std::string_view name) {
  return *std::find_if(all.begin(), all.end(), [&](const EmbeddedKernel& kernel) { return kernel.name == name; });
}

DeviceInfo ample() {
  DeviceInfo device;
  device.maxKernelBuffers = 16;
  device.maxGroupInvocations = 1024;
  device.maxGroupSize = {1024, 1024, 64};
  device.maxSharedBytes = 32768;
  device.floatAtomics = device.subgroupReduce = device.subgroupShuffle = device.packedDot = true;
  return device;
}

TEST(KernelInterfaces, WhatADeviceLacksIsSaidBeforeAnythingIsBuilt) {
  const std::vector<EmbeddedKernel> all = allKernels();
  const auto why = [&](const DeviceInfo& device, std::string_view name) {
    return whyNotRun(inspectModule(wordsOf(kernelNamed(all, name))), device);
  };
  for (const EmbeddedKernel& kernel : all) EXPECT_EQ(why(ample(), kernel.name), "") << kernel.name;

  DeviceInfo device = ample();
  device.maxKernelBuffers = 12;
  EXPECT_EQ(why(device, "preprocess_backward"), "it needs 14 storage buffers at once, and this GPU allows 12");
  EXPECT_EQ(why(device, "preprocess_forward"), "");
  device = ample();
  device.maxGroupInvocations = 128;
  EXPECT_EQ(why(device, "activate"), "it needs 256 invocations in a work group, and this GPU allows 128");
  device = ample();
  device.maxSharedBytes = 16384;
  EXPECT_EQ(why(device, "sift_match_tiles"), "it needs 16896 bytes of shared memory, and this GPU allows 16384");

  // The forward by pairs needs subgroups and no float atomics, the backward both.
  device = ample();
  device.floatAtomics = false;
  EXPECT_EQ(why(device, "rasterize_forward_pairs"), "");
  EXPECT_EQ(why(device, "rasterize_backward:SG=1,NATIVE_ATOMIC=0"), "");
  EXPECT_EQ(why(device, "rasterize_backward_pairs:NATIVE_ATOMIC=1"),
            "it needs native float atomics, which this GPU does not offer");
  device = ample();
  device.subgroupReduce = device.subgroupShuffle = false;
  EXPECT_EQ(why(device, "loss_strips"), "it needs subgroup operations that this GPU does not offer");
  EXPECT_EQ(why(device, "rasterize_backward:SG=0,NATIVE_ATOMIC=0"), "");
  device = ample();
  device.packedDot = false;
  EXPECT_EQ(why(device, "sift_match_tiles_packed"), "it needs packed dot products, which this GPU does not offer");
}

using KernelFallbackTest = GpuFallbackTest;

TEST_F(KernelFallbackTest, NoKernelIsBuiltThatTheDeviceCannotRun) {
  size_t refused = 0;
  for (const EmbeddedKernel& kernel : allKernels()) {
    const std::string name(kernel.name);
    if (registry.runs(name)) continue;
    ++refused;
    const std::string text = test::thrownText([&] { registry.get(name); });
    EXPECT_EQ(text.find("This GPU cannot run the kernel '" + name + "': it needs "), 0u) << text;
  }
  EXPECT_GE(refused, 8u);
  EXPECT_TRUE(registry.runs(registry.backwardKernelName()));
}

}  // namespace
}  // namespace quor::gs
