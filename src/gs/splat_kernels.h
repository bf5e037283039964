// The kernels of rendering and training.
#pragma once

#include <span>

#include "gpu/compute/embedded_kernels.h"

namespace quor::gs {

std::span<const EmbeddedKernel> splatKernels();

}  // namespace quor::gs
