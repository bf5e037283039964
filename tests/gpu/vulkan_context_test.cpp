#include "gpu/device/vulkan_context.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "base/files/paths.h"
#include "gpu/compute/command_buffer.h"
#include "support/gpu_fixture.h"
#include "support/scoped_environment.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::ScopedEnvironment;
using test::TempFolder;
using testing::HasSubstr;

std::string contextError(const ContextOptions& options) {
  return test::thrownText([&] { const VulkanContext context(options); });
}

TEST(VulkanContext, TheDeviceIndexIsChecked) {
  const auto count = static_cast<int32_t>(listDevices().size());
  EXPECT_EQ(contextError({.deviceIndex = count}), "Vulkan device index out of range");
  EXPECT_EQ(contextError({.deviceIndex = count - 1}), "no exception");
  const ScopedEnvironment beyond("QUOR_DEVICE", std::to_string(count).c_str());
  EXPECT_EQ(contextError({}), "Vulkan device index out of range");
}

TEST(VulkanContext, ImplicitLayersAreKeptOutUnlessAllowed) {
  for (const char* allow : {static_cast<const char*>(nullptr), "0", "1"}) {
    const ScopedEnvironment variable("QUOR_ALLOW_VULKAN_LAYERS", allow);
    const ScopedEnvironment layers("VK_LOADER_LAYERS_DISABLE", nullptr);
    applyLayerPolicy();
    const bool allowed = allow != nullptr && *allow == '1';
    EXPECT_STREQ(std::getenv("VK_LOADER_LAYERS_DISABLE"), allowed ? nullptr : "~implicit~");
  }
}

// Shows that the layer and its synchronisation checks are there for all other tests: a hazard made on purpose is found,
// counted, printed and logged.
TEST(VulkanContext, AHazardIsReported) {
  const TempFolder folder;
  const std::filesystem::path log = folder / "validation.log";
  const ScopedEnvironment variable("QUOR_VALIDATION_LOG", toUtf8(log).c_str());
  applyLayerPolicy();
  testing::internal::CaptureStderr();
  {
    VulkanContext context({.validation = true});
    const GpuBuffer buffer(context, 1024, BufferKind::Device, "twice");
    CommandBuffer commands(context);
    EXPECT_EQ(context.validationMessages(), 0u);
    commands.begin();
    vkCmdFillBuffer(commands.handle(), buffer.handle(), 0, 1024, 1);
    vkCmdFillBuffer(commands.handle(), buffer.handle(), 0, 1024, 2);
    commands.finish(UINT64_MAX);
    EXPECT_GT(context.validationMessages(), 0u);
  }
  const std::string printed = testing::internal::GetCapturedStderr();
  EXPECT_THAT(printed, HasSubstr("[vulkan] "));
  EXPECT_THAT(printed, HasSubstr("SYNC-HAZARD-WRITE-AFTER-WRITE"));
  EXPECT_EQ(test::readFile(log), printed);
}

TEST(VulkanContext, NoDriverIsASentence) {
  const ScopedEnvironment drivers("VK_DRIVER_FILES", "/none.json"), older("VK_ICD_FILENAMES", "/none.json");
  EXPECT_EQ(contextError({}), "vkCreateInstance (is a Vulkan 1.1 driver installed?) failed (VkResult -9)");
  EXPECT_THROW(listDevices(), std::runtime_error);
}

// Runs in a process of its own, see below.
TEST(VulkanContext, DISABLED_WithoutALoader) {
  EXPECT_EQ(contextError({}), "No Vulkan loader found. Install or update the graphics driver.");
  EXPECT_THROW(listDevices(), std::runtime_error);
}

TEST(VulkanContext, NoLoaderIsASentence) {
  const TempFolder folder;
  for (const char* name : {"libvulkan.so.1", "libvulkan.so"}) test::writeFile(folder / name, "no library");
  const ScopedEnvironment path("LD_LIBRARY_PATH", toUtf8(folder.path()).c_str());
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string command = "'" + self + "' --gtest_filter=VulkanContext.DISABLED_WithoutALoader " +
                              "--gtest_also_run_disabled_tests --gtest_fail_if_no_test_selected >/dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
}  // namespace quor::gs
