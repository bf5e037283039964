#include "ui/vulkan/presenter.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::ui {
namespace {

using gs::check;
using gs::vulkanStruct;

constexpr VkClearValue kDark = {{{0.08f, 0.08f, 0.09f, 1.0f}}};

constexpr uint64_t kAcquirePatience = 50'000'000;  // nanoseconds

VkSemaphore makeSemaphore(VkDevice device) {
  const auto info = vulkanStruct<VkSemaphoreCreateInfo>(VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO);
  VkSemaphore made = VK_NULL_HANDLE;
  check(vkCreateSemaphore(device, &info, nullptr, &made), "vkCreateSemaphore");
  return made;
}

}  // namespace

Presenter::Presenter(gs::VulkanContext& context, MakeSurface makeSurface)
    : context_(context), makeSurface_(std::move(makeSurface)) {
  this->makeSurface();
  chooseFormat();
  makePass();
  makeFrameObjects();
}

Presenter::~Presenter() {
  waitIdle();
  const VkDevice device = context_.device();
  dropTargets();
  vkDestroySwapchainKHR(device, swapchain_, nullptr);
  vkDestroySemaphore(device, acquired_, nullptr);
  vkDestroyFence(device, over_, nullptr);
  vkDestroyCommandPool(device, pool_, nullptr);
  vkDestroyRenderPass(device, pass_, nullptr);
  vkDestroySurfaceKHR(context_.instance(), surface_, nullptr);
}

void Presenter::makeSurface() {
  surface_ = makeSurface_(context_.instance());
  VkBool32 presents = VK_FALSE;
  check(vkGetPhysicalDeviceSurfaceSupportKHR(context_.physicalDevice(), context_.mainFamily(), surface_, &presents),
        "vkGetPhysicalDeviceSurfaceSupportKHR");
  if (!presents) throw std::runtime_error("The selected GPU cannot present to this window.");
}

// Bytes as they are: the interface's colours and the pictures are gamma-encoded already.
void Presenter::chooseFormat() {
  uint32_t count = 0;
  check(vkGetPhysicalDeviceSurfaceFormatsKHR(context_.physicalDevice(), surface_, &count, nullptr),
        "vkGetPhysicalDeviceSurfaceFormatsKHR");
  std::vector<VkSurfaceFormatKHR> formats(count);
  check(vkGetPhysicalDeviceSurfaceFormatsKHR(context_.physicalDevice(), surface_, &count, formats.data()),
        "vkGetPhysicalDeviceSurfaceFormatsKHR");
  if (formats.empty()) throw std::runtime_error("The selected GPU cannot present to this window.");
  format_ = formats.front();
  for (const VkSurfaceFormatKHR& format : formats) {
    if (format.format == VK_FORMAT_B8G8R8A8_UNORM || format.format == VK_FORMAT_R8G8B8A8_UNORM) {
      format_ = format;
      return;
    }
  }
}

void Presenter::makePass() {
  VkAttachmentDescription colour = {};
  colour.format = format_.format;
  colour.samples = VK_SAMPLE_COUNT_1_BIT;
  colour.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
  colour.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
  colour.stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
  colour.stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
  colour.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
  colour.finalLayout = VK_IMAGE_LAYOUT_PRESENT_SRC_KHR;
  const VkAttachmentReference reference = {0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
  VkSubpassDescription subpass = {};
  subpass.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS;
  subpass.colorAttachmentCount = 1;
  subpass.pColorAttachments = &reference;
  // The image is taken over where it is first written, after the wait for it.
  const VkSubpassDependency dependency = {VK_SUBPASS_EXTERNAL,
                                          0,
                                          VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT,
                                          VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT,
                                          0,
                                          VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT,
                                          0};
  auto info = vulkanStruct<VkRenderPassCreateInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO);
  info.attachmentCount = 1;
  info.pAttachments = &colour;
  info.subpassCount = 1;
  info.pSubpasses = &subpass;
  info.dependencyCount = 1;
  info.pDependencies = &dependency;
  check(vkCreateRenderPass(context_.device(), &info, nullptr, &pass_), "vkCreateRenderPass");
}

void Presenter::makeFrameObjects() {
  const VkDevice device = context_.device();
  auto poolInfo = vulkanStruct<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  poolInfo.flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT;
  poolInfo.queueFamilyIndex = context_.mainFamily();
  check(vkCreateCommandPool(device, &poolInfo, nullptr, &pool_), "vkCreateCommandPool");
  auto allocate = vulkanStruct<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
  allocate.commandPool = pool_;
  allocate.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
  allocate.commandBufferCount = 1;
  check(vkAllocateCommandBuffers(device, &allocate, &commands_), "vkAllocateCommandBuffers");
  auto fenceInfo = vulkanStruct<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
  fenceInfo.flags = VK_FENCE_CREATE_SIGNALED_BIT;
  check(vkCreateFence(device, &fenceInfo, nullptr, &over_), "vkCreateFence");
  acquired_ = makeSemaphore(device);
}

