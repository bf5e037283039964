// Brings frames to a window: its surface, the swapchain and what belongs to each of its images. Follows the window when
// it is resized, minimised or moved to another monitor. One frame is in flight at a time; begin() tells whether the
// next one may be made, and never waits for the GPU, which may be busy with training.
#pragma once

#include <volk.h>

#include <functional>
#include <vector>

namespace quor::gs {
class VulkanContext;
}

namespace quor::ui {

class Presenter {
 public:
  // Makes the surface of the window for an instance.
  using MakeSurface = std::function<VkSurfaceKHR(VkInstance)>;

  // Throws std::runtime_error "The selected GPU cannot present to this window.".
  Presenter(gs::VulkanContext& context, MakeSurface makeSurface);
  ~Presenter();  // waits for the device
  Presenter(const Presenter&) = delete;
  Presenter& operator=(const Presenter&) = delete;

  VkRenderPass pass() const { return pass_; }

  // Whether the last frame is over.
  bool idle() const;
  // Draws one frame for a window of that size in pixels. `before` records what comes ahead of the render pass, `within`
  // what is drawn; both only when there is something to draw on (the window is not minimised). To be called when
  // idle(). Throws std::runtime_error, among other things when the device is lost.
  using Record = std::function<void(VkCommandBuffer)>;
  bool frame(int width, int height, const Record& before, const Record& within);

  void waitIdle();

 private:
  struct Target {
    VkImage image = VK_NULL_HANDLE;
    VkImageView view = VK_NULL_HANDLE;
    VkFramebuffer framebuffer = VK_NULL_HANDLE;
    VkSemaphore drawn = VK_NULL_HANDLE;
  };

  void makeSurface();
  void chooseFormat();
  void makePass();
  void makeFrameObjects();
  VkPresentModeKHR presentMode() const;
  bool makeSwapchain(int width, int height);
  void makeTargets();
  void dropTargets();
  void record(const Target& target, const Record& before, const Record& within);
  void submit(const Target& target);
  bool acquire(uint32_t& index);
  void present(uint32_t index);

  gs::VulkanContext& context_;
  const MakeSurface makeSurface_;
  VkSurfaceKHR surface_ = VK_NULL_HANDLE;
  VkSurfaceFormatKHR format_ = {};
  VkRenderPass pass_ = VK_NULL_HANDLE;
  VkCommandPool pool_ = VK_NULL_HANDLE;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  VkFence over_ = VK_NULL_HANDLE;  // of the last frame; signalled at first
  VkSemaphore acquired_ = VK_NULL_HANDLE;
  VkSwapchainKHR swapchain_ = VK_NULL_HANDLE;
  VkExtent2D extent_ = {};
  std::vector<Target> targets_;
  bool stale_ = true;  // the swapchain no longer fits the window
};

}  // namespace quor::ui
