#version 450
// Builds an array of rows from another: row i of the result is row source[i] of the input, or zeros where the row is
// marked fresh and the array is optimiser state. Used when splats are added, removed, moved or reordered.
//
// binding | name   | element | shape        | access
//       0 | source | uint    | rows         | read, bit 31 marks a fresh row
//       1 | from   | float   | rows x width | read
//       2 | to     | float   | rows x width | write
// Push: values (rows x width), width, whether fresh rows become zero. One invocation a value, no races.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(GATHER_ROWS)
DECLARE_PUSH(GATHER_ROWS)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  const uint row = i / width;
  const uint s = source[row];
  const bool zero = zeroFresh != 0u && (s & 0x80000000u) != 0u;
  to[i] = zero ? 0.0 : from[(s & 0x7FFFFFFFu) * width + (i - row * width)];
}
