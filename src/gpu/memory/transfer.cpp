#include "gpu/memory/transfer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "gpu/device/vulkan_context.h"

namespace quor::gs {
namespace {

constexpr size_t kStagingMost = size_t{64} << 20;
constexpr size_t kStagingLeast = size_t{1} << 20;

void checkRange(const char* what, const GpuBuffer& buffer, size_t offset, size_t size) {
  if (offset > buffer.size() || size > buffer.size() - offset) {
    throw std::runtime_error(std::string(what) + " past the end of '" + buffer.name() + "'");
  }
}

}  // namespace

void Transfer::growStaging(size_t size) {
  const size_t needed = std::min(size, kStagingMost);
  if (staging_.size() >= needed) return;
  staging_ = GpuBuffer();
  staging_ = GpuBuffer(context_, std::max(needed, kStagingLeast), BufferKind::Readback, "staging");
}

void Transfer::run(const std::function<void(VkCommandBuffer)>& record) {
  commands_.begin();
  commands_.barrier({VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT | VK_PIPELINE_STAGE_TRANSFER_BIT,
                     VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT},
                    {VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_READ_BIT | VK_ACCESS_TRANSFER_WRITE_BIT});
  record(commands_.handle());
  commands_.barrier({VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT},
                    {VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT | VK_PIPELINE_STAGE_HOST_BIT,
                     VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_HOST_READ_BIT});
  commands_.finish(UINT64_MAX);
}

void Transfer::upload(GpuBuffer& dst, const void* src, size_t offset, size_t size) {
  checkRange("upload", dst, offset, size);
  if (size == 0) return;
  growStaging(size);
  for (size_t done = 0; done < size;) {
    const size_t chunk = std::min<size_t>(size - done, staging_.size());
    std::memcpy(staging_.mapped(), static_cast<const std::byte*>(src) + done, chunk);
    run([&](VkCommandBuffer commands) {
      const VkBufferCopy region{0, offset + done, chunk};
      vkCmdCopyBuffer(commands, staging_.handle(), dst.handle(), 1, &region);
    });
    done += chunk;
  }
}

void Transfer::download(const GpuBuffer& src, void* dst, size_t offset, size_t size) {
  checkRange("download", src, offset, size);
  if (size == 0) return;
  growStaging(size);
  for (size_t done = 0; done < size;) {
    const size_t chunk = std::min<size_t>(size - done, staging_.size());
    run([&](VkCommandBuffer commands) {
      const VkBufferCopy region{offset + done, 0, chunk};
      vkCmdCopyBuffer(commands, src.handle(), staging_.handle(), 1, &region);
    });
    std::memcpy(static_cast<std::byte*>(dst) + done, staging_.mapped(), chunk);
    done += chunk;
  }
}

void Transfer::fill(GpuBuffer& dst, uint32_t value, size_t offset, size_t size) {
  checkRange("fill", dst, offset, size);
  if (size == 0) return;
  run([&](VkCommandBuffer commands) {
    vkCmdFillBuffer(commands, dst.handle(), offset, (size + 3) & ~size_t{3}, value);
  });
}

}  // namespace quor::gs
