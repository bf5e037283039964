#include "ingest/video/color_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

namespace quor {
namespace {

struct Weights {  // of red and blue in the luma
  double red, blue;
};
constexpr Weights kBt601 = {0.299, 0.114};

std::optional<Weights> otherWeights(AVColorSpace space) {
  switch (space) {
    case AVCOL_SPC_BT709:
      return Weights{0.2126, 0.0722};
    case AVCOL_SPC_FCC:
      return Weights{0.30, 0.11};
    case AVCOL_SPC_SMPTE240M:
      return Weights{0.212, 0.087};
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return Weights{0.2627, 0.0593};
    default:
      return std::nullopt;
  }
}

// The contribution of one unit of Cb or of Cr to each component.
struct Column {
  float luma, cb, cr;
};
Column columnOf(double red, double green, double blue) {
  const double luma = kBt601.red * red + (1 - kBt601.red - kBt601.blue) * green + kBt601.blue * blue;
  return {static_cast<float>(luma), static_cast<float>(0.5 * (blue - luma) / (1 - kBt601.blue)),
          static_cast<float>(0.5 * (red - luma) / (1 - kBt601.red))};
}

uint8_t toByte(int value) {
  return static_cast<uint8_t>(std::clamp<int16_t>(static_cast<int16_t>(value), 0, 255));
}

// One row of chroma; `gain` receives the luma correction of each sample. Written so that compilers vectorise it:
// the offset keeps the values positive, so that truncation rounds.
void convertChroma(uint8_t* __restrict u, uint8_t* __restrict v, int16_t* __restrict gain, int count, Column cb,
                   Column cr) {
  constexpr int kOffset = 1024;
  const auto rounded = [](float value) { return static_cast<int>(value + (kOffset + 0.5f)) - kOffset; };
  for (int x = 0; x < count; ++x) {
    const float b = static_cast<float>(u[x] - 128), r = static_cast<float>(v[x] - 128);
    gain[x] = static_cast<int16_t>(rounded(cb.luma * b + cr.luma * r));
    u[x] = toByte(rounded(cb.cb * b + cr.cb * r) + 128);
    v[x] = toByte(rounded(cb.cr * b + cr.cr * r) + 128);
  }
}

void addToLuma(uint8_t* __restrict y, const int16_t* __restrict gain, int width) {
  for (ptrdiff_t x = 0; x < width / 2; ++x) {
    y[2 * x] = toByte(y[2 * x] + gain[x]);
    y[2 * x + 1] = toByte(y[2 * x + 1] + gain[x]);
  }
  if (width % 2 != 0) y[width - 1] = toByte(y[width - 1] + gain[width / 2]);
}

}  // namespace

void convertToJpegMatrix(AVFrame& frame) {
  const auto from = otherWeights(frame.colorspace);
  if (!from) return;
  const double green = 1 - from->red - from->blue;
  const Column cb = columnOf(0, -2 * (1 - from->blue) * from->blue / green, 2 * (1 - from->blue));
  const Column cr = columnOf(2 * (1 - from->red), -2 * (1 - from->red) * from->red / green, 0);

  const auto rowOf = [&](int plane, int row) {
    return frame.data[plane] + static_cast<ptrdiff_t>(row) * frame.linesize[plane];
  };
  std::vector<int16_t> gain(static_cast<size_t>((frame.width + 1) / 2));
  for (int row = 0; 2 * row < frame.height; ++row) {
    convertChroma(rowOf(1, row), rowOf(2, row), gain.data(), static_cast<int>(gain.size()), cb, cr);
    addToLuma(rowOf(0, 2 * row), gain.data(), frame.width);
    if (2 * row + 1 < frame.height) addToLuma(rowOf(0, 2 * row + 1), gain.data(), frame.width);
  }
  frame.colorspace = AVCOL_SPC_BT470BG;
}

}  // namespace quor
