#include "gpu/device/vulkan_instance.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>

#include "base/files/paths.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {
namespace {

constexpr const char* kValidationLayer = "VK_LAYER_KHRONOS_validation";

void openLoader() {
  static const VkResult opened = volkInitialize();
  if (opened != VK_SUCCESS || vkCreateInstance == nullptr) {
    throw std::runtime_error("No Vulkan loader found. Install or update the graphics driver.");
  }
}

// The entry points are the loader's own, which find the driver by the handle they are given: they serve any instance
// and device of the process. Only those for surfaces depend on what the instance enabled, so they are fetched once more
// for the first instance that presents.
void loadEntryPoints(VkInstance instance, bool presentation) {
  static std::mutex mutex;
  static bool loaded = false;
  static bool loadedPresentation = false;
  const std::lock_guard lock(mutex);
  if (loaded && (loadedPresentation || !presentation)) return;
  volkLoadInstance(instance);
  loaded = true;
  loadedPresentation = presentation;
}

std::vector<VkExtensionProperties> instanceExtensions(const char* layer) {
  uint32_t count = 0;
  check(vkEnumerateInstanceExtensionProperties(layer, &count, nullptr), "vkEnumerateInstanceExtensionProperties");
  std::vector<VkExtensionProperties> found(count);
  check(vkEnumerateInstanceExtensionProperties(layer, &count, found.data()), "vkEnumerateInstanceExtensionProperties");
  found.resize(count);
  return found;
}

bool lists(const std::vector<VkExtensionProperties>& extensions, const char* name) {
  for (const VkExtensionProperties& extension : extensions) {
    if (std::strcmp(extension.extensionName, name) == 0) return true;
  }
  return false;
}

bool hasValidationLayer() {
  uint32_t count = 0;
  check(vkEnumerateInstanceLayerProperties(&count, nullptr), "vkEnumerateInstanceLayerProperties");
  std::vector<VkLayerProperties> layers(count);
  check(vkEnumerateInstanceLayerProperties(&count, layers.data()), "vkEnumerateInstanceLayerProperties");
  for (const VkLayerProperties& layer : layers) {
    if (std::strcmp(layer.layerName, kValidationLayer) == 0) return true;
  }
  return false;
}

std::vector<const char*> wantedExtensions(bool presentation, bool validation) {
  const std::vector<VkExtensionProperties> offered = instanceExtensions(nullptr);
  std::vector<const char*> wanted;
  if (validation && lists(offered, VK_EXT_DEBUG_UTILS_EXTENSION_NAME)) {
    wanted.push_back(VK_EXT_DEBUG_UTILS_EXTENSION_NAME);
  }
  if (presentation) {
    for (const char* name : {"VK_KHR_surface", "VK_KHR_win32_surface", "VK_KHR_xcb_surface", "VK_KHR_xlib_surface",
                             "VK_KHR_wayland_surface"}) {
      if (lists(offered, name)) wanted.push_back(name);
    }
  }
  return wanted;
}

}  // namespace

VulkanInstance::VulkanInstance(bool presentation, bool validation) {
  openLoader();
  logPath_ = environmentVariable("QUOR_VALIDATION_LOG").value_or("");
  std::vector<const char*> extensions = wantedExtensions(presentation, validation);
  const bool debug =
      validation && !extensions.empty() && std::strcmp(extensions.front(), VK_EXT_DEBUG_UTILS_EXTENSION_NAME) == 0;

  auto application = vulkanStruct<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
  application.pApplicationName = "Ombrelux";
  application.pEngineName = "quor-gs";
  application.apiVersion = VK_API_VERSION_1_1;
  auto info = vulkanStruct<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
  info.pApplicationInfo = &application;

  const VkValidationFeatureEnableEXT synchronization = VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT;
  auto features = vulkanStruct<VkValidationFeaturesEXT>(VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT);
  features.enabledValidationFeatureCount = 1;
  features.pEnabledValidationFeatures = &synchronization;
  if (validation && hasValidationLayer()) {
    info.enabledLayerCount = 1;
    info.ppEnabledLayerNames = &kValidationLayer;
    if (lists(instanceExtensions(kValidationLayer), VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME)) {
      extensions.push_back(VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME);
      info.pNext = &features;
    }
  } else if (validation) {
    std::fputs("validation requested but VK_LAYER_KHRONOS_validation is missing\n", stderr);
  }
  info.enabledExtensionCount = static_cast<uint32_t>(extensions.size());
  info.ppEnabledExtensionNames = extensions.data();
  check(vkCreateInstance(&info, nullptr, &instance_), "vkCreateInstance (is a Vulkan 1.1 driver installed?)");
  loadEntryPoints(instance_, presentation);
  if (debug) createMessenger();
}

VulkanInstance::~VulkanInstance() {
  if (messenger_ != VK_NULL_HANDLE) {
    const auto destroy = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
        vkGetInstanceProcAddr(instance_, "vkDestroyDebugUtilsMessengerEXT"));
    if (destroy != nullptr) destroy(instance_, messenger_, nullptr);
  }
  vkDestroyInstance(instance_, nullptr);
}

std::vector<VkPhysicalDevice> VulkanInstance::devices() const {
  uint32_t count = 0;
  check(vkEnumeratePhysicalDevices(instance_, &count, nullptr), "vkEnumeratePhysicalDevices");
  std::vector<VkPhysicalDevice> found(count);
  if (count > 0) check(vkEnumeratePhysicalDevices(instance_, &count, found.data()), "vkEnumeratePhysicalDevices");
  found.resize(count);
  if (found.empty()) throw std::runtime_error("No Vulkan GPU found. Update the graphics driver.");
  return found;
}

void VulkanInstance::createMessenger() {
  const auto create = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
      vkGetInstanceProcAddr(instance_, "vkCreateDebugUtilsMessengerEXT"));
  if (create == nullptr) return;
  auto info = vulkanStruct<VkDebugUtilsMessengerCreateInfoEXT>(VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT);
  info.messageSeverity =
      VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
  info.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_GENERAL_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT |
                     VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
  info.pfnUserCallback = &VulkanInstance::onMessage;
  info.pUserData = this;
  if (create(instance_, &info, nullptr, &messenger_) != VK_SUCCESS) messenger_ = VK_NULL_HANDLE;
}

VkBool32 VKAPI_PTR VulkanInstance::onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                             VkDebugUtilsMessageTypeFlagsEXT,
                                             const VkDebugUtilsMessengerCallbackDataEXT* data, void* self) {
  if (severity < VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT) return VK_FALSE;
  auto& instance = *static_cast<VulkanInstance*>(self);
  instance.messages_.fetch_add(1);
  std::fprintf(stderr, "[vulkan] %s\n", data->pMessage);
  if (instance.logPath_.empty()) return VK_FALSE;
  std::ofstream(fromUtf8(instance.logPath_), std::ios::app) << "[vulkan] " << data->pMessage << '\n';
  return VK_FALSE;
}

}  // namespace quor::gs
