// The compute kernels that the program carries: SPIR-V modules by name, in the order of kernels/kernels.cmake.
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

std::span<const EmbeddedKernel> embeddedKernels();

}  // namespace quor::gs