// No frame more than is shown, unless waiting for the screen would keep training from the only queue.
VkPresentModeKHR Presenter::presentMode() const {
  if (!context_.sharedQueue()) return VK_PRESENT_MODE_FIFO_KHR;
  uint32_t count = 0;
  check(vkGetPhysicalDeviceSurfacePresentModesKHR(context_.physicalDevice(), surface_, &count, nullptr),
        "vkGetPhysicalDeviceSurfacePresentModesKHR");
  std::vector<VkPresentModeKHR> modes(count);
  check(vkGetPhysicalDeviceSurfacePresentModesKHR(context_.physicalDevice(), surface_, &count, modes.data()),
        "vkGetPhysicalDeviceSurfacePresentModesKHR");
  const bool mailbox = std::find(modes.begin(), modes.end(), VK_PRESENT_MODE_MAILBOX_KHR) != modes.end();
  return mailbox ? VK_PRESENT_MODE_MAILBOX_KHR : VK_PRESENT_MODE_FIFO_KHR;
}

// False while the window has no area.
bool Presenter::makeSwapchain(int width, int height) {
  waitIdle();
  VkSurfaceCapabilitiesKHR can;
  check(vkGetPhysicalDeviceSurfaceCapabilitiesKHR(context_.physicalDevice(), surface_, &can),
        "vkGetPhysicalDeviceSurfaceCapabilitiesKHR");
  extent_ = can.currentExtent;
  if (extent_.width == UINT32_MAX) {
    extent_.width =
        std::clamp(static_cast<uint32_t>(std::max(width, 0)), can.minImageExtent.width, can.maxImageExtent.width);
    extent_.height =
        std::clamp(static_cast<uint32_t>(std::max(height, 0)), can.minImageExtent.height, can.maxImageExtent.height);
  }
  if (extent_.width == 0 || extent_.height == 0) return false;

  auto info = vulkanStruct<VkSwapchainCreateInfoKHR>(VK_STRUCTURE_TYPE_SWAPCHAIN_CREATE_INFO_KHR);
  info.surface = surface_;
  info.minImageCount = can.minImageCount + 1;
  if (can.maxImageCount > 0) info.minImageCount = std::min(info.minImageCount, can.maxImageCount);
  info.imageFormat = format_.format;
  info.imageColorSpace = format_.colorSpace;
  info.imageExtent = extent_;
  info.imageArrayLayers = 1;
  info.imageUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
  info.preTransform = can.currentTransform;
  info.compositeAlpha = can.supportedCompositeAlpha & VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR
                            ? VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR
                            : VK_COMPOSITE_ALPHA_INHERIT_BIT_KHR;
  info.presentMode = presentMode();
  info.clipped = VK_TRUE;
  info.oldSwapchain = swapchain_;
  VkSwapchainKHR made = VK_NULL_HANDLE;
  const VkResult result = vkCreateSwapchainKHR(context_.device(), &info, nullptr, &made);
  dropTargets();
  vkDestroySwapchainKHR(context_.device(), swapchain_, nullptr);
  swapchain_ = made;
  if (result == VK_ERROR_SURFACE_LOST_KHR || result == VK_ERROR_NATIVE_WINDOW_IN_USE_KHR) {
    vkDestroySurfaceKHR(context_.instance(), surface_, nullptr);
    surface_ = VK_NULL_HANDLE;
    makeSurface();
    return false;  // with the new surface at the next frame
  }
  check(result, "vkCreateSwapchainKHR");
  makeTargets();
  stale_ = false;
  return true;
}

void Presenter::makeTargets() {
  const VkDevice device = context_.device();
  uint32_t count = 0;
  check(vkGetSwapchainImagesKHR(device, swapchain_, &count, nullptr), "vkGetSwapchainImagesKHR");
  std::vector<VkImage> images(count);
  check(vkGetSwapchainImagesKHR(device, swapchain_, &count, images.data()), "vkGetSwapchainImagesKHR");
  targets_.resize(count);
  for (size_t i = 0; i < count; ++i) {
    Target& target = targets_[i];
    target.image = images[i];
    auto viewInfo = vulkanStruct<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
    viewInfo.image = target.image;
    viewInfo.viewType = VK_IMAGE_VIEW_TYPE_2D;
    viewInfo.format = format_.format;
    viewInfo.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    check(vkCreateImageView(device, &viewInfo, nullptr, &target.view), "vkCreateImageView");
    auto frameInfo = vulkanStruct<VkFramebufferCreateInfo>(VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO);
    frameInfo.renderPass = pass_;
    frameInfo.attachmentCount = 1;
    frameInfo.pAttachments = &target.view;
    frameInfo.width = extent_.width;
    frameInfo.height = extent_.height;
    frameInfo.layers = 1;
    check(vkCreateFramebuffer(device, &frameInfo, nullptr, &target.framebuffer), "vkCreateFramebuffer");
    target.drawn = makeSemaphore(device);
  }
}

