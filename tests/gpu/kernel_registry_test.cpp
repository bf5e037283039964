#include "gpu/compute/kernel_registry.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <vector>

#include "gpu/compute/embedded_kernels.h"
#include "support/gpu_fixture.h"

namespace quor::gs {
namespace {

TEST(KernelModule, InspectionRefusesAndSurvivesWhatIsNoModule) {
  const std::vector<uint32_t> good(gpuKernels()[0].words, gpuKernels()[0].words + 64);
  EXPECT_THROW(inspectModule(std::span(good).first(4)), std::runtime_error);
  std::vector<uint32_t> swapped = good;
  swapped[0] = 0x03022307;
  EXPECT_THROW(inspectModule(swapped), std::runtime_error);
  for (size_t length = 5; length < good.size(); ++length) inspectModule(std::span(good).first(length));
  std::vector<uint32_t> endless = good;
  endless[5] = 71;  // an instruction of no words
  EXPECT_EQ(inspectModule(endless).bindings, 0u);
}

using KernelRegistryTest = GpuTest;

TEST_F(KernelRegistryTest, BuildsEachKernelOnceAndOnManyThreads) {
  KernelRegistry fresh(context);
  std::vector<std::string> names;
  for (const EmbeddedKernel& kernel : gpuKernels()) {
    names.emplace_back(kernel.name);
  }
  fresh.prepare(names);
  std::set<VkPipeline> pipelines;
  for (const std::string& name : names) {
    const Kernel& kernel = fresh.get(name);
    EXPECT_EQ(&kernel, &fresh.get(name));
    pipelines.insert(kernel.pipeline);
  }
  EXPECT_EQ(pipelines.size(), names.size());
}

}  // namespace
}  // namespace quor::gs
