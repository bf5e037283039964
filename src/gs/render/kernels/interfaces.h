// The buffers and push blocks of the kernels of this folder and its loss/; see gpu/compute/kernel_interface.h. What
// each buffer holds stands in the kernel itself.
#ifndef OMBRELUX_RENDER_KERNEL_INTERFACES_H
#define OMBRELUX_RENDER_KERNEL_INTERFACES_H

#include "gpu/compute/kernel_interface.h"

// Projection.

#define ACTIVATE_BUFFERS(BUFFER)       \
  BUFFER(0, readonly, float, logScale) \
  BUFFER(1, readonly, float, logit)    \
  BUFFER(2, writeonly, float, scale)   \
  BUFFER(3, writeonly, float, opacity)
#define ACTIVATE_PUSH(FIELD) FIELD(uint, count)

#define ACTIVATE_SCALED_BUFFERS(BUFFER) ACTIVATE_BUFFERS(BUFFER)
#define ACTIVATE_SCALED_PUSH(FIELD) \
  FIELD(uint, count)                \
  FIELD(float, factor)

// The camera.
//   row0, row1, row2  world to camera, one row of [R | t] each
//   intrinsics        fx, fy, cx, cy in pixels
//   centre            of the camera in the world, xyz
//   range             near plane, unused
//   size              splats, width, height, active SH degree
#define CAMERA_PUSH(FIELD) \
  FIELD(vec4, row0)        \
  FIELD(vec4, row1)        \
  FIELD(vec4, row2)        \
  FIELD(vec4, intrinsics)  \
  FIELD(vec4, centre)      \
  FIELD(vec4, range)       \
  FIELD(uvec4, size)

#define PREPROCESS_FORWARD_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, position)     \
  BUFFER(1, readonly, float, scale)        \
  BUFFER(2, readonly, float, rotation)     \
  BUFFER(3, readonly, float, opacity)      \
  BUFFER(4, readonly, float, shDc)         \
  BUFFER(5, readonly, float, shRest)       \
  BUFFER(6, writeonly, float, mean)        \
  BUFFER(7, writeonly, float, conic)       \
  BUFFER(8, writeonly, float, colour)      \
  BUFFER(9, writeonly, float, depth)       \
  BUFFER(10, writeonly, float, halfExtent) \
  BUFFER(11, writeonly, int, visible)
#define PREPROCESS_FORWARD_PUSH(FIELD) CAMERA_PUSH(FIELD)

#define PREPROCESS_BACKWARD_NO_SH_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, position)            \
  BUFFER(1, readonly, float, scale)               \
  BUFFER(2, readonly, float, rotation)            \
  BUFFER(3, readonly, float, shDc)                \
  BUFFER(4, readonly, float, shRest)              \
  BUFFER(5, readonly, int, visible)               \
  BUFFER(6, readonly, float, dMean)               \
  BUFFER(7, readonly, float, dConic)              \
  BUFFER(8, readonly, float, dColour)             \
  BUFFER(9, writeonly, float, dPosition)          \
  BUFFER(10, writeonly, float, dScale)            \
  BUFFER(11, writeonly, float, dRotation)         \
  BUFFER(12, writeonly, float, dShDc)
#define PREPROCESS_BACKWARD_NO_SH_PUSH(FIELD) CAMERA_PUSH(FIELD)

#define PREPROCESS_BACKWARD_BUFFERS(BUFFER) \
  PREPROCESS_BACKWARD_NO_SH_BUFFERS(BUFFER) \
  BUFFER(13, writeonly, float, dShRest)
#define PREPROCESS_BACKWARD_PUSH(FIELD) CAMERA_PUSH(FIELD)

#define ACTIVATION_BACKWARD_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, scale)         \
  BUFFER(1, readonly, float, opacity)       \
  BUFFER(2, readonly, float, dScale)        \
  BUFFER(3, readonly, float, dOpacity)      \
  BUFFER(4, writeonly, float, dLogScale)    \
  BUFFER(5, writeonly, float, dLogit)
#define ACTIVATION_BACKWARD_PUSH(FIELD) \
  FIELD(uint, count)                    \
  FIELD(float, opacityWeight)           \
  FIELD(float, scaleWeight)

