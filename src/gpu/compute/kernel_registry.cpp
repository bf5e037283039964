#include "gpu/compute/kernel_registry.h"

#include <algorithm>
#include <stdexcept>

#include "base/parallel.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {
namespace {

constexpr uint32_t kMaxBindings = 16;
constexpr uint32_t kPushBytes = 128;

KernelModule shapeOf(const EmbeddedKernel& module) {
  return inspectModule({module.words, module.bytes / sizeof(uint32_t)});
}

}  // namespace

KernelRegistry::KernelRegistry(VulkanContext& context, std::initializer_list<std::span<const EmbeddedKernel>> tables)
    : context_(context) {
  std::vector<EmbeddedKernel> modules(gpuKernels().begin(), gpuKernels().end());
  for (const auto& table : tables) modules.insert(modules.end(), table.begin(), table.end());
  slots_ = std::vector<Slot>(modules.size());
  for (size_t i = 0; i < modules.size(); ++i) {
    slots_[i].module = modules[i];
    index_.emplace(modules[i].name, i);
  }
  const auto info = vulkanStruct<VkPipelineCacheCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_CACHE_CREATE_INFO);
  check(vkCreatePipelineCache(context.device(), &info, nullptr, &cache_), "vkCreatePipelineCache");
}

KernelRegistry::~KernelRegistry() {
  for (const Slot& slot : slots_) destroy(slot.kernel);
  vkDestroyPipelineCache(context_.device(), cache_, nullptr);
}

const Kernel& KernelRegistry::get(std::string_view name) {
  return getAt(indexOf(name));
}

size_t KernelRegistry::indexOf(std::string_view name) const {
  const auto found = index_.find(name);
  if (found == index_.end()) throw std::runtime_error("No embedded shader named '" + std::string(name) + "'");
  return found->second;
}

const Kernel& KernelRegistry::getAt(size_t index) {
  Slot& slot = slots_[index];
  if (!slot.built.load(std::memory_order_acquire)) {
    const std::lock_guard lock(slot.building);
    if (!slot.built.load(std::memory_order_relaxed)) {
      slot.kernel = build(slot.module);
      slot.built.store(true, std::memory_order_release);
    }
  }
  return slot.kernel;
}

bool KernelRegistry::runs(std::string_view name) const {
  return whyNotRun(shapeOf(slots_[indexOf(name)].module), context_.info()).empty();
}

void KernelRegistry::chooseVariant(const std::string& kernel, const std::string& variant) {
  const std::lock_guard lock(choosing_);
  chosen_[kernel] = variant;
}

std::optional<std::string> KernelRegistry::chosenVariant(const std::string& kernel) const {
  const std::lock_guard lock(choosing_);
  const auto found = chosen_.find(kernel);
  return found == chosen_.end() ? std::nullopt : std::optional(found->second);
}

void KernelRegistry::prepare(std::span<const std::string> names) {
  std::vector<size_t> missing;
  for (const std::string& name : names) {
    const size_t index = indexOf(name);
    if (!slots_[index].built.load(std::memory_order_acquire)) missing.push_back(index);
  }
  parallelFor(missing.size(), [&](size_t i) { getAt(missing[i]); });
}

std::string KernelRegistry::backwardKernelName() const {
  const DeviceInfo& info = context_.info();
  return std::string("rasterize_backward:SG=") + (info.subgroupReduce ? "1" : "0") +
         ",NATIVE_ATOMIC=" + (info.floatAtomics ? "1" : "0");
}

Kernel KernelRegistry::build(const EmbeddedKernel& module) const {
  const KernelModule shape = shapeOf(module);
  const std::string name(module.name);
  if (shape.bindings > kMaxBindings) throw std::runtime_error("shader '" + name + "' binds too many buffers");
  if (const std::string why = whyNotRun(shape, context_.info()); !why.empty()) {
    throw std::runtime_error("This GPU cannot run the kernel '" + name + "': " + why + ".");
  }
  Kernel kernel;
  kernel.bindings = shape.bindings;
  kernel.localSize = shape.localSize;
  try {
    createLayouts(kernel);
    createPipeline(kernel, module);
  } catch (...) {
    destroy(kernel);
    throw;
  }
  return kernel;
}

void KernelRegistry::createLayouts(Kernel& kernel) const {
  std::array<VkDescriptorSetLayoutBinding, kMaxBindings> bindings{};
  for (uint32_t i = 0; i < kernel.bindings; ++i) {
    bindings[i] = {i, VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr};
  }
  auto setInfo = vulkanStruct<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  setInfo.bindingCount = kernel.bindings;
  setInfo.pBindings = bindings.data();
  check(vkCreateDescriptorSetLayout(context_.device(), &setInfo, nullptr, &kernel.setLayout),
        "vkCreateDescriptorSetLayout");

  const VkPushConstantRange push{VK_SHADER_STAGE_COMPUTE_BIT, 0, kPushBytes};
  auto layoutInfo = vulkanStruct<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  layoutInfo.setLayoutCount = 1;
  layoutInfo.pSetLayouts = &kernel.setLayout;
  layoutInfo.pushConstantRangeCount = 1;
  layoutInfo.pPushConstantRanges = &push;
  check(vkCreatePipelineLayout(context_.device(), &layoutInfo, nullptr, &kernel.layout), "vkCreatePipelineLayout");
}

void KernelRegistry::createPipeline(Kernel& kernel, const EmbeddedKernel& module) const {
  const std::string name(module.name);
  auto moduleInfo = vulkanStruct<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  moduleInfo.codeSize = module.bytes;
  moduleInfo.pCode = module.words;
  VkShaderModule shader = VK_NULL_HANDLE;
  check(vkCreateShaderModule(context_.device(), &moduleInfo, nullptr, &shader),
        ("vkCreateShaderModule " + name).c_str());

  auto info = vulkanStruct<VkComputePipelineCreateInfo>(VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO);
  info.stage.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
  info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
  info.stage.module = shader;
  info.stage.pName = "main";
  info.layout = kernel.layout;
  const VkResult result = vkCreateComputePipelines(context_.device(), cache_, 1, &info, nullptr, &kernel.pipeline);
  vkDestroyShaderModule(context_.device(), shader, nullptr);
  check(result, ("vkCreateComputePipelines " + name).c_str());
}

void KernelRegistry::destroy(const Kernel& kernel) const noexcept {
  vkDestroyPipeline(context_.device(), kernel.pipeline, nullptr);
  vkDestroyPipelineLayout(context_.device(), kernel.layout, nullptr);
  vkDestroyDescriptorSetLayout(context_.device(), kernel.setLayout, nullptr);
}

}  // namespace quor::gs
