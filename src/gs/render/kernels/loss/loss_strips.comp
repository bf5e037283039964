#version 450
// The whole loss in one pass, for devices on which memory accesses cost far more than arithmetic: replaces u8_to_f32, the
// SSIM kernels, loss_grad and loss_partials, with two loads and one store a pixel and channel.
//
//   dImage = l1Scale sign(a - b) + ssimScale dSSIM/da, the latter as in ssim_tail_backward and ssim_chain_backward
//
// A subgroup walks down a strip of one channel, kColumns pixels of a row an invocation, and holds the last eleven rows of
// both images in registers. A new row t completes the window of the statistics of row t - 5 (blurred along the columns,
// then by shuffles along the row), and their gradients complete those of row t - 10. SSIM's denominators need the squares'
// sum only, so four planes are blurred, and three on the way back.
//
// A strip reads kHalo pixels beyond the columns that it writes, except at the image's edges: beyond them everything is 0.
//
// binding | name     | element | shape           | access
//       0 | rendered | float   | H x W x 3       | read
//       1 | photo    | 4 bytes | ceil(3 W H / 4) | read, byte 0 in the lowest bits
//       2 | dImage   | float   | H x W x 3       | write
//       3 | partials | float   | groups x 3      | write, sums of | a - b | , (clamp(a) - b)^2 and SSIM
// Push: width, height, rows of a strip, l1Scale, ssimScale. Groups cover (strips, ceil(H / rows), 3); no races.
// Subgroups of exactly eight.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_arithmetic : require
#extension GL_KHR_shader_subgroup_shuffle : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gs/render/kernels/loss/ssim_window.glsl"

layout(local_size_x = 8) in;
DECLARE_BUFFERS(LOSS_STRIPS)
DECLARE_PUSH(LOSS_STRIPS)

const int kColumns = LOSS_STRIP_COLUMNS;
const int kWindowRows = 2 * kRadius + 1;
const int kHalo = LOSS_STRIP_HALO;  // two windows' radius

#define EACH_COLUMN [[unroll]] for (int j = 0; j < kColumns; ++j)

// A window's sum; kWindow is symmetric.
#define WINDOW_SUM(at)                                                                                  \
  (kWindow[5] * at(5) + kWindow[4] * (at(4) + at(6)) + kWindow[3] * (at(3) + at(7)) +                   \
   kWindow[2] * (at(2) + at(8)) + kWindow[1] * (at(1) + at(9)) + kWindow[0] * (at(0) + at(10)))

// Blurs along the row; each invocation needs the next five values of both its neighbours.
void blurRow(inout float v[kColumns]) {
  const uint lane = gl_SubgroupInvocationID;
  float near[kColumns + kHalo];
  [[unroll]] for (int k = 0; k < kRadius; ++k) {
    const float left = subgroupShuffle(v[kColumns - kRadius + k], (lane + 7u) & 7u);
    const float right = subgroupShuffle(v[k], (lane + 1u) & 7u);
    near[k] = lane > 0u ? left : 0.0;
    near[kColumns + kRadius + k] = lane < 7u ? right : 0.0;
  }
  EACH_COLUMN near[j + kRadius] = v[j];
#define NEAR(k) near[j + k]
  EACH_COLUMN v[j] = WINDOW_SUM(NEAR);
}

