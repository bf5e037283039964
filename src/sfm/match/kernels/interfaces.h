// The buffers and push blocks of the kernels of this folder; see gpu/compute/kernel_interface.h.
#ifndef OMBRELUX_MATCH_KERNEL_INTERFACES_H
#define OMBRELUX_MATCH_KERNEL_INTERFACES_H

#include "gpu/compute/kernel_interface.h"

// Starts and counts are in descriptors.
#define SIFT_MATCH_TILES_BUFFERS(BUFFER)       \
  BUFFER(0, readonly, DESCRIPTOR_WORD, first)  \
  BUFFER(1, readonly, DESCRIPTOR_WORD, second) \
  BUFFER(2, writeonly, uvec2, rowPartials)     \
  BUFFER(3, writeonly, uvec2, columnPartials)
#define SIFT_MATCH_TILES_PUSH(FIELD) \
  FIELD(uint, start1)                \
  FIELD(uint, count1)                \
  FIELD(uint, start2)                \
  FIELD(uint, count2)                \
  FIELD(uint, firstTile)             \
  FIELD(uint, tileColumns)

#define SIFT_MATCH_REDUCE_BUFFERS(BUFFER)    \
  BUFFER(0, readonly, uvec2, rowPartials)    \
  BUFFER(1, readonly, uvec2, columnPartials) \
  BUFFER(2, writeonly, int, matchA)          \
  BUFFER(3, writeonly, int, matchB)
#define SIFT_MATCH_REDUCE_PUSH(FIELD) \
  FIELD(uint, count1)                 \
  FIELD(uint, count2)                 \
  FIELD(uint, tileRows)               \
  FIELD(uint, tileColumns)            \
  FIELD(float, maxRatio)              \
  FIELD(float, maxDistance)

#define SIFT_MATCH_CROSS_BUFFERS(BUFFER) \
  BUFFER(0, readonly, int, matchA)       \
  BUFFER(1, readonly, int, matchB)       \
  BUFFER(2, writeonly, int, results)
#define SIFT_MATCH_CROSS_PUSH(FIELD) \
  FIELD(uint, count1)                \
  FIELD(uint, count2)                \
  FIELD(uint, firstResult)

#ifdef __cplusplus
#define MATCH_KERNELS(KERNEL)                                     \
  KERNEL(SiftMatchTiles, "sift_match_tiles", SIFT_MATCH_TILES)    \
  KERNEL(SiftMatchReduce, "sift_match_reduce", SIFT_MATCH_REDUCE) \
  KERNEL(SiftMatchCross, "sift_match_cross", SIFT_MATCH_CROSS)

namespace quor::gs::kernels {
MATCH_KERNELS(DECLARE_KERNEL)
}  // namespace quor::gs::kernels
#endif
#endif
