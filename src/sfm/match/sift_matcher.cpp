#include "sfm/match/sift_matcher.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "sfm/match/kernels/interfaces.h"

namespace quor {
namespace {

using gs::BufferKind;
using gs::GpuBuffer;

constexpr uint32_t kResultCapacity = 1u << 20;  // features
constexpr size_t kChunkPairs = 1024;
constexpr uint32_t kTile = 64;  // descriptors a side
constexpr uint64_t kPartialBytes = 8;
constexpr uint64_t kTileWork = uint64_t{kTile} * kTile;
static_assert(SiftMatcher::kSubmissionWork / kTileWork < 65536);  // what every device takes as one dimension of a grid

uint32_t tilesOf(uint32_t features) {
  return features / kTile + (features % kTile != 0 ? 1 : 0);
}

const char* nameOf(SiftMatcher::Kernel kernel) {
  switch (kernel) {
    case SiftMatcher::Kernel::PackedDot:
      return "sift_match_tiles_packed";
    case SiftMatcher::Kernel::Wide:
      return "sift_match_tiles_wide";
    default:
      return "sift_match_tiles";
  }
}

uint64_t largestBuffer(const gs::VulkanContext& context) {
  return std::min<uint64_t>(context.info().maxStorageBufferRange, context.info().maxAllocationSize);
}

}  // namespace

SiftMatcher::Kernel SiftMatcher::kernelFor(const gs::DeviceInfo& device) {
  if (device.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU) return Kernel::Wide;
  return device.fastPackedDot ? Kernel::PackedDot : Kernel::Plain;
}

SiftMatcher::SiftMatcher(gs::VulkanContext& context, gs::KernelRegistry& registry, std::vector<uint32_t> counts,
                         const SiftMatchOptions& options, Kernel kernel, uint64_t submissionWork)
    : context_(context),
      stream_(context, registry),
      transfer_(context),
      options_(options),
      tilesKernel_(nameOf(kernel)),
      submissionWork_(submissionWork),
      counts_(std::move(counts)) {
  placeImages();
  reserve();
}

// All images in one buffer, or in as many as it takes when a kernel cannot be given one so large.
void SiftMatcher::placeImages() {
  const uint64_t most = largestBuffer(context_) / kDescriptorBytes;
  std::vector<uint64_t> blocks(1, 0);
  for (const uint32_t count : counts_) {
    if (blocks.back() > 0 && blocks.back() + count > most) blocks.push_back(0);
    places_.push_back({static_cast<uint32_t>(blocks.size() - 1), static_cast<uint32_t>(blocks.back())});
    blocks.back() += count;
  }
  for (const uint64_t block : blocks) {
    descriptors_.emplace_back(context_, std::max<uint64_t>(block, 1) * kDescriptorBytes, BufferKind::Device,
                              "descriptors");
  }
}

void SiftMatcher::reserve() {
  const uint32_t most = counts_.empty() ? 0 : *std::max_element(counts_.begin(), counts_.end());
  const uint64_t features = std::max(most, 1u);
  const uint64_t partials = features * tilesOf(most) * kPartialBytes;
  if (std::max(partials, features * kDescriptorBytes) > largestBuffer(context_)) {
    throw std::runtime_error("an image has " + std::to_string(most) +
                             " features, more than this GPU can match at once");
  }
  const auto make = [this](uint64_t bytes, const char* name) {
    return GpuBuffer(context_, std::max<uint64_t>(bytes, kPartialBytes), BufferKind::Device, name);
  };
  rowPartials_ = make(partials, "match row partials");
  columnPartials_ = make(partials, "match column partials");
  matchA_ = make(features * sizeof(int32_t), "match A");
  matchB_ = make(features * sizeof(int32_t), "match B");
  results_ = make(std::max<uint64_t>(features, kResultCapacity) * sizeof(int32_t), "match results");
}

void SiftMatcher::upload(uint32_t image, std::span<const uint8_t> descriptors) {
  if (descriptors.size() != counts_.at(image) * kDescriptorBytes) {
    throw std::logic_error("SiftMatcher was given another number of descriptors than planned");
  }
  const Place& place = places_[image];
  transfer_.upload(descriptors_[place.block], descriptors.data(), place.start * kDescriptorBytes, descriptors.size());
}

std::vector<SiftMatcher::Chunk> SiftMatcher::plan(std::span<const Pair> pairs) const {
  std::vector<Chunk> chunks;
  uint64_t work = 0, results = 0;
  for (size_t i = 0; i < pairs.size(); ++i) {
    const uint64_t count1 = counts_.at(pairs[i].first), count2 = counts_.at(pairs[i].second);
    if (chunks.empty() || work + count1 * count2 > submissionWork_ || results + count1 > kResultCapacity ||
        i - chunks.back().first == kChunkPairs) {
      chunks.push_back({i, i});
      work = results = 0;
    }
    chunks.back().last = i + 1;
    work += count1 * count2;
    results += count1;
  }
  return chunks;
}

std::vector<std::vector<FeatureMatch>> SiftMatcher::match(std::span<const Pair> chunk) {
  const auto empty = [this](const Pair& pair) { return counts_.at(pair.first) == 0 || counts_.at(pair.second) == 0; };
  uint32_t results = 0;
  for (const Pair& pair : chunk) {
    if (empty(pair)) continue;
    record(pair, results);
    results += counts_[pair.first];
  }
  stream_.submit();
  std::vector<int32_t> partners(results);
  transfer_.download(results_, partners.data(), 0, partners.size() * sizeof(int32_t));

  std::vector<std::vector<FeatureMatch>> matches(chunk.size());
  auto partner = partners.begin();
  for (size_t i = 0; i < chunk.size(); ++i) {
    if (empty(chunk[i])) continue;
    for (uint32_t feature = 0; feature < counts_[chunk[i].first]; ++feature, ++partner) {
      if (*partner >= 0) matches[i].push_back({feature, static_cast<uint32_t>(*partner)});
    }
  }
  return matches;
}

void SiftMatcher::record(const Pair& pair, uint32_t firstResult) {
  const uint32_t count1 = counts_[pair.first], count2 = counts_[pair.second];
  recordTiles(pair);
  stream_.dispatch1D(
      gs::kernels::SiftMatchReduce{
          .rowPartials = &rowPartials_, .columnPartials = &columnPartials_, .matchA = &matchA_, .matchB = &matchB_},
      {.count1 = count1,
       .count2 = count2,
       .tileRows = tilesOf(count1),
       .tileColumns = tilesOf(count2),
       .maxRatio = options_.maxRatio,
       .maxDistance = options_.maxDistance},
      count1 + count2);
  stream_.dispatch1D(gs::kernels::SiftMatchCross{.matchA = &matchA_, .matchB = &matchB_, .results = &results_},
                     {count1, count2, firstResult}, count1);
}

// A pair that is more than one submission's work is cut into several.
void SiftMatcher::recordTiles(const Pair& pair) {
  const Place& first = places_[pair.first];
  const Place& second = places_[pair.second];
  const uint32_t count1 = counts_[pair.first], count2 = counts_[pair.second];
  gs::kernels::SiftMatchTiles::Push push{first.start, count1, second.start, count2, 0, tilesOf(count2)};
  const uint32_t tiles = tilesOf(count1) * push.tileColumns;
  const auto most = static_cast<uint32_t>(std::max<uint64_t>(submissionWork_ / kTileWork, 1));
  while (push.firstTile < tiles) {
    if (push.firstTile > 0) stream_.submit();
    const uint32_t groups = std::min(tiles - push.firstTile, most);
    stream_.dispatch(gs::kernels::SiftMatchTiles{.first = &descriptors_[first.block],
                                                 .second = &descriptors_[second.block],
                                                 .rowPartials = &rowPartials_,
                                                 .columnPartials = &columnPartials_},
                     push, groups, 1, 1, tilesKernel_);
    push.firstTile += groups;
  }
}

}  // namespace quor