// Lists of the splats on each tile.

#define DEPTH_KEYS_BUFFERS(BUFFER)  \
  BUFFER(0, readonly, float, depth) \
  BUFFER(1, readonly, int, visible) \
  BUFFER(2, writeonly, uint, key)   \
  BUFFER(3, writeonly, uint, value)
#define DEPTH_KEYS_PUSH(FIELD) FIELD(uint, count)

#define FOOTPRINT_BUFFERS(BUFFER)        \
  BUFFER(0, readonly, uint, order)       \
  BUFFER(1, readonly, float, mean)       \
  BUFFER(2, readonly, float, conic)      \
  BUFFER(3, readonly, float, opacity)    \
  BUFFER(4, readonly, float, halfExtent) \
  BUFFER(5, readonly, int, visible)
#define BIN_PUSH(FIELD)  \
  FIELD(uint, count)     \
  FIELD(uint, width)     \
  FIELD(uint, height)    \
  FIELD(uint, tileSize)  \
  FIELD(uint, tilesX)    \
  FIELD(uint, tilesY)    \
  FIELD(uint, reserved0) \
  FIELD(uint, reserved1)

#define BIN_COUNT_BUFFERS(BUFFER) \
  FOOTPRINT_BUFFERS(BUFFER)       \
  BUFFER(6, writeonly, uint, tileCount)
#define BIN_COUNT_PUSH(FIELD) BIN_PUSH(FIELD)

#define BIN_WRITE_BUFFERS(BUFFER)     \
  FOOTPRINT_BUFFERS(BUFFER)           \
  BUFFER(6, readonly, uint, offset)   \
  BUFFER(7, writeonly, uint, tileKey) \
  BUFFER(8, writeonly, uint, splatId)
#define BIN_WRITE_PUSH(FIELD) BIN_PUSH(FIELD)

#define TILE_RANGES_BUFFERS(BUFFER)  \
  BUFFER(0, readonly, uint, tileKey) \
  BUFFER(1, writeonly, uint, start)
#define TILE_RANGES_PUSH(FIELD) \
  FIELD(uint, instances)        \
  FIELD(uint, tiles)

// Blending.

#define TILE_LIST_BUFFERS(BUFFER)     \
  BUFFER(0, readonly, uint, start)    \
  BUFFER(1, readonly, uint, splatId)  \
  BUFFER(2, readonly, float, mean)    \
  BUFFER(3, readonly, float, conic)   \
  BUFFER(4, readonly, float, opacity) \
  BUFFER(5, readonly, float, colour)
#define RASTERIZE_PUSH(FIELD) \
  FIELD(uint, width)          \
  FIELD(uint, height)         \
  FIELD(uint, tilesX)         \
  FIELD(uint, reserved)

#define RASTERIZE_FORWARD_BUFFERS(BUFFER)    \
  TILE_LIST_BUFFERS(BUFFER)                  \
  BUFFER(6, writeonly, float, image)         \
  BUFFER(7, writeonly, float, alpha)         \
  BUFFER(8, writeonly, float, transmittance) \
  BUFFER(9, writeonly, int, lastContributor)
#define RASTERIZE_FORWARD_PUSH(FIELD) RASTERIZE_PUSH(FIELD)

#define RASTERIZE_BACKWARD_BUFFERS(BUFFER)     \
  TILE_LIST_BUFFERS(BUFFER)                    \
  BUFFER(6, readonly, float, transmittance)    \
  BUFFER(7, readonly, int, lastContributor)    \
  BUFFER(8, readonly, float, dImage)           \
  BUFFER(9, readonly, float, dAlpha)           \
  BUFFER(10, readwrite, ACCUMULATOR, dMean)    \
  BUFFER(11, readwrite, ACCUMULATOR, dConic)   \
  BUFFER(12, readwrite, ACCUMULATOR, dOpacity) \
  BUFFER(13, readwrite, ACCUMULATOR, dColour)
#define RASTERIZE_BACKWARD_PUSH(FIELD) RASTERIZE_PUSH(FIELD)

