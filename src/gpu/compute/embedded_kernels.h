// The compute kernels that the program carries, as SPIR-V modules by name. Every folder that has kernels has a table of
// its own, made by ombrelux_kernels() in its CMakeLists.txt; this one is that of gpu/kernels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quor::gs {

struct EmbeddedKernel {
  std::string_view name;
  const uint32_t* words;
  size_t bytes;
};

std::span<const EmbeddedKernel> gpuKernels();

}  // namespace quor::gs
