// The buffers and push blocks of the kernels of this folder; see gpu/compute/kernel_interface.h.
#ifndef OMBRELUX_GPU_KERNEL_INTERFACES_H
#define OMBRELUX_GPU_KERNEL_INTERFACES_H

#include "gpu/compute/kernel_interface.h"

#define SCAN_BLOCK_BUFFERS(BUFFER) \
  BUFFER(0, readwrite, uint, data) \
  BUFFER(1, writeonly, uint, totals)
#define SCAN_BLOCK_PUSH(FIELD) FIELD(uint, count)

#define SCAN_ADD_BUFFERS(BUFFER)   \
  BUFFER(0, readwrite, uint, data) \
  BUFFER(1, readonly, uint, offsets)
#define SCAN_ADD_PUSH(FIELD) FIELD(uint, count)

#define SCAN_RUNS_BUFFERS(BUFFER)   \
  BUFFER(0, readwrite, uint, table) \
  BUFFER(1, writeonly, uint, starts)
#define SCAN_RUNS_PUSH(FIELD) \
  FIELD(uint, rows)           \
  FIELD(uint, runs)

// `shift` is that of the digit, in bits.
#define RADIX_HIST_BUFFERS(BUFFER) \
  BUFFER(0, readonly, uint, keys)  \
  BUFFER(1, writeonly, uint, histogram)
#define RADIX_HIST_PUSH(FIELD) \
  FIELD(uint, count)           \
  FIELD(uint, shift)           \
  FIELD(uint, blocks)

#define RADIX_SCATTER_BUFFERS(BUFFER)   \
  BUFFER(0, readonly, uint, keysIn)     \
  BUFFER(1, readonly, uint, valuesIn)   \
  BUFFER(2, writeonly, uint, keysOut)   \
  BUFFER(3, writeonly, uint, valuesOut) \
  BUFFER(4, readonly, uint, places)
#define RADIX_SCATTER_PUSH(FIELD) RADIX_HIST_PUSH(FIELD)

#define RADIX_BALLOT_HIST_BUFFERS(BUFFER) RADIX_HIST_BUFFERS(BUFFER)
#define RADIX_BALLOT_HIST_PUSH(FIELD) RADIX_HIST_PUSH(FIELD)
#define RADIX_BALLOT_SCATTER_BUFFERS(BUFFER) RADIX_SCATTER_BUFFERS(BUFFER)
#define RADIX_BALLOT_SCATTER_PUSH(FIELD) RADIX_HIST_PUSH(FIELD)

#define RADIX_RUNS_COUNT_BUFFERS(BUFFER) \
  BUFFER(0, readonly, uint, keys)        \
  BUFFER(1, readwrite, uint, table)
#define RADIX_RUNS_COUNT_PUSH(FIELD) \
  FIELD(uint, count)                 \
  FIELD(uint, shift)                 \
  FIELD(uint, runs)

#define RADIX_RUNS_SCATTER_BUFFERS(BUFFER) \
  BUFFER(0, readonly, uint, keysIn)        \
  BUFFER(1, readonly, uint, valuesIn)      \
  BUFFER(2, writeonly, uint, keysOut)      \
  BUFFER(3, writeonly, uint, valuesOut)    \
  BUFFER(4, readwrite, uint, table)
#define RADIX_RUNS_SCATTER_PUSH(FIELD) RADIX_RUNS_COUNT_PUSH(FIELD)

#define GATHER_ROWS_BUFFERS(BUFFER) \
  BUFFER(0, readonly, uint, source) \
  BUFFER(1, readonly, float, from)  \
  BUFFER(2, writeonly, float, to)
#define GATHER_ROWS_PUSH(FIELD) \
  FIELD(uint, count)            \
  FIELD(uint, width)            \
  FIELD(uint, zeroFresh)

#ifdef __cplusplus
#define GPU_KERNELS(KERNEL)                                                \
  KERNEL(ScanBlock, "scan_block", SCAN_BLOCK)                              \
  KERNEL(ScanAdd, "scan_add", SCAN_ADD)                                    \
  KERNEL(ScanRuns, "scan_runs", SCAN_RUNS)                                 \
  KERNEL(RadixHist, "radix_hist", RADIX_HIST)                              \
  KERNEL(RadixScatter, "radix_scatter", RADIX_SCATTER)                     \
  KERNEL(RadixBallotHist, "radix_ballot_hist", RADIX_BALLOT_HIST)          \
  KERNEL(RadixBallotScatter, "radix_ballot_scatter", RADIX_BALLOT_SCATTER) \
  KERNEL(RadixRunsCount, "radix_runs_count", RADIX_RUNS_COUNT)             \
  KERNEL(RadixRunsScatter, "radix_runs_scatter", RADIX_RUNS_SCATTER)       \
  KERNEL(GatherRows, "gather_rows", GATHER_ROWS)

namespace quor::gs::kernels {
GPU_KERNELS(DECLARE_KERNEL)
}  // namespace quor::gs::kernels
#endif
#endif
