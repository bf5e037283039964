#include "gpu/compute/kernel_module.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>

#include "gpu/device/vulkan_context.h"

namespace quor::gs {
namespace {

// Numbers of the SPIR-V specification.
enum Opcode : uint32_t {
  kOpExecutionMode = 16,
  kOpCapability = 17,
  kOpTypeBool = 20,
  kOpTypeInt = 21,
  kOpTypeFloat = 22,
  kOpTypeVector = 23,
  kOpTypeArray = 28,
  kOpTypeStruct = 30,
  kOpTypePointer = 32,
  kOpConstant = 43,
  kOpVariable = 59,
  kOpDecorate = 71
};
constexpr uint32_t kDecorationBinding = 33, kModeLocalSize = 17, kClassWorkgroup = 4;
constexpr uint32_t kGroupNonUniform = 61, kGroupNonUniformArithmetic = 63, kGroupNonUniformBallot = 64,
                   kGroupNonUniformShuffleRelative = 66, kDotProductInput4x8BitPacked = 6018, kDotProduct = 6019,
                   kAtomicFloat32Add = 6033;

// Sizes of types as standard storage buffers lay them out.
class TypeSizes {
 public:
  struct Size {
    uint64_t bytes = 0;
    uint64_t alignment = 4;
  };

  void read(uint32_t opcode, std::span<const uint32_t> operands) {
    switch (opcode) {
      case kOpTypeBool:
        types_[operands[0]] = {4, 4};
        break;
      case kOpTypeInt:
      case kOpTypeFloat:
        if (operands.size() > 1) types_[operands[0]] = {operands[1] / 8, operands[1] / 8};
        break;
      case kOpTypeVector:
        if (operands.size() > 2) addVector(operands);
        break;
      case kOpTypeArray:
        if (operands.size() > 2) addArray(operands);
        break;
      case kOpTypeStruct:
        addStruct(operands);
        break;
      case kOpTypePointer:
        if (operands.size() > 2) pointees_[operands[0]] = operands[2];
        break;
      case kOpConstant:
        if (operands.size() > 2) constants_[operands[1]] = operands[2];
        break;
      default:
        break;
    }
  }

  Size pointee(uint32_t pointer) const {
    const auto found = pointees_.find(pointer);
    return found == pointees_.end() ? Size{} : of(found->second);
  }

  static uint64_t aligned(uint64_t bytes, uint64_t alignment) {
    return alignment == 0 ? bytes : (bytes + alignment - 1) / alignment * alignment;
  }

 private:
  Size of(uint32_t type) const {
    const auto found = types_.find(type);
    return found == types_.end() ? Size{} : found->second;
  }
  void addVector(std::span<const uint32_t> operands) {
    const Size item = of(operands[1]);
    const uint64_t count = operands[2];
    types_[operands[0]] = {count * item.bytes, (count == 3 ? 4 : count) * item.alignment};
  }
  void addArray(std::span<const uint32_t> operands) {
    const Size item = of(operands[1]);
    const auto length = constants_.find(operands[2]);
    const uint64_t count = length == constants_.end() ? 0 : length->second;
    types_[operands[0]] = {count * aligned(item.bytes, item.alignment), item.alignment};
  }
  void addStruct(std::span<const uint32_t> operands) {
    Size all;
    for (const uint32_t member : operands.subspan(1)) {
      const Size size = of(member);
      all.bytes = aligned(all.bytes, size.alignment) + size.bytes;
      all.alignment = std::max(all.alignment, size.alignment);
    }
    types_[operands[0]] = {aligned(all.bytes, all.alignment), all.alignment};
  }

  std::unordered_map<uint32_t, Size> types_;
  std::unordered_map<uint32_t, uint32_t> pointees_, constants_;
};

void readCapability(uint32_t capability, KernelModule& module) {
  if (capability == kAtomicFloat32Add) module.floatAtomics = true;
  if (capability == kDotProduct || capability == kDotProductInput4x8BitPacked) module.packedDot = true;
  if (capability >= kGroupNonUniform && capability <= kGroupNonUniformArithmetic) module.subgroupReduce = true;
  if (capability >= kGroupNonUniformBallot && capability <= kGroupNonUniformShuffleRelative) {
    module.subgroupShuffle = true;
  }
}

std::string tooMany(uint64_t needed, uint64_t offered, const char* what) {
  return "it needs " + std::to_string(needed) + " " + what + ", and this GPU allows " + std::to_string(offered);
}

}  // namespace

KernelModule inspectModule(std::span<const uint32_t> words) {
  constexpr uint32_t kMagic = 0x07230203, kHeaderWords = 5;
  if (words.size() < kHeaderWords || words[0] != kMagic) throw std::runtime_error("not a SPIR-V module");
  KernelModule module;
  TypeSizes types;
  uint64_t shared = 0;
  for (size_t at = kHeaderWords; at < words.size();) {
    const uint32_t opcode = words[at] & 0xffffu;
    const size_t count = words[at] >> 16;
    if (count == 0 || count > words.size() - at) break;
    const std::span<const uint32_t> operands = words.subspan(at + 1, count - 1);
    if (opcode == kOpDecorate && operands.size() >= 3 && operands[1] == kDecorationBinding) {
      module.bindings = std::max(module.bindings, operands[2] + 1);
    } else if (opcode == kOpExecutionMode && operands.size() >= 5 && operands[1] == kModeLocalSize) {
      module.localSize = {operands[2], operands[3], operands[4]};
    } else if (opcode == kOpCapability && !operands.empty()) {
      readCapability(operands[0], module);
    } else if (opcode == kOpVariable && operands.size() >= 3 && operands[2] == kClassWorkgroup) {
      const TypeSizes::Size size = types.pointee(operands[0]);
      shared = TypeSizes::aligned(shared, size.alignment) + size.bytes;
    } else if (!operands.empty()) {
      types.read(opcode, operands);
    }
    at += count;
  }
  module.sharedBytes = static_cast<uint32_t>(std::min<uint64_t>(shared, UINT32_MAX));
  return module;
}

std::string whyNotRun(const KernelModule& module, const DeviceInfo& device) {
  if (module.bindings > device.maxKernelBuffers) {
    return tooMany(module.bindings, device.maxKernelBuffers, "storage buffers at once");
  }
  const auto& [x, y, z] = module.localSize;
  const uint64_t invocations = uint64_t{x} * y * z;
  if (invocations > device.maxGroupInvocations) {
    return tooMany(invocations, device.maxGroupInvocations, "invocations in a work group");
  }
  for (size_t axis = 0; axis < 3; ++axis) {
    if (module.localSize[axis] > device.maxGroupSize[axis]) {
      return tooMany(module.localSize[axis], device.maxGroupSize[axis], "invocations along a work group's side");
    }
  }
  if (module.sharedBytes > device.maxSharedBytes) {
    return tooMany(module.sharedBytes, device.maxSharedBytes, "bytes of shared memory");
  }
  if (module.floatAtomics && !device.floatAtomics)
    return "it needs native float atomics, which this GPU does not offer";
  if ((module.subgroupReduce && !device.subgroupReduce) || (module.subgroupShuffle && !device.subgroupShuffle)) {
    return "it needs subgroup operations that this GPU does not offer";
  }
  if (module.packedDot && !device.packedDot) return "it needs packed dot products, which this GPU does not offer";
  return "";
}

}  // namespace quor::gs
