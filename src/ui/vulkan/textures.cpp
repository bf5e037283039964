#include "ui/vulkan/textures.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::ui {
namespace {

using gs::check;
using gs::vulkanStruct;

constexpr VkFormat kFormat = VK_FORMAT_R8G8B8A8_UNORM;
constexpr VkImageSubresourceRange kWhole = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};

void change(VkCommandBuffer commands, VkImage image, VkImageLayout from, VkImageLayout to, VkPipelineStageFlags before,
            VkAccessFlags written, VkPipelineStageFlags after, VkAccessFlags use) {
  auto barrier = vulkanStruct<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  barrier.srcAccessMask = written;
  barrier.dstAccessMask = use;
  barrier.oldLayout = from;
  barrier.newLayout = to;
  barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  barrier.image = image;
  barrier.subresourceRange = kWhole;
  vkCmdPipelineBarrier(commands, before, after, 0, 0, nullptr, 0, nullptr, 1, &barrier);
}

}  // namespace

Textures::Textures(gs::VulkanContext& context) : context_(context) {
  auto samplerInfo = vulkanStruct<VkSamplerCreateInfo>(VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO);
  samplerInfo.magFilter = samplerInfo.minFilter = VK_FILTER_LINEAR;
  samplerInfo.addressModeU = samplerInfo.addressModeV = samplerInfo.addressModeW =
      VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
  check(vkCreateSampler(context.device(), &samplerInfo, nullptr, &sampler_), "vkCreateSampler");
  const VkDescriptorSetLayoutBinding binding = {0, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1,
                                                VK_SHADER_STAGE_FRAGMENT_BIT, &sampler_};
  auto layoutInfo = vulkanStruct<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  layoutInfo.bindingCount = 1;
  layoutInfo.pBindings = &binding;
  check(vkCreateDescriptorSetLayout(context.device(), &layoutInfo, nullptr, &layout_), "vkCreateDescriptorSetLayout");
}

Textures::~Textures() {
  for (auto& [id, texture] : textures_) release(texture);
  vkDestroyDescriptorSetLayout(context_.device(), layout_, nullptr);
  vkDestroySampler(context_.device(), sampler_, nullptr);
}

void Textures::release(Texture& texture) noexcept {
  const VkDevice device = context_.device();
  vkDestroyDescriptorPool(device, texture.pool, nullptr);
  vkDestroyImageView(device, texture.view, nullptr);
  vkDestroyImage(device, texture.image, nullptr);
  vkFreeMemory(device, texture.memory, nullptr);
  texture = Texture();
}