void Presenter::dropTargets() {
  const VkDevice device = context_.device();
  for (Target& target : targets_) {
    vkDestroySemaphore(device, target.drawn, nullptr);
    vkDestroyFramebuffer(device, target.framebuffer, nullptr);
    vkDestroyImageView(device, target.view, nullptr);
  }
  targets_.clear();
}

bool Presenter::idle() const {
  const VkResult result = vkGetFenceStatus(context_.device(), over_);
  if (result == VK_NOT_READY) return false;
  check(result, "vkGetFenceStatus");
  return true;
}

bool Presenter::acquire(uint32_t& index) {
  const VkResult result =
      vkAcquireNextImageKHR(context_.device(), swapchain_, kAcquirePatience, acquired_, VK_NULL_HANDLE, &index);
  if (result == VK_TIMEOUT || result == VK_NOT_READY) return false;  // the window is not visible: skip the frame
  if (result == VK_ERROR_OUT_OF_DATE_KHR || result == VK_ERROR_SURFACE_LOST_KHR) {
    stale_ = true;
    return false;
  }
  if (result == VK_SUBOPTIMAL_KHR) {
    stale_ = true;  // good for this frame still
  } else {
    check(result, "vkAcquireNextImageKHR");
  }
  return true;
}

bool Presenter::frame(int width, int height, const Record& before, const Record& within) {
  if (width <= 0 || height <= 0) return false;
  const bool resized = extent_.width != static_cast<uint32_t>(width) || extent_.height != static_cast<uint32_t>(height);
  if ((stale_ || resized) && !makeSwapchain(width, height)) return false;
  uint32_t index = 0;
  if (!acquire(index)) return false;
  const Target& target = targets_[index];
  record(target, before, within);
  submit(target);
  present(index);
  return true;
}

void Presenter::record(const Target& target, const Record& before, const Record& within) {
  check(vkResetCommandBuffer(commands_, 0), "vkResetCommandBuffer");
  auto info = vulkanStruct<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  info.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  check(vkBeginCommandBuffer(commands_, &info), "vkBeginCommandBuffer");
  before(commands_);
  auto pass = vulkanStruct<VkRenderPassBeginInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO);
  pass.renderPass = pass_;
  pass.framebuffer = target.framebuffer;
  pass.renderArea.extent = extent_;
  pass.clearValueCount = 1;
  pass.pClearValues = &kDark;
  vkCmdBeginRenderPass(commands_, &pass, VK_SUBPASS_CONTENTS_INLINE);
  within(commands_);
  vkCmdEndRenderPass(commands_);
  check(vkEndCommandBuffer(commands_), "vkEndCommandBuffer");
}

void Presenter::submit(const Target& target) {
  check(vkResetFences(context_.device(), 1, &over_), "vkResetFences");
  const VkPipelineStageFlags stage = VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT;
  auto info = vulkanStruct<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  info.waitSemaphoreCount = 1;
  info.pWaitSemaphores = &acquired_;
  info.pWaitDstStageMask = &stage;
  info.commandBufferCount = 1;
  info.pCommandBuffers = &commands_;
  info.signalSemaphoreCount = 1;
  info.pSignalSemaphores = &target.drawn;
  const std::lock_guard lock(context_.mainLock());
  check(vkQueueSubmit(context_.mainQueue(), 1, &info, over_), "vkQueueSubmit");
}

void Presenter::present(uint32_t index) {
  auto info = vulkanStruct<VkPresentInfoKHR>(VK_STRUCTURE_TYPE_PRESENT_INFO_KHR);
  info.waitSemaphoreCount = 1;
  info.pWaitSemaphores = &targets_[index].drawn;
  info.swapchainCount = 1;
  info.pSwapchains = &swapchain_;
  info.pImageIndices = &index;
  VkResult result = VK_SUCCESS;
  {
    const std::lock_guard lock(context_.mainLock());
    result = vkQueuePresentKHR(context_.mainQueue(), &info);
  }
  if (result == VK_ERROR_OUT_OF_DATE_KHR || result == VK_SUBOPTIMAL_KHR || result == VK_ERROR_SURFACE_LOST_KHR) {
    stale_ = true;
  } else {
    check(result, "vkQueuePresentKHR");
  }
}

void Presenter::waitIdle() {
  const std::scoped_lock lock(context_.mainLock());
  vkQueueWaitIdle(context_.mainQueue());
}

}  // namespace quor::ui
