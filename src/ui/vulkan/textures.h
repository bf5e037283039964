// Pictures on the GPU for the interface to draw with, by number. Everything here happens on the interface's thread
// while no frame is in flight, so nothing that a frame still reads is ever written or freed.
#pragma once

#include <volk.h>

#include <cstdint>
#include <map>
#include <span>

#include "gpu/memory/gpu_buffer.h"
#include "ui/viewport/image_cache.h"

namespace quor::ui {

class Textures {
 public:
  explicit Textures(gs::VulkanContext& context);
  ~Textures();  // the device must be idle
  Textures(const Textures&) = delete;
  Textures& operator=(const Textures&) = delete;

  // Four bytes a pixel, rows from the top. They reach the GPU with the next frame.
  TextureId create(int width, int height, std::span<const uint8_t> rgba);
  // The same size is written anew, another makes another texture under the same number.
  void replace(TextureId id, int width, int height, std::span<const uint8_t> rgba);
  void destroy(TextureId id);

  // Records the copies of new pixels; before the render pass that shows them.
  void recordUploads(VkCommandBuffer commands);

  VkDescriptorSetLayout layout() const { return layout_; }
  VkDescriptorSet descriptor(TextureId id) const;  // null when there is none

 private:
  struct Texture {
    int width = 0, height = 0;
    VkImage image = VK_NULL_HANDLE;
    VkDeviceMemory memory = VK_NULL_HANDLE;
    VkImageView view = VK_NULL_HANDLE;
    VkDescriptorPool pool = VK_NULL_HANDLE;
    VkDescriptorSet descriptor = VK_NULL_HANDLE;
    gs::GpuBuffer staging;
    bool fresh = true;    // never written
    bool pending = true;  // the staging buffer holds pixels that are not in the image yet
  };

  void make(Texture& texture, int width, int height);
  void makeDescriptor(Texture& texture);
  void fillStaging(Texture& texture, std::span<const uint8_t> rgba);
  void release(Texture& texture) noexcept;

  gs::VulkanContext& context_;
  VkDescriptorSetLayout layout_ = VK_NULL_HANDLE;
  VkSampler sampler_ = VK_NULL_HANDLE;
  std::map<TextureId, Texture> textures_;
  TextureId last_ = 0;
};

}  // namespace quor::ui
