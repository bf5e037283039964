#include "ingest/color_matrix.h"

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

constexpr int kShift = 14;

// What one unit of Cb or of Cr adds to each component, as fixed-point numbers.
struct Column {
  int luma, cb, cr;
};
Column columnOf(double red, double green, double blue) {
  const double luma = kBt601.red * red + (1 - kBt601.red - kBt601.blue) * green + kBt601.blue * blue;
  const auto fixed = [](double value) { return static_cast<int>(std::lround(value * (1 << kShift))); };
  return {fixed(luma), fixed(0.5 * (blue - luma) / (1 - kBt601.blue)), fixed(0.5 * (red - luma) / (1 - kBt601.red))};
}

uint8_t rounded(int base, int fixed) {
  return static_cast<uint8_t>(std::clamp(base + ((fixed + (1 << (kShift - 1))) >> kShift), 0, 255));
}

}  // namespace

void convertToJpegMatrix(AVFrame& frame) {
  const auto from = otherWeights(frame.colorspace);
  if (!from) return;
  const double green = 1 - from->red - from->blue;
  const Column cb = columnOf(0, -2 * (1 - from->blue) * from->blue / green, 2 * (1 - from->blue));
  const Column cr = columnOf(2 * (1 - from->red), -2 * (1 - from->red) * from->red / green, 0);

  const int width = frame.width, chromaWidth = (width + 1) / 2;
  std::vector<int16_t> luma(static_cast<size_t>(2 * chromaWidth));  // what a pair of rows gains
  for (int row = 0; 2 * row < frame.height; ++row) {
    uint8_t* u = frame.data[1] + static_cast<ptrdiff_t>(row) * frame.linesize[1];
    uint8_t* v = frame.data[2] + static_cast<ptrdiff_t>(row) * frame.linesize[2];
    int16_t* gain = luma.data();
    for (int x = 0; x < chromaWidth; ++x) {
      const int b = u[x] - 128, r = v[x] - 128;
      gain[2 * x] = gain[2 * x + 1] = static_cast<int16_t>((cb.luma * b + cr.luma * r + (1 << (kShift - 1))) >> kShift);
      u[x] = rounded(128, cb.cb * b + cr.cb * r);
      v[x] = rounded(128, cb.cr * b + cr.cr * r);
    }
    for (int line = 2 * row; line < std::min(2 * row + 2, frame.height); ++line) {
      uint8_t* y = frame.data[0] + static_cast<ptrdiff_t>(line) * frame.linesize[0];
      for (int x = 0; x < width; ++x)
        y[x] = static_cast<uint8_t>(std::clamp<int16_t>(static_cast<int16_t>(y[x] + gain[x]), 0, 255));
    }
  }
  frame.colorspace = AVCOL_SPC_BT470BG;
}

}  // namespace quor
