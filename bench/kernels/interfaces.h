// The buffer and the push block of the benches' kernel; see gpu/compute/kernel_interface.h.
#ifndef OMBRELUX_BENCH_KERNEL_INTERFACES_H
#define OMBRELUX_BENCH_KERNEL_INTERFACES_H

#include "gpu/compute/kernel_interface.h"

#define MULTIPLY_ADD_PEAK_BUFFERS(BUFFER) BUFFER(0, writeonly, float, sums)
#define MULTIPLY_ADD_PEAK_PUSH(FIELD) \
  FIELD(uint, count)                  \
  FIELD(uint, rounds)

#ifdef __cplusplus
namespace quor::gs::kernels {
DECLARE_KERNEL(MultiplyAddPeak, "multiply_add_peak", MULTIPLY_ADD_PEAK)
}  // namespace quor::gs::kernels
#endif
#endif
