#version 450
// The SSIM of every pixel and channel from the blurred statistics.
//
// binding | name   | element | shape      | access
//       0 | planes | float   | 15 x H x W | read
//       1 | map    | float   | H x W x 3  | write
// Push: pixels (P). One invocation a pixel and channel (item c P + p), no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(SSIM_TAIL_FORWARD)
DECLARE_PUSH(SSIM_TAIL_FORWARD)
#include "gs/render/kernels/loss/ssim_terms.glsl"

void main() {
  const uint i = itemIndex();
  if (i >= 3u * pixels) return;
  const SsimTerms t = ssimTerms(i, pixels);
  const uint c = i / pixels;
  map[3u * (i - c * pixels) + c] = t.A * t.B / (t.C * t.D);
}
