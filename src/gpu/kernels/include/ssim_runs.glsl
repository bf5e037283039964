// Blurring with the SSIM window eight outputs at a time: every invocation owns a run of eight pixels along the axis, so
// that each input is loaded once for all the outputs that it belongs to. Outside the image an input is 0, which is the
// same as skipping the tap.
#extension GL_EXT_control_flow_attributes : require
#include "ssim_window.glsl"

const int kRun = 8;
const int kReach = kRun + 2 * kRadius;  // inputs of a run

// Adds input `value`, the run's t-th, to the outputs of the run within the window's reach.
#define SPREAD(sums, t, value)                                                     \
  [[unroll]] for (int j_ = 0; j_ < kRun; ++j_) {                                   \
    if ((t)-j_ >= 0 && (t)-j_ <= 2 * kRadius) sums[j_] += kWindow[(t)-j_] * (value); \
  }

const float kZeroRun[8] = float[](0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0);
