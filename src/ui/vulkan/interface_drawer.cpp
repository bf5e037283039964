#include "ui/vulkan/interface_drawer.h"

#include <imgui.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::ui {
namespace {

using gs::check;
using gs::vulkanStruct;

constexpr uint32_t kVertexShader[] = {
#include "interface.vert.inc"
};
constexpr uint32_t kFragmentShader[] = {
#include "interface.frag.inc"
};

struct Push {
  float scale[2];
  float offset[2];
};
static_assert(sizeof(Push) == 16);

VkShaderModule shader(VkDevice device, const uint32_t* words, size_t bytes) {
  auto info = vulkanStruct<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  info.codeSize = bytes;
  info.pCode = words;
  VkShaderModule made = VK_NULL_HANDLE;
  check(vkCreateShaderModule(device, &info, nullptr, &made), "vkCreateShaderModule");
  return made;
}

VkPipelineShaderStageCreateInfo stage(VkShaderStageFlagBits which, VkShaderModule module) {
  auto info = vulkanStruct<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
  info.stage = which;
  info.module = module;
  info.pName = "main";
  return info;
}

// Alpha blending over the framebuffer, whose own alpha stays 1.
VkPipelineColorBlendAttachmentState blending() {
  VkPipelineColorBlendAttachmentState blend = {};
  blend.blendEnable = VK_TRUE;
  blend.srcColorBlendFactor = VK_BLEND_FACTOR_SRC_ALPHA;
  blend.dstColorBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
  blend.srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE;
  blend.dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
  blend.colorWriteMask =
      VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT | VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT;
  return blend;
}

void grow(gs::VulkanContext& context, gs::GpuBuffer& buffer, size_t bytes, const char* name) {
  if (buffer.size() >= bytes) return;
  buffer = gs::GpuBuffer();
  buffer = gs::GpuBuffer(context, bytes + bytes / 2, gs::BufferKind::Upload, name);
}

}  // namespace

InterfaceDrawer::InterfaceDrawer(gs::VulkanContext& context, const Textures& textures, VkRenderPass pass)
    : context_(context), textures_(textures) {
  const VkDescriptorSetLayout set = textures.layout();
  const VkPushConstantRange push = {VK_SHADER_STAGE_VERTEX_BIT, 0, sizeof(Push)};
  auto info = vulkanStruct<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  info.setLayoutCount = 1;
  info.pSetLayouts = &set;
  info.pushConstantRangeCount = 1;
  info.pPushConstantRanges = &push;
  check(vkCreatePipelineLayout(context.device(), &info, nullptr, &layout_), "vkCreatePipelineLayout");
  makePipeline(pass);
}

InterfaceDrawer::~InterfaceDrawer() {
  vkDestroyPipeline(context_.device(), pipeline_, nullptr);
  vkDestroyPipelineLayout(context_.device(), layout_, nullptr);
}

void InterfaceDrawer::makePipeline(VkRenderPass pass) {
  const VkDevice device = context_.device();
  const VkShaderModule vertex = shader(device, kVertexShader, sizeof kVertexShader);
  const VkShaderModule fragment = shader(device, kFragmentShader, sizeof kFragmentShader);
  const std::array stages = {stage(VK_SHADER_STAGE_VERTEX_BIT, vertex), stage(VK_SHADER_STAGE_FRAGMENT_BIT, fragment)};

  const VkVertexInputBindingDescription binding = {0, sizeof(ImDrawVert), VK_VERTEX_INPUT_RATE_VERTEX};
  const std::array<VkVertexInputAttributeDescription, 3> attributes = {
      {{0, 0, VK_FORMAT_R32G32_SFLOAT, offsetof(ImDrawVert, pos)},
       {1, 0, VK_FORMAT_R32G32_SFLOAT, offsetof(ImDrawVert, uv)},
       {2, 0, VK_FORMAT_R8G8B8A8_UNORM, offsetof(ImDrawVert, col)}}};
  auto input =
      vulkanStruct<VkPipelineVertexInputStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO);
  input.vertexBindingDescriptionCount = 1;
  input.pVertexBindingDescriptions = &binding;
  input.vertexAttributeDescriptionCount = attributes.size();
  input.pVertexAttributeDescriptions = attributes.data();
  auto assembly =
      vulkanStruct<VkPipelineInputAssemblyStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO);
  assembly.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
  auto viewport =
      vulkanStruct<VkPipelineViewportStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO);
  viewport.viewportCount = viewport.scissorCount = 1;
  auto raster =
      vulkanStruct<VkPipelineRasterizationStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO);
  raster.polygonMode = VK_POLYGON_MODE_FILL;
  raster.lineWidth = 1;
  auto samples =
      vulkanStruct<VkPipelineMultisampleStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO);
  samples.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;
  const VkPipelineColorBlendAttachmentState blend = blending();
  auto blends =
      vulkanStruct<VkPipelineColorBlendStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO);
  blends.attachmentCount = 1;
  blends.pAttachments = &blend;
  const std::array dynamics = {VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
  auto dynamic = vulkanStruct<VkPipelineDynamicStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO);
  dynamic.dynamicStateCount = dynamics.size();
  dynamic.pDynamicStates = dynamics.data();

  auto info = vulkanStruct<VkGraphicsPipelineCreateInfo>(VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO);
  info.stageCount = stages.size();
  info.pStages = stages.data();
  info.pVertexInputState = &input;
  info.pInputAssemblyState = &assembly;
  info.pViewportState = &viewport;
  info.pRasterizationState = &raster;
  info.pMultisampleState = &samples;
  info.pColorBlendState = &blends;
  info.pDynamicState = &dynamic;
  info.layout = layout_;
  info.renderPass = pass;
  const VkResult result = vkCreateGraphicsPipelines(device, VK_NULL_HANDLE, 1, &info, nullptr, &pipeline_);
  vkDestroyShaderModule(device, vertex, nullptr);
  vkDestroyShaderModule(device, fragment, nullptr);
  check(result, "vkCreateGraphicsPipelines");
}

