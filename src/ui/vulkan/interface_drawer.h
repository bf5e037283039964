// Draws what the interface library has laid out: triangles with a texture each, clipped to rectangles. Needs nothing of
// the device but a graphics queue; the buffers it fills are read by one frame at a time.
#pragma once

#include <volk.h>

#include "gpu/memory/gpu_buffer.h"
#include "ui/vulkan/textures.h"

struct ImDrawData;

namespace quor::ui {

class InterfaceDrawer {
 public:
  // For frames of this render pass, whose first subpass has one colour attachment.
  InterfaceDrawer(gs::VulkanContext& context, const Textures& textures, VkRenderPass pass);
  ~InterfaceDrawer();
  InterfaceDrawer(const InterfaceDrawer&) = delete;
  InterfaceDrawer& operator=(const InterfaceDrawer&) = delete;

  // Within the render pass. Fills the buffers, so the last frame must be over.
  void record(VkCommandBuffer commands, const ImDrawData& data);

 private:
  void makePipeline(VkRenderPass pass);
  bool fillBuffers(const ImDrawData& data);
  void begin(VkCommandBuffer commands, const ImDrawData& data) const;

  gs::VulkanContext& context_;
  const Textures& textures_;
  VkPipelineLayout layout_ = VK_NULL_HANDLE;
  VkPipeline pipeline_ = VK_NULL_HANDLE;
  gs::GpuBuffer vertices_, indices_;
};

}  // namespace quor::ui
