// compile_kernels: builds every kernel that the first Vulkan device would be given, one after the other, and prints the
// name of each on standard error before, so that what a driver prints of a pipeline can be told apart. Nothing is
// dispatched: a driver's null device will do. scripts/gpu_compile.sh makes a table of it.
#include <cstdio>
#include <exception>
#include <set>
#include <string>

#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gs/render/renderer.h"
#include "gs/splat_kernels.h"
#include "sfm/match/matching_kernels.h"

namespace quor::gs {
namespace {

std::set<std::string> kernelsOf(const Renderer::Variants& variants) {
  const std::vector<std::string> names = Renderer::kernelNames(variants, Renderer::Mode::Training);
  return {names.begin(), names.end()};
}

int compile() {
  VulkanContext context({});
  KernelRegistry registry(context, {splatKernels(), matchingKernels()});
  const Renderer::Variants chosen = Renderer::Variants::forDevice(context, registry);
  const std::set<std::string> needed = kernelsOf(chosen);
  std::set<std::string> forSoftware = kernelsOf(Renderer::Variants::forSoftware());
  forSoftware.insert("sift_match_tiles_wide");
  for (const auto& table : {gpuKernels(), splatKernels(), matchingKernels()}) {
    for (const EmbeddedKernel& kernel : table) {
      const std::string name(kernel.name);
      if (!registry.runs(name) || (forSoftware.contains(name) && !needed.contains(name))) continue;
      std::fprintf(stderr, "kernel %s\n", name.c_str());
      std::fflush(stderr);
      registry.get(name);
    }
  }
  std::printf("%s\n", context.info().name.c_str());
  return 0;
}

}  // namespace
}  // namespace quor::gs

int main() {
  try {
    return quor::gs::compile();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
  }
}
