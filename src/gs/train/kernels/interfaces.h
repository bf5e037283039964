// The buffers and push blocks of the kernels of this folder; see gpu/compute/kernel_interface.h.
#ifndef OMBRELUX_TRAIN_KERNEL_INTERFACES_H
#define OMBRELUX_TRAIN_KERNEL_INTERFACES_H

#include "gpu/compute/kernel_interface.h"

// correction1 = 1 - beta1^t, rootCorrection2 = sqrt(1 - beta2^t)
#define ADAM_BUFFERS(BUFFER)                       \
  BUFFER(0, readwrite, ADAM_ELEMENT, value)        \
  BUFFER(1, readwrite, ADAM_ELEMENT, firstMoment)  \
  BUFFER(2, readwrite, ADAM_ELEMENT, secondMoment) \
  BUFFER(3, readonly, ADAM_ELEMENT, gradient)
#define ADAM_PUSH(FIELD)    \
  FIELD(uint, count)        \
  FIELD(float, rate)        \
  FIELD(float, beta1)       \
  FIELD(float, beta2)       \
  FIELD(float, epsilon)     \
  FIELD(float, correction1) \
  FIELD(float, rootCorrection2)

// `count` splats; `centre` is the camera's.
#define ADAM_SH_BUFFERS(BUFFER)             \
  BUFFER(0, readwrite, float, value)        \
  BUFFER(1, readwrite, float, firstMoment)  \
  BUFFER(2, readwrite, float, secondMoment) \
  BUFFER(3, readonly, float, position)      \
  BUFFER(4, readonly, float, dShDc)
#define ADAM_SH_PUSH(FIELD) \
  ADAM_PUSH(FIELD)          \
  FIELD(float, centreX)     \
  FIELD(float, centreY)     \
  FIELD(float, centreZ)

#define ADD_NOISE_BUFFERS(BUFFER)       \
  BUFFER(0, readwrite, float, position) \
  BUFFER(1, readonly, float, scale)     \
  BUFFER(2, readonly, float, rotation)  \
  BUFFER(3, readonly, float, opacity)
#define ADD_NOISE_PUSH(FIELD) \
  FIELD(uint, count)          \
  FIELD(uint, seed0)          \
  FIELD(uint, seed1)          \
  FIELD(uint, seed2)          \
  FIELD(float, noiseScale)

#define FLAG_DIVERGED_BUFFERS(BUFFER) \
  BUFFER(0, readonly, uint, position) \
  BUFFER(1, readonly, uint, scale)    \
  BUFFER(2, readonly, uint, rotation) \
  BUFFER(3, readonly, uint, opacity)  \
  BUFFER(4, readonly, uint, shDc)     \
  BUFFER(5, readonly, uint, shRest)   \
  BUFFER(6, writeonly, uint, flag)
#define FLAG_DIVERGED_PUSH(FIELD) FIELD(uint, count)

#define GRAD_STATS_BUFFERS(BUFFER)  \
  BUFFER(0, readonly, float, dMean) \
  BUFFER(1, readonly, int, visible) \
  BUFFER(2, readwrite, float, sum)  \
  BUFFER(3, readwrite, float, views)
#define GRAD_STATS_PUSH(FIELD) \
  FIELD(uint, count)           \
  FIELD(uint, startOver)       \
  FIELD(float, halfWidth)      \
  FIELD(float, halfHeight)

#define WEIGH_NEAR_GRADIENTS_BUFFERS(BUFFER) \
  BUFFER(0, readwrite, float, dMean)         \
  BUFFER(1, readonly, float, depth)
#define WEIGH_NEAR_GRADIENTS_PUSH(FIELD) \
  FIELD(uint, count)                     \
  FIELD(float, fullDepth)

#ifdef __cplusplus
#define TRAIN_KERNELS(KERNEL)                          \
  KERNEL(Adam, "adam", ADAM)                           \
  KERNEL(AdamSh, "adam_sh", ADAM_SH)                   \
  KERNEL(AddNoise, "add_noise", ADD_NOISE)             \
  KERNEL(FlagDiverged, "flag_diverged", FLAG_DIVERGED) \
  KERNEL(GradStats, "grad_stats", GRAD_STATS)          \
  KERNEL(WeighNearGradients, "weigh_near_gradients", WEIGH_NEAR_GRADIENTS)

namespace quor::gs::kernels {
TRAIN_KERNELS(DECLARE_KERNEL)
}  // namespace quor::gs::kernels
#endif
#endif
