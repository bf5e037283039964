// The kernels of feature matching.
#pragma once

#include <span>

#include "gpu/compute/embedded_kernels.h"

namespace quor::gs {

std::span<const EmbeddedKernel> matchingKernels();

}  // namespace quor::gs