#define COMPOSITE_BACKGROUND_BUFFERS(BUFFER) \
  BUFFER(0, readwrite, float, image)         \
  BUFFER(1, readonly, float, alpha)
#define COMPOSITE_BACKGROUND_PUSH(FIELD) \
  FIELD(float, red)                      \
  FIELD(float, green)                    \
  FIELD(float, blue)                     \
  FIELD(uint, pixels)

#define RGB_TO_RGBA8_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, rgb)    \
  BUFFER(1, writeonly, uint, packedBytes)
#define RGB_TO_RGBA8_PUSH(FIELD) FIELD(uint, count)

// The loss.

#define U8_TO_F32_BUFFERS(BUFFER)        \
  BUFFER(0, readonly, uint, packedBytes) \
  BUFFER(1, writeonly, float, value)
#define U8_TO_F32_PUSH(FIELD) FIELD(uint, count)

#define SSIM_STACK_BLUR_H_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, rendered)    \
  BUFFER(1, readonly, float, target)      \
  BUFFER(2, writeonly, float, planes)
#define SSIM_STACK_BLUR_H_PUSH(FIELD) \
  FIELD(int, width)                   \
  FIELD(int, height)

#define SSIM_BLUR15_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, from)  \
  BUFFER(1, writeonly, float, to)
#define SSIM_BLUR15_PUSH(FIELD) \
  FIELD(int, width)             \
  FIELD(int, height)            \
  FIELD(int, axis)              \
  FIELD(int, planes)

#define SSIM_TAIL_FORWARD_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, planes)      \
  BUFFER(1, writeonly, float, map)
#define SSIM_TAIL_FORWARD_PUSH(FIELD) FIELD(uint, pixels)

#define SSIM_TAIL_BACKWARD_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, planes)       \
  BUFFER(1, writeonly, float, gradients)
#define SSIM_TAIL_BACKWARD_PUSH(FIELD) \
  FIELD(uint, pixels)                  \
  FIELD(float, scale)

#define SSIM_CHAIN_BACKWARD_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, gradients)     \
  BUFFER(1, readonly, float, rendered)      \
  BUFFER(2, readonly, float, target)        \
  BUFFER(3, writeonly, float, dImage)
#define SSIM_CHAIN_BACKWARD_PUSH(FIELD) \
  FIELD(uint, width)                    \
  FIELD(uint, height)

#define LOSS_GRAD_BUFFERS(BUFFER)      \
  BUFFER(0, readonly, float, rendered) \
  BUFFER(1, readonly, float, target)   \
  BUFFER(2, readonly, float, dSsim)    \
  BUFFER(3, readonly, float, alpha)    \
  BUFFER(4, writeonly, float, dImage)  \
  BUFFER(5, writeonly, float, dAlpha)
#define LOSS_GRAD_PUSH(FIELD) \
  FIELD(uint, pixels)         \
  FIELD(float, l1Scale)       \
  FIELD(float, red)           \
  FIELD(float, green)         \
  FIELD(float, blue)          \
  FIELD(uint, composited)

#define LOSS_PARTIALS_BUFFERS(BUFFER)  \
  BUFFER(0, readonly, float, rendered) \
  BUFFER(1, readonly, float, target)   \
  BUFFER(2, readonly, float, map)      \
  BUFFER(3, writeonly, float, partials)
#define LOSS_PARTIALS_PUSH(FIELD) FIELD(uint, count)

#define LOSS_STRIPS_BUFFERS(BUFFER)    \
  BUFFER(0, readonly, float, rendered) \
  BUFFER(1, readonly, uint, photo)     \
  BUFFER(2, writeonly, float, dImage)  \
  BUFFER(3, writeonly, float, partials)
#define LOSS_STRIPS_PUSH(FIELD) \
  FIELD(int, width)             \
  FIELD(int, height)            \
  FIELD(int, rows)              \
  FIELD(float, l1Scale)         \
  FIELD(float, ssimScale)

#define SSIM_TILES_BUFFERS(BUFFER)     \
  BUFFER(0, readonly, float, rendered) \
  BUFFER(1, readonly, uint, photo)     \
  BUFFER(2, writeonly, float, planes)  \
  BUFFER(3, writeonly, float, partials)
