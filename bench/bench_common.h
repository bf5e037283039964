// What the benches share: the command line, a scene with the depth complexity of a real one, and how often to measure.
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <numeric>
#include <vector>

#include "base/split_mix64.h"
#include "gpu/compute/compute_stream.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/gpu_buffer.h"
#include "gpu/memory/transfer.h"
#include "gs/render/camera.h"
#include "gs/render/renderer.h"
#include "gs/splat_kernels.h"
#include "gs/splats/gaussian_set.h"
#include "gs/splats/splat_store.h"
#include "kernels.h"

namespace quor::bench {

struct Size {
  uint32_t splats;
  int width, height, degree;
};

// A camera that looks into the scene's box from outside.
inline gs::Camera benchCamera(const Size& size) {
  gs::Camera camera;
  camera.width = size.width;
  camera.height = size.height;
  camera.fx = camera.fy = 0.8 * std::max(size.width, size.height);
  camera.cx = 0.5 * size.width;
  camera.cy = 0.5 * size.height;
  camera.translation = {0, 0, 3.5};
  return camera;
}

// Splats in a box around the origin, log-normal in size, sized so that the camera lists about five tiles for each splat
// that it sees.
inline gs::GaussianSet benchScene(const Size& size, uint64_t seed = 1) {
  constexpr double kInstancesPerSplat = 5;
  SplitMix64 random(seed);
  gs::GaussianSet set;
  set.resize(size.splats);
  // A splat of standard deviation s pixels reaches about 2.5 s; it touches about (1 + 5 s / 16)^2 tiles.
  const double pixels = 16.0 / 5.0 * (std::sqrt(kInstancesPerSplat) - 1.0);
  const double deviation = pixels * 3.5 / (0.8 * size.width);
  for (size_t i = 0; i < size.splats; ++i) {
    const double box[3] = {2.0, 1.2, 1.5};
    for (size_t k = 0; k < 3; ++k) {
      set.positions[3 * i + k] = static_cast<float>(box[k] * (2 * random.uniform() - 1));
      set.scales[3 * i + k] = static_cast<float>(std::log(deviation) + 0.5 * random.normal() - 0.2);
      set.shDc[3 * i + k] = static_cast<float>(random.normal());
    }
    for (size_t k = 0; k < 4; ++k) set.rotations[4 * i + k] = static_cast<float>(random.normal());
    set.opacities[i] = static_cast<float>(1.5 * random.normal());
    for (size_t k = 0; k < 45; ++k) set.shRest[45 * i + k] = static_cast<float>(0.05 * random.normal());
  }
  return set;
}

inline constexpr float kBenchNear = 0.01f;

struct SceneFigures {
  uint64_t storeBytes = 0;  // of splats, gradients and moments on the GPU
  uint32_t visible = 0;     // splats in the view
  uint32_t instances = 0;   // of splats in tiles
  double pairs = 0;         // of pixel and splat, up to the last that the pixel needs
};

inline SceneFigures measureScene(gs::VulkanContext& context, gs::KernelRegistry& registry, const gs::GaussianSet& set,
                                 const gs::Camera& camera) {
  SceneFigures figures;
  const uint64_t before = gs::GpuBuffer::liveBytes();
  gs::SplatStore splats(context, gs::SplatStore::Use::Training);
  splats.upload(*std::make_unique<gs::Transfer>(context), set);  // whose staging buffer goes at once
  figures.storeBytes = gs::GpuBuffer::liveBytes() - before;
  gs::Transfer transfer(context);
  gs::ComputeStream stream(context, registry);
  gs::Renderer renderer(context, registry, gs::Renderer::Mode::RenderOnly);
  renderer.reserve(splats.count(), camera.width, camera.height);
  renderer.project(stream, splats, camera, 0, kBenchNear);
  std::vector<int32_t> visible(splats.count());
  transfer.download(renderer.visible(), visible.data(), 0, visible.size() * sizeof(int32_t));
  figures.visible = static_cast<uint32_t>(std::accumulate(visible.begin(), visible.end(), 0));
  figures.instances = renderer.instances();
  renderer.rasterize(stream, {0, 0, 0});
  stream.submit();
  std::vector<int32_t> walked(static_cast<size_t>(camera.width) * static_cast<size_t>(camera.height));
  transfer.download(renderer.lastContributor(), walked.data(), 0, walked.size() * sizeof(int32_t));
  figures.pairs = std::accumulate(walked.begin(), walked.end(), 0.0);
  return figures;
}

// Processor time of this process, all threads, so far. On a software driver it says what a stretch costs where the
// cores are shared with other work; on a GPU what the host has to do.
inline double processorMilliseconds() {
  return 1e3 * static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

struct Timing {
  double median = 0, least = 0;  // milliseconds
  size_t runs = 0;
  double processor = 0;  // milliseconds of one run, where that was measured
};

// Calls `once`, which returns the milliseconds it took, until that was long or often enough; three times at least.
template <class Once>
Timing measure(Once once, double enoughMilliseconds, size_t mostRuns) {
  std::vector<double> times;
  for (double total = 0; times.size() < 3 || (total < enoughMilliseconds && times.size() < mostRuns);) {
    times.push_back(once());
    total += times.back();
  }
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times.front(), times.size(), 0};
}

// What every bench's main is: names the device (QUOR_DEVICE chooses it), then `run(context, registry, size)` for the
// one size that "SPLATS WIDTH HEIGHT [DEGREE]" gives, else for those of this kind of device.
template <class Run>
int benchMain(int argc, char** argv, const std::vector<Size>& onProcessor, const std::vector<Size>& onGpu, Run run) {
  try {
    gs::applyLayerPolicy();
    gs::VulkanContext context({});
    gs::KernelRegistry registry(context, {gs::splatKernels(), gs::benchKernels()});
    std::printf("%s · driver %s\n", describe(context.info()).c_str(), context.info().driver.c_str());
    std::vector<Size> sizes = context.info().deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU ? onProcessor : onGpu;
    if (argc > 1) {
      const auto number = [&](int i, int otherwise) { return i < argc ? std::atoi(argv[i]) : otherwise; };
      sizes = {{static_cast<uint32_t>(number(1, 0)), number(2, 0), number(3, 0), number(4, 3)}};
      if (sizes[0].splats == 0 || sizes[0].width <= 0 || sizes[0].height <= 0) {
        std::fprintf(stderr, "usage: %s [SPLATS WIDTH HEIGHT [DEGREE]]\n", argv[0]);
        return 2;
      }
    }
    for (const Size& size : sizes) run(context, registry, size);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}

}  // namespace quor::bench
