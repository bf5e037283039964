#include "gpu/compute/compute_stream.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {
namespace {

constexpr uint32_t kSetsPerPool = 512;
constexpr uint32_t kDescriptorsPerPool = 8192;
constexpr uint32_t kMaxBindings = 16;
constexpr size_t kMaxPushBytes = 128;
constexpr uint64_t kTimeout = 120'000'000'000;

constexpr CommandBuffer::Scope kWrites = {VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT | VK_PIPELINE_STAGE_TRANSFER_BIT,
                                          VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT};
constexpr CommandBuffer::Scope kHostAndGpuWrites = {kWrites.stages | VK_PIPELINE_STAGE_HOST_BIT,
                                                    kWrites.access | VK_ACCESS_HOST_WRITE_BIT};
constexpr CommandBuffer::Scope kAnyUse = {kWrites.stages,
                                          kWrites.access | VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_TRANSFER_READ_BIT};
constexpr CommandBuffer::Scope kHostReads = {VK_PIPELINE_STAGE_HOST_BIT, VK_ACCESS_HOST_READ_BIT};

void checkArguments(std::string_view name, const Kernel& kernel, std::span<const BufferRef> buffers, size_t pushSize) {
  if (buffers.size() != kernel.bindings) {
    throw std::runtime_error("kernel '" + std::string(name) + "' expects " + std::to_string(kernel.bindings) +
                             " buffers, got " + std::to_string(buffers.size()));
  }
  if (pushSize > kMaxPushBytes || pushSize % 4 != 0) {
    throw std::runtime_error("bad push constant size for " + std::string(name));
  }
}

void checkBuffers(std::string_view name, std::span<const BufferRef> buffers, uint32_t rangeLimit) {
  for (size_t i = 0; i < buffers.size(); ++i) {
    if (buffers[i] == nullptr || !*buffers[i]) {
      throw std::runtime_error("kernel '" + std::string(name) + "' binding " + std::to_string(i) + " is not allocated");
    }
    if (buffers[i]->size() > (rangeLimit & ~3u)) {
      throw std::runtime_error("Buffer '" + buffers[i]->name() + "' of " + std::to_string(buffers[i]->size()) +
                               " bytes is larger than the " + std::to_string(rangeLimit) +
                               " bytes that kernels can reach on this GPU. Lower the splat budget or the training "
                               "resolution.");
    }
  }
}

void checkCopyRange(const GpuBuffer& buffer, uint64_t offset, uint64_t size) {
  if (offset > buffer.size() || size > buffer.size() - offset) {
    throw std::runtime_error("copy past the end of '" + buffer.name() + "'");
  }
}

}  // namespace

ComputeStream::ComputeStream(VulkanContext& context, KernelRegistry& registry)
    : context_(context), registry_(registry), commands_(context), timer_(context) {}

ComputeStream::~ComputeStream() {
  for (VkDescriptorPool pool : pools_) vkDestroyDescriptorPool(context_.device(), pool, nullptr);
}

void ComputeStream::begin() {
  if (recording_) return;
  commands_.begin();
  recording_ = true;
  commands_.barrier(kHostAndGpuWrites, kAnyUse);
  if (timer_.enabled()) timer_.begin(commands_.handle());
}

void ComputeStream::barrier() {
  commands_.barrier(kWrites, kAnyUse);
  unordered_.clear();
  ++counts_.barriers;
}

void ComputeStream::order(std::span<const Use> uses) {
  const auto conflicts = [&](const Use& use) {
    return std::any_of(unordered_.begin(), unordered_.end(),
                       [&](const Use& before) { return before.buffer == use.buffer && (before.writes || use.writes); });
  };
  if (std::any_of(uses.begin(), uses.end(), conflicts)) barrier();
  unordered_.insert(unordered_.end(), uses.begin(), uses.end());
}

void ComputeStream::dispatch(std::string_view name, std::span<const BufferRef> buffers, const void* pushData,
                             size_t pushSize, uint32_t groupsX, uint32_t groupsY, uint32_t groupsZ,
                             std::span<const kernels::Binding> bindings) {
  const Kernel& kernel = registry_.get(name);
  checkArguments(name, kernel, buffers, pushSize);
  if (groupsX == 0 || groupsY == 0 || groupsZ == 0) return;
  const DeviceInfo& info = context_.info();
  checkBuffers(name, buffers, info.maxStorageBufferRange);
  const std::array<uint32_t, 3>& limits = info.maxComputeWorkGroupCount;
  if (groupsX > limits[0] || groupsY > limits[1] || groupsZ > limits[2]) {
    throw std::runtime_error("dispatch too large for " + std::string(name));
  }

  begin();
  const VkDescriptorSet set = takeSet(kernel);
  std::array<VkDescriptorBufferInfo, kMaxBindings> ranges;
  std::array<VkWriteDescriptorSet, kMaxBindings> writes;
  std::array<Use, kMaxBindings> uses;
  for (uint32_t i = 0; i < kernel.bindings; ++i) {
    ranges[i] = {buffers[i]->handle(), 0, VK_WHOLE_SIZE};
    writes[i] = {VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET, nullptr, set,        i,      0, 1,
                 VK_DESCRIPTOR_TYPE_STORAGE_BUFFER,      nullptr, &ranges[i], nullptr};
    uses[i] = {buffers[i]->handle(), bindings.empty() || bindings[i].access != kernels::Access::readonly};
  }
  order(std::span(uses).first(kernel.bindings));
  vkUpdateDescriptorSets(context_.device(), kernel.bindings, writes.data(), 0, nullptr);
  const VkCommandBuffer commands = commands_.handle();
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_COMPUTE, kernel.pipeline);
  vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_COMPUTE, kernel.layout, 0, 1, &set, 0, nullptr);
  if (pushSize > 0) {
    vkCmdPushConstants(commands, kernel.layout, VK_SHADER_STAGE_COMPUTE_BIT, 0, static_cast<uint32_t>(pushSize),
                       pushData);
  }
  vkCmdDispatch(commands, groupsX, groupsY, groupsZ);
  ++counts_.dispatches;
}

