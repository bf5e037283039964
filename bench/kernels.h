// The kernels that only benches run.
#pragma once

#include <span>

#include "gpu/compute/embedded_kernels.h"

namespace quor::gs {

std::span<const EmbeddedKernel> benchKernels();

}  // namespace quor::gs
