#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <vector>

#include "gpu/embedded_kernels.h"
#include "gpu/kernel_registry.h"
#include "support/gpu_fixture.h"
#include "support/spirv_reader.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using Size = std::array<uint32_t, 3>;
constexpr Size kLine = {256, 1, 1};
constexpr Size kTile = {16, 16, 1};

struct Row {
  const char* name;
  Size localSize;
  const char* access;  // of the bindings in order
  uint32_t pushBytes;
};

// What the host code counts on, in the order of the embedded table.
constexpr Size kRuns = {8, 8, 1};
constexpr Size kEight = {8, 1, 1};
constexpr Size kPairs = {128, 1, 1};
constexpr const char* kBackwardAccess = "ro ro ro ro ro ro ro ro ro ro rw rw rw rw";
const std::vector<Row> kRows = {
    {"activate", kLine, "ro ro wo wo", 4},
    {"preprocess_forward", kLine, "ro ro ro ro ro ro wo wo wo wo wo wo", 112},
    {"preprocess_backward", kLine, "ro ro ro ro ro ro ro ro ro wo wo wo wo wo", 112},
    {"bin_count", kLine, "ro ro ro ro ro ro wo", 32},
    {"bin_write", kLine, "ro ro ro ro ro ro ro wo wo", 32},
    {"depth_keys", kLine, "ro ro wo wo", 4},
    {"tile_ranges", kLine, "ro wo", 8},
    {"rasterize_forward", kTile, "ro ro ro ro ro ro wo wo wo wo", 16},
    {"rasterize_backward:SG=1,NATIVE_ATOMIC=1", kTile, kBackwardAccess, 16},
    {"rasterize_backward:SG=1,NATIVE_ATOMIC=0", kTile, kBackwardAccess, 16},
    {"rasterize_backward:SG=0,NATIVE_ATOMIC=1", kTile, kBackwardAccess, 16},
    {"rasterize_backward:SG=0,NATIVE_ATOMIC=0", kTile, kBackwardAccess, 16},
    {"scan_block", kLine, "rw wo", 4},
    {"scan_add", kLine, "rw ro", 4},
    {"radix_hist", kLine, "ro wo", 12},
    {"radix_scatter", kLine, "ro ro wo wo ro", 12},
    {"u8_to_f32", kLine, "ro wo", 4},
    {"composite_background", kLine, "rw ro", 16},
    {"ssim_stack_blur_h", kTile, "ro ro wo", 8},
    {"ssim_blur15", kTile, "ro wo", 16},
    {"ssim_tail_forward", kLine, "ro wo", 4},
    {"ssim_tail_backward", kLine, "ro wo", 8},
    {"ssim_chain_backward", kTile, "ro ro ro wo", 8},
    {"loss_grad", kLine, "ro ro ro ro wo wo", 24},
    {"loss_partials", kLine, "ro ro ro wo", 4},
    {"activation_backward", kLine, "ro ro ro ro wo wo", 12},
    {"adam", kLine, "rw rw rw ro", 28},
    {"grad_stats", kLine, "ro ro rw rw", 16},
    {"add_noise", kLine, "rw ro ro ro", 20},
    {"rgb_to_rgba8", kLine, "ro wo", 4},
    {"sift_match_tiles", kTile, "ro ro wo wo", 24},
    {"sift_match_reduce", kLine, "ro ro wo wo", 24},
    {"sift_match_cross", kLine, "ro ro wo", 12},
    {"gather_rows", kLine, "ro ro wo", 12},
    {"weigh_near_gradients", kLine, "rw ro", 8},
    {"flag_diverged", kLine, "ro ro ro ro ro ro wo", 4},
    {"radix_runs_count", kEight, "ro rw", 12},
    {"radix_runs_scatter", kEight, "ro ro wo wo rw", 12},
    {"scan_runs", kEight, "rw wo", 8},
    {"rasterize_forward_wide", kEight, "ro ro ro ro ro ro wo wo wo wo", 16},
    {"rasterize_backward_wide", kEight, kBackwardAccess, 16},
    {"rasterize_forward_pairs", kPairs, "ro ro ro ro ro ro wo wo wo wo", 16},
    {"rasterize_backward_pairs", kPairs, kBackwardAccess, 16},
    {"loss_strips", kEight, "ro ro wo wo", 20},
    {"accumulated_gradient", kLine, "ro ro wo", 16},
    {"multiply_add_peak", kLine, "wo", 8},
    {"adam_quads", kLine, "rw rw rw ro", 28},
    {"sift_match_tiles_packed", kTile, "ro ro wo wo", 24},
    {"sift_match_tiles_wide", kRuns, "ro ro wo wo", 24},
    {"activate_scaled", kLine, "ro ro wo wo", 8},
};

std::span<const uint32_t> wordsOf(const EmbeddedKernel& kernel) {
  return {kernel.words, kernel.bytes / sizeof(uint32_t)};
}

TEST(KernelTable, EveryModuleHasTheInterfaceThatTheHostCountsOn) {
  ASSERT_EQ(embeddedKernels().size(), kRows.size());
  for (size_t i = 0; i < kRows.size(); ++i) {
    const EmbeddedKernel& kernel = embeddedKernels()[i];
    const SpirvReader module(wordsOf(kernel));
    EXPECT_EQ(kernel.name, kRows[i].name);
    EXPECT_EQ(module.localSize(), kRows[i].localSize) << kernel.name;
    EXPECT_EQ(module.access(), kRows[i].access) << kernel.name;
    EXPECT_EQ(module.pushBytes(), kRows[i].pushBytes) << kernel.name;
    const KernelInterface inspected = inspectModule(wordsOf(kernel));
    EXPECT_EQ(inspected.bindings, (module.access().size() + 1) / 3) << kernel.name;
    EXPECT_EQ(inspected.localSize, module.localSize()) << kernel.name;
  }
}

TEST(KernelTable, InspectionRefusesAndSurvivesWhatIsNoModule) {
  const std::vector<uint32_t> good(embeddedKernels()[0].words, embeddedKernels()[0].words + 64);
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
  for (const EmbeddedKernel& kernel : embeddedKernels()) {
    if (kernel.name.ends_with("NATIVE_ATOMIC=1") && !context.info().floatAtomics) continue;
    if (kernel.name.ends_with("_packed") && !context.info().packedDot) continue;
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

TEST_F(KernelRegistryTest, NamesAreExact) {
  for (const char* name : {"", "Scan_block", "scan_bloc", "rasterize_backward"}) {
    const std::string text = "No embedded shader named '" + std::string(name) + "'";
    EXPECT_EQ(test::thrownText([&] { registry.get(name); }), text);
    EXPECT_EQ(test::thrownText([&] { registry.prepare(std::vector<std::string>{"scan_block", name}); }), text);
  }
}

}  // namespace
}  // namespace quor::gs