bool InterfaceDrawer::fillBuffers(const ImDrawData& data) {
  if (data.TotalVtxCount == 0) return false;
  grow(context_, vertices_, static_cast<size_t>(data.TotalVtxCount) * sizeof(ImDrawVert), "interface vertices");
  grow(context_, indices_, static_cast<size_t>(data.TotalIdxCount) * sizeof(ImDrawIdx), "interface indices");
  auto* vertices = static_cast<ImDrawVert*>(vertices_.mapped());
  auto* indices = static_cast<ImDrawIdx*>(indices_.mapped());
  for (int i = 0; i < data.CmdListsCount; ++i) {
    const ImDrawList& list = *data.CmdLists[i];
    vertices = std::copy_n(list.VtxBuffer.Data, list.VtxBuffer.Size, vertices);
    indices = std::copy_n(list.IdxBuffer.Data, list.IdxBuffer.Size, indices);
  }
  return true;
}

void InterfaceDrawer::begin(VkCommandBuffer commands, const ImDrawData& data) const {
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline_);
  const VkBuffer vertices = vertices_.handle();
  const VkDeviceSize start = 0;
  vkCmdBindVertexBuffers(commands, 0, 1, &vertices, &start);
  vkCmdBindIndexBuffer(commands, indices_.handle(), 0,
                       sizeof(ImDrawIdx) == 2 ? VK_INDEX_TYPE_UINT16 : VK_INDEX_TYPE_UINT32);
  const VkViewport viewport = {
      0, 0, data.DisplaySize.x * data.FramebufferScale.x, data.DisplaySize.y * data.FramebufferScale.y, 0, 1};
  vkCmdSetViewport(commands, 0, 1, &viewport);
  Push push = {{2 / data.DisplaySize.x, 2 / data.DisplaySize.y}, {}};
  push.offset[0] = -1 - data.DisplayPos.x * push.scale[0];
  push.offset[1] = -1 - data.DisplayPos.y * push.scale[1];
  vkCmdPushConstants(commands, layout_, VK_SHADER_STAGE_VERTEX_BIT, 0, sizeof push, &push);
}

void InterfaceDrawer::record(VkCommandBuffer commands, const ImDrawData& data) {
  if (!fillBuffers(data)) return;
  begin(commands, data);
  const ImVec2 origin = data.DisplayPos, scale = data.FramebufferScale;
  const float width = data.DisplaySize.x * scale.x, height = data.DisplaySize.y * scale.y;
  uint32_t firstIndex = 0;
  int32_t firstVertex = 0;
  for (int i = 0; i < data.CmdListsCount; ++i) {
    const ImDrawList& list = *data.CmdLists[i];
    for (const ImDrawCmd& command : list.CmdBuffer) {
      if (command.UserCallback != nullptr) {
        if (command.UserCallback != ImDrawCallback_ResetRenderState) command.UserCallback(&list, &command);
        continue;
      }
      const float left = std::max((command.ClipRect.x - origin.x) * scale.x, 0.0f);
      const float top = std::max((command.ClipRect.y - origin.y) * scale.y, 0.0f);
      const float right = std::min((command.ClipRect.z - origin.x) * scale.x, width);
      const float bottom = std::min((command.ClipRect.w - origin.y) * scale.y, height);
      const VkDescriptorSet picture = textures_.descriptor(reinterpret_cast<uintptr_t>(command.GetTexID()));
      if (right <= left || bottom <= top || picture == VK_NULL_HANDLE) continue;
      const VkRect2D scissor = {{static_cast<int32_t>(left), static_cast<int32_t>(top)},
                                {static_cast<uint32_t>(right - left), static_cast<uint32_t>(bottom - top)}};
      vkCmdSetScissor(commands, 0, 1, &scissor);
      vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, layout_, 0, 1, &picture, 0, nullptr);
      vkCmdDrawIndexed(commands, command.ElemCount, 1, command.IdxOffset + firstIndex,
                       static_cast<int32_t>(command.VtxOffset) + firstVertex, 0);
    }
    firstIndex += static_cast<uint32_t>(list.IdxBuffer.Size);
    firstVertex += list.VtxBuffer.Size;
  }
}

}  // namespace quor::ui