std::array<uint32_t, 2> ComputeStream::grid1D(uint32_t groups, const std::array<uint32_t, 3>& limits,
                                              std::string_view name) {
  if (groups == 0) return {0, 0};
  const uint32_t x = std::min({limits[0], 65535u, groups});
  const uint32_t y = (groups - 1) / x + 1;
  if (y > limits[1]) throw std::runtime_error("dispatch too large for " + std::string(name));
  return {x, y};
}

void ComputeStream::dispatch1D(std::string_view name, std::span<const BufferRef> buffers, const void* pushData,
                               size_t pushSize, uint32_t count, std::span<const kernels::Binding> bindings) {
  const uint32_t local = registry_.get(name).localSize[0];
  const uint32_t groups = count / local + (count % local != 0 ? 1 : 0);
  const auto [x, y] = grid1D(groups, context_.info().maxComputeWorkGroupCount, name);
  dispatch(name, buffers, pushData, pushSize, x, y, 1, bindings);
}

void ComputeStream::fill(const GpuBuffer& buffer, uint32_t value, uint64_t size, uint64_t offset) {
  if (size == 0 || offset >= buffer.size()) return;
  const uint64_t rest = buffer.size() - offset;
  size = std::min(size, rest);
  begin();
  order(std::array{Use{buffer.handle(), true}});
  vkCmdFillBuffer(commands_.handle(), buffer.handle(), offset, (size + 3) & ~uint64_t{3}, value);
}

void ComputeStream::copy(const GpuBuffer& src, const GpuBuffer& dst, uint64_t size, uint64_t srcOffset,
                         uint64_t dstOffset) {
  if (size == 0) return;
  checkCopyRange(src, srcOffset, size);
  checkCopyRange(dst, dstOffset, size);
  begin();
  const VkBufferCopy region{srcOffset, dstOffset, size};
  order(std::array{Use{src.handle(), false}, Use{dst.handle(), true}});
  vkCmdCopyBuffer(commands_.handle(), src.handle(), dst.handle(), 1, &region);
}

void ComputeStream::submit() {
  if (!recording_) return;
  recording_ = false;
  unordered_.clear();
  ++counts_.submits;
  if (timer_.enabled()) timer_.end(commands_.handle());
  commands_.barrier(kWrites, kHostReads);
  if (!commands_.finish(kTimeout)) throw std::runtime_error("GPU work did not finish within 120 s");
  for (VkDescriptorPool pool : pools_) {
    check(vkResetDescriptorPool(context_.device(), pool, 0), "vkResetDescriptorPool");
  }
  poolIndex_ = 0;
  setsInPool_ = 0;
  if (timer_.enabled()) timer_.finish();
  if (timer_.byHost()) timer_.hostFinish();
}

void ComputeStream::setProfiling(bool on) {
  using Clock = StageTimer::Clock;
  setProfiling(!on ? Clock::Off : context_.timestampBits() > 0 ? Clock::Gpu : Clock::Host);
}

void ComputeStream::setProfiling(StageTimer::Clock clock) {
  if (recording_) throw std::logic_error("profiling switched inside a recording");
  timer_.set(clock);
}

void ComputeStream::mark(const char* stage) {
  if (timer_.byHost()) {
    submit();
    timer_.hostMark(stage);
    return;
  }
  if (!timer_.enabled()) return;
  begin();
  barrier();  // what a stretch records is its own
  timer_.mark(commands_.handle(), stage);
}

void ComputeStream::addPool() {
  const VkDescriptorPoolSize size{VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, kDescriptorsPerPool};
  auto info = vulkanStruct<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
  info.maxSets = kSetsPerPool;
  info.poolSizeCount = 1;
  info.pPoolSizes = &size;
  pools_.reserve(pools_.size() + 1);
  VkDescriptorPool pool = VK_NULL_HANDLE;
  check(vkCreateDescriptorPool(context_.device(), &info, nullptr, &pool), "vkCreateDescriptorPool");
  pools_.push_back(pool);
}

VkDescriptorSet ComputeStream::takeSet(const Kernel& kernel) {
  auto info = vulkanStruct<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  info.descriptorSetCount = 1;
  info.pSetLayouts = &kernel.setLayout;
  for (;;) {
    if (setsInPool_ == kSetsPerPool) {
      ++poolIndex_;
      setsInPool_ = 0;
    }
    const bool fresh = poolIndex_ == pools_.size();
    if (fresh) addPool();
    info.descriptorPool = pools_[poolIndex_];
    VkDescriptorSet set = VK_NULL_HANDLE;
    const VkResult result = vkAllocateDescriptorSets(context_.device(), &info, &set);
    const bool full = result == VK_ERROR_OUT_OF_POOL_MEMORY || result == VK_ERROR_FRAGMENTED_POOL;
    if (full && !(fresh && setsInPool_ == 0)) {  // a pool that refuses its first set would refuse it for ever
      setsInPool_ = kSetsPerPool;
      continue;
    }
    check(result, "vkAllocateDescriptorSets");
    ++setsInPool_;
    return set;
  }
}

}  // namespace quor::gs