void Textures::make(Texture& texture, int width, int height) {
  const VkDevice device = context_.device();
  texture.width = width;
  texture.height = height;
  auto imageInfo = vulkanStruct<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
  imageInfo.imageType = VK_IMAGE_TYPE_2D;
  imageInfo.format = kFormat;
  imageInfo.extent = {static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1};
  imageInfo.mipLevels = imageInfo.arrayLayers = 1;
  imageInfo.samples = VK_SAMPLE_COUNT_1_BIT;
  imageInfo.tiling = VK_IMAGE_TILING_OPTIMAL;
  imageInfo.usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
  check(vkCreateImage(device, &imageInfo, nullptr, &texture.image), "vkCreateImage");
  VkMemoryRequirements needs;
  vkGetImageMemoryRequirements(device, texture.image, &needs);
  auto allocate = vulkanStruct<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  allocate.allocationSize = needs.size;
  allocate.memoryTypeIndex =
      gs::chooseMemoryType(context_.memoryProperties(), needs.memoryTypeBits, 0, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
  check(vkAllocateMemory(device, &allocate, nullptr, &texture.memory), "vkAllocateMemory for a picture");
  check(vkBindImageMemory(device, texture.image, texture.memory, 0), "vkBindImageMemory");
  auto viewInfo = vulkanStruct<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
  viewInfo.image = texture.image;
  viewInfo.viewType = VK_IMAGE_VIEW_TYPE_2D;
  viewInfo.format = kFormat;
  viewInfo.subresourceRange = kWhole;
  check(vkCreateImageView(device, &viewInfo, nullptr, &texture.view), "vkCreateImageView");
  makeDescriptor(texture);
}

void Textures::makeDescriptor(Texture& texture) {
  const VkDevice device = context_.device();
  const VkDescriptorPoolSize size = {VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1};
  auto poolInfo = vulkanStruct<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
  poolInfo.maxSets = 1;
  poolInfo.poolSizeCount = 1;
  poolInfo.pPoolSizes = &size;
  check(vkCreateDescriptorPool(device, &poolInfo, nullptr, &texture.pool), "vkCreateDescriptorPool");
  auto setInfo = vulkanStruct<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  setInfo.descriptorPool = texture.pool;
  setInfo.descriptorSetCount = 1;
  setInfo.pSetLayouts = &layout_;
  check(vkAllocateDescriptorSets(device, &setInfo, &texture.descriptor), "vkAllocateDescriptorSets");
  const VkDescriptorImageInfo image = {VK_NULL_HANDLE, texture.view, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL};
  auto write = vulkanStruct<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
  write.dstSet = texture.descriptor;
  write.descriptorCount = 1;
  write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
  write.pImageInfo = &image;
  vkUpdateDescriptorSets(device, 1, &write, 0, nullptr);
}

void Textures::fillStaging(Texture& texture, std::span<const uint8_t> rgba) {
  if (rgba.size() != size_t{4} * static_cast<size_t>(texture.width) * static_cast<size_t>(texture.height)) {
    throw std::logic_error("A picture's bytes are not of its size");
  }
  if (!texture.staging) {
    texture.staging = gs::GpuBuffer(context_, rgba.size(), gs::BufferKind::Upload, "picture staging");
  }
  std::memcpy(texture.staging.mapped(), rgba.data(), rgba.size());
  texture.pending = true;
}

TextureId Textures::create(int width, int height, std::span<const uint8_t> rgba) {
  const TextureId id = ++last_;
  replace(id, width, height, rgba);
  return id;
}

void Textures::replace(TextureId id, int width, int height, std::span<const uint8_t> rgba) {
  Texture& texture = textures_[id];
  if (texture.image == VK_NULL_HANDLE || texture.width != width || texture.height != height) {
    release(texture);
    try {
      make(texture, width, height);
    } catch (...) {
      release(texture);
      textures_.erase(id);
      throw;
    }
  }
  fillStaging(texture, rgba);
}

void Textures::destroy(TextureId id) {
  const auto found = textures_.find(id);
  if (found == textures_.end()) return;
  release(found->second);
  textures_.erase(found);
}

void Textures::recordUploads(VkCommandBuffer commands) {
  for (auto& [id, texture] : textures_) {
    if (!std::exchange(texture.pending, false)) continue;
    const bool fresh = std::exchange(texture.fresh, false);
    change(commands, texture.image, fresh ? VK_IMAGE_LAYOUT_UNDEFINED : VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL,
           VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
           fresh ? VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT : VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT,
           fresh ? 0 : VK_ACCESS_SHADER_READ_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT);
    VkBufferImageCopy region = {};
    region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.imageExtent = {static_cast<uint32_t>(texture.width), static_cast<uint32_t>(texture.height), 1};
    vkCmdCopyBufferToImage(commands, texture.staging.handle(), texture.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1,
                           &region);
    change(commands, texture.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL,
           VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT, VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT,
           VK_ACCESS_SHADER_READ_BIT);
  }
}

VkDescriptorSet Textures::descriptor(TextureId id) const {
  const auto found = textures_.find(id);
  return found == textures_.end() ? VK_NULL_HANDLE : found->second.descriptor;
}

}  // namespace quor::ui