void main() {
  const int c = int(gl_WorkGroupID.z);
  const int owned = 8 * kColumns - 2 * kHalo;
  const int strip = int(gl_WorkGroupID.x), lastStrip = int(gl_NumWorkGroups.x) - 1;
  const int windowX = strip * owned;
  const int ownedX = strip == 0 ? 0 : windowX + kHalo, endX = strip == lastStrip ? width : windowX + kHalo + owned;
  const int firstX = windowX + int(gl_SubgroupInvocationID) * kColumns;
  const int firstY = int(gl_WorkGroupID.y) * rows, endY = min(firstY + rows, height);

  float a[kWindowRows][kColumns], b[kWindowRows][kColumns];  // the oldest row first
  float sums[kWindowRows][kColumns];                         // of rows t - 10 .. t, as far as they have come
  [[unroll]] for (int k = 0; k < kWindowRows; ++k) {
    EACH_COLUMN a[k][j] = b[k][j] = sums[k][j] = 0.0;
  }
  float l1 = 0.0, squared = 0.0, similarity = 0.0;
  float inside[kColumns];
  EACH_COLUMN inside[j] = firstX + j < width ? 1.0 : 0.0;

  int t = firstY - kHalo;
  do {
    [[unroll]] for (int k = 0; k + 1 < kWindowRows; ++k) {
      EACH_COLUMN {
        a[k][j] = a[k + 1][j];
        b[k][j] = b[k + 1][j];
      }
    }
    const bool rowInside = t >= 0 && t < height;
    EACH_COLUMN {
      float rendered_ = 0.0;
      uint word = 0u;
      const int i = 3 * (t * width + firstX + j) + c;
      if (rowInside && firstX + j < width) {
        rendered_ = rendered[i];
        word = photo[i >> 2];
      }
      a[10][j] = rendered_;
      b[10][j] = float((word >> (8 * (i & 3))) & 255u) * 0.003921568859368563;
    }

    float ma[kColumns], mb[kColumns], squares[kColumns], product[kColumns];
    EACH_COLUMN {
#define A(k) a[k][j]
#define B(k) b[k][j]
#define SQUARES(k) (a[k][j] * a[k][j] + b[k][j] * b[k][j])
#define PRODUCT(k) (a[k][j] * b[k][j])
      ma[j] = WINDOW_SUM(A);
      mb[j] = WINDOW_SUM(B);
      squares[j] = WINDOW_SUM(SQUARES);
      product[j] = WINDOW_SUM(PRODUCT);
    }
    blurRow(ma);
    blurRow(mb);
    blurRow(squares);
    blurRow(product);

    const int centre = t - kRadius;
    const float centreInside = centre >= 0 && centre < height ? 1.0 : 0.0;
    const float centreOwned = centre >= firstY && centre < endY ? 1.0 : 0.0;
    float dMean[kColumns], dSquare[kColumns], dProduct[kColumns];
    EACH_COLUMN {
      const float mx = ma[j], my = mb[j], mm = mx * mx + my * my;
      const float A = 2.0 * mx * my + SSIM_C1, B = 2.0 * (product[j] - mx * my) + SSIM_C2;
      const float C = mm + SSIM_C1, D = squares[j] - mm + SSIM_C2;
      const float inverseC = 1.0 / C, inverseD = 1.0 / D;
      const float ssim = A * B / (C * D);  // exactly 1 where the images are equal
      const float on = 2.0 * centreInside * inside[j];
      dMean[j] = on * (my * (B - A) * inverseC * inverseD + mx * ssim * (inverseD - inverseC));
      dSquare[j] = -on * ssim * inverseD;
      dProduct[j] = on * A * inverseC * inverseD;
      const int x = firstX + j;
      similarity += x >= ownedX && x < endX ? centreOwned * ssim : 0.0;
    }
    blurRow(dMean);
    blurRow(dSquare);
    blurRow(dProduct);
    [[unroll]] for (int k = 0; k < kWindowRows; ++k) {
      EACH_COLUMN {
        const float before = k + 1 < kWindowRows ? sums[k + 1][j] : 0.0;
        sums[k][j] = before + kWindow[k] * (dMean[j] + a[k][j] * dSquare[j] + b[k][j] * dProduct[j]);
      }
    }

    const int y = t - kHalo;
    if (y >= firstY) {
      EACH_COLUMN {
        const int x = firstX + j;
        if (x >= ownedX && x < endX) {
          const float difference = a[0][j] - b[0][j], clamped = clamp(a[0][j], 0.0, 1.0) - b[0][j];
          l1 += abs(difference);
          squared += clamped * clamped;
          dImage[3 * (y * width + x) + c] = l1Scale * sign(difference) + ssimScale * sums[0][j];
        }
      }
    }
    ++t;
  } while (t < endY + kHalo);

  const vec3 total = vec3(subgroupAdd(l1), subgroupAdd(squared), subgroupAdd(similarity));
  if (gl_SubgroupInvocationID == 0u) {
    const uint group = (gl_WorkGroupID.z * gl_NumWorkGroups.y + gl_WorkGroupID.y) * gl_NumWorkGroups.x + gl_WorkGroupID.x;
    partials[3u * group] = total.x;
    partials[3u * group + 1u] = total.y;
    partials[3u * group + 2u] = total.z;
  }
}
