// Matches SIFT descriptors of many images on the GPU. The descriptors go up once; after that pairs are matched in
// chunks, each one bounded piece of work. The result is exact: it depends neither on the device nor on the kernel.
//
// Distances are angles between descriptors, which COLMAP scales to a length of 512.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "gpu/compute/compute_stream.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/gpu_buffer.h"
#include "gpu/memory/transfer.h"

namespace quor {

struct SiftMatchOptions {
  float maxRatio = 0.8f;     // of the nearest descriptor's angle to the second nearest's; a match lies below it
  float maxDistance = 0.7f;  // radians
};

// A feature of a pair's first image and its match in the second: each is the other's nearest.
struct FeatureMatch {
  uint32_t first;
  uint32_t second;
  bool operator==(const FeatureMatch&) const = default;
};

class SiftMatcher {
 public:
  static constexpr size_t kDescriptorBytes = 128;
  // Dot products that the GPU is given at once. A tenth of a second on slow integrated graphics: no watchdog of a
  // desktop minds, and a cancelled run ends soon.
  static constexpr uint64_t kSubmissionWork = uint64_t{1} << 27;

  enum class Kernel { Plain, PackedDot, Wide };
  static Kernel kernelFor(const gs::DeviceInfo& device);

  // What to match, as places in the list of images.
  using Pair = std::pair<uint32_t, uint32_t>;
  // Pairs [first, last) of a list.
  struct Chunk {
    size_t first, last;
  };

  // `counts` are the images' numbers of descriptors. Throws std::runtime_error when the GPU's memory or buffer limits
  // do not hold them. Context and registry outlive the matcher.
  SiftMatcher(gs::VulkanContext& context, gs::KernelRegistry& registry, std::vector<uint32_t> counts,
              const SiftMatchOptions& options, Kernel kernel, uint64_t submissionWork = kSubmissionWork);

  // counts[image] rows of 128 bytes; once for every image, before the first match().
  void upload(uint32_t image, std::span<const uint8_t> descriptors);

  // Cuts the pairs, in their order, into what match() may be given at once.
  std::vector<Chunk> plan(std::span<const Pair> pairs) const;

  // The matches of each pair, by rising index in its first image.
  std::vector<std::vector<FeatureMatch>> match(std::span<const Pair> chunk);

 private:
  struct Place {
    uint32_t block, start;  // a buffer of descriptors and the image's first in it
  };
  void placeImages();
  void reserve();
  void record(const Pair& pair, uint32_t firstResult);
  void recordTiles(const Pair& pair);

  gs::VulkanContext& context_;
  gs::ComputeStream stream_;
  gs::Transfer transfer_;
  const SiftMatchOptions options_;
  const char* const tilesKernel_;
  const uint64_t submissionWork_;
  const std::vector<uint32_t> counts_;
  std::vector<Place> places_;
  std::vector<gs::GpuBuffer> descriptors_;
  gs::GpuBuffer rowPartials_, columnPartials_, matchA_, matchB_, results_;
};

}  // namespace quor
