// What a kernel's SPIR-V says of itself: its interface, and what a device must offer to run it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace quor::gs {

struct DeviceInfo;

struct KernelModule {
  uint32_t bindings = 0;
  std::array<uint32_t, 3> localSize = {1, 1, 1};
  uint32_t sharedBytes = 0;      // at most: of workgroup memory, laid out as a storage buffer
  bool floatAtomics = false;     // the rest: capabilities that the module declares
  bool subgroupReduce = false;   // votes and sums
  bool subgroupShuffle = false;  // ballots and shuffles
  bool packedDot = false;
};

// Throws "not a SPIR-V module".
KernelModule inspectModule(std::span<const uint32_t> words);

// Why the device cannot run it, as a clause ("it has no ..."); empty when it can.
std::string whyNotRun(const KernelModule& module, const DeviceInfo& device);

}  // namespace quor::gs