#define SSIM_TILES_PUSH(FIELD) \
  FIELD(int, width)            \
  FIELD(int, height)           \
  FIELD(uint, withSums)

#define LOSS_TILES_BUFFERS(BUFFER)     \
  BUFFER(0, readonly, float, rendered) \
  BUFFER(1, readonly, uint, photo)     \
  BUFFER(2, readonly, float, planes)   \
  BUFFER(3, readonly, float, alpha)    \
  BUFFER(4, writeonly, float, dImage)  \
  BUFFER(5, writeonly, float, dAlpha)
#define LOSS_TILES_PUSH(FIELD) \
  FIELD(int, width)            \
  FIELD(int, height)           \
  FIELD(float, l1Scale)        \
  FIELD(float, ssimScale)      \
  FIELD(float, red)            \
  FIELD(float, green)          \
  FIELD(float, blue)           \
  FIELD(uint, composited)

#define ALPHA_GRADIENT_BUFFERS(BUFFER) \
  BUFFER(0, readonly, float, dImage)   \
  BUFFER(1, readonly, float, alpha)    \
  BUFFER(2, writeonly, float, dAlpha)
#define ALPHA_GRADIENT_PUSH(FIELD) COMPOSITE_BACKGROUND_PUSH(FIELD)

#ifdef __cplusplus
#define RENDER_KERNELS(KERNEL)                                                           \
  KERNEL(Activate, "activate", ACTIVATE)                                                 \
  KERNEL(ActivateScaled, "activate_scaled", ACTIVATE_SCALED)                             \
  KERNEL(PreprocessForward, "preprocess_forward", PREPROCESS_FORWARD)                    \
  KERNEL(PreprocessBackward, "preprocess_backward", PREPROCESS_BACKWARD)                 \
  KERNEL(PreprocessBackwardNoSh, "preprocess_backward_no_sh", PREPROCESS_BACKWARD_NO_SH) \
  KERNEL(ActivationBackward, "activation_backward", ACTIVATION_BACKWARD)                 \
  KERNEL(DepthKeys, "depth_keys", DEPTH_KEYS)                                            \
  KERNEL(BinCount, "bin_count", BIN_COUNT)                                               \
  KERNEL(BinWrite, "bin_write", BIN_WRITE)                                               \
  KERNEL(TileRanges, "tile_ranges", TILE_RANGES)                                         \
  KERNEL(RasterizeForward, "rasterize_forward", RASTERIZE_FORWARD)                       \
  KERNEL(RasterizeBackward, "rasterize_backward", RASTERIZE_BACKWARD)                    \
  KERNEL(CompositeBackground, "composite_background", COMPOSITE_BACKGROUND)              \
  KERNEL(RgbToRgba8, "rgb_to_rgba8", RGB_TO_RGBA8)                                       \
  KERNEL(U8ToF32, "u8_to_f32", U8_TO_F32)                                                \
  KERNEL(SsimStackBlurH, "ssim_stack_blur_h", SSIM_STACK_BLUR_H)                         \
  KERNEL(SsimBlur15, "ssim_blur15", SSIM_BLUR15)                                         \
  KERNEL(SsimTailForward, "ssim_tail_forward", SSIM_TAIL_FORWARD)                        \
  KERNEL(SsimTailBackward, "ssim_tail_backward", SSIM_TAIL_BACKWARD)                     \
  KERNEL(SsimChainBackward, "ssim_chain_backward", SSIM_CHAIN_BACKWARD)                  \
  KERNEL(LossGrad, "loss_grad", LOSS_GRAD)                                               \
  KERNEL(LossPartials, "loss_partials", LOSS_PARTIALS)                                   \
  KERNEL(LossStrips, "loss_strips", LOSS_STRIPS)                                         \
  KERNEL(SsimTiles, "ssim_tiles", SSIM_TILES)                                            \
  KERNEL(LossTiles, "loss_tiles", LOSS_TILES)                                            \
  KERNEL(AlphaGradient, "alpha_gradient", ALPHA_GRADIENT)

namespace quor::gs::kernels {
RENDER_KERNELS(DECLARE_KERNEL)
}  // namespace quor::gs::kernels
#endif
#endif
