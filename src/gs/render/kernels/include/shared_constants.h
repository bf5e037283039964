// Constants that the kernels and the C++ beside them both need. Preprocessor only: GLSL and C++ read this same file.
#ifndef OMBRELUX_SHARED_CONSTANTS_H
#define OMBRELUX_SHARED_CONSTANTS_H

#define TILE_SIZE 16

// Blending: alpha is capped, ignored below 1/255, and a pixel is finished once its transmittance is below the limit.
#define ALPHA_MAX 0.999
#define ALPHA_MIN 0.003921568859368563
#define TRANSMITTANCE_MIN 0.0001

// Variance, in square pixels, of the low-pass filter that is added to every projected splat.
#define SCREEN_BLUR 0.3

// The camera-space point at which the projection's Jacobian is taken stays within this many half fields of view.
#define FRUSTUM_CLAMP 1.3
#define DIVISION_GUARD 1e-12

// Real spherical harmonics.
#define SH_C0 0.282094806432724
#define SH_C1 0.48860251903533936
#define SH_C2_0 1.0925484895706177
#define SH_C2_1 0.31539157032966614
#define SH_C2_2 0.5462742447853088
#define SH_C3_0 0.5900436043739319
#define SH_C3_1 2.890611410140991
#define SH_C3_2 0.37317633628845215
#define SH_C3_3 1.4453057050704956
#define SH_C3_4 0.4570457994644658
#define SH_REST_FLOATS 45

// SSIM for a data range of 1.
#define SSIM_C1 0.0001
#define SSIM_C2 0.0009

// Of loss_strips: pixels of a row that an invocation holds, and columns that a strip reads beyond its own on either
// side.
#define LOSS_STRIP_COLUMNS 12
#define LOSS_STRIP_HALO 10

#endif
