#include "app/build_info.h"

#include "base/text/text.h"
#include "gpu/compute/embedded_kernels.h"
#include "gpu/device/vulkan_context.h"
#include "gs/splat_kernels.h"
#include "pipeline/media.h"

// The build defines OMBRELUX_COMPILER, OMBRELUX_MEDIA_LIBRARIES and OMBRELUX_WINDOW_LIBRARIES.

namespace quor {

std::string buildInfoText() {
  const size_t kernels = gs::gpuKernels().size() + gs::splatKernels().size() + mediaKernelCount();
  return formatText("compiler: %s\nmedia: %s\nwindow: %s\nVulkan headers: %d.%d.%d\nGPU kernels: %zu\n",
                    OMBRELUX_COMPILER, OMBRELUX_MEDIA_LIBRARIES, OMBRELUX_WINDOW_LIBRARIES,
                    static_cast<int>(VK_API_VERSION_MAJOR(VK_HEADER_VERSION_COMPLETE)),
                    static_cast<int>(VK_API_VERSION_MINOR(VK_HEADER_VERSION_COMPLETE)),
                    static_cast<int>(VK_API_VERSION_PATCH(VK_HEADER_VERSION_COMPLETE)), kernels);
}

}  // namespace quor
