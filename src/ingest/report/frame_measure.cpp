#include "ingest/report/frame_measure.h"

#include <algorithm>

#include "base/files/file_bytes.h"
#include "ingest/photo/image_decoders.h"
#include "ingest/sharpness.h"

namespace quor {
namespace {

constexpr int kMeasuredEdge = 480;  // pixels, at least, where the frame has them

std::vector<float> lumaOf(const AVFrame& frame) {
  std::vector<float> luma;
  luma.reserve(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height));
  for (int y = 0; y < frame.height; ++y) {
    const uint8_t* row = frame.data[0] + std::ptrdiff_t{y} * frame.linesize[0];
    luma.insert(luma.end(), row, row + frame.width);
  }
  return luma;
}

// The mean of each cell of a grid over the picture.
std::vector<uint8_t> thumbnailOf(const std::vector<float>& luma, int width, int height) {
  std::vector<uint8_t> thumbnail;
  for (int cy = 0; cy < kThumbnailHeight; ++cy) {
    const int top = cy * height / kThumbnailHeight, bottom = std::max((cy + 1) * height / kThumbnailHeight, top + 1);
    for (int cx = 0; cx < kThumbnailWidth; ++cx) {
      const int left = cx * width / kThumbnailWidth, right = std::max((cx + 1) * width / kThumbnailWidth, left + 1);
      double sum = 0;
      for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x)
          sum +=
              static_cast<double>(luma[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)]);
      }
      thumbnail.push_back(static_cast<uint8_t>(sum / ((bottom - top) * (right - left)) + 0.5));
    }
  }
  return thumbnail;
}

}  // namespace

std::optional<FrameMeasure> measureFrame(const std::filesystem::path& path) try {
  const FramePtr frame = decodeSmallJpeg(readFileBytes(path, kLargestImageBytes), kMeasuredEdge);
  const std::vector<float> luma = lumaOf(*frame);
  FrameMeasure measure;
  measure.sharpness = laplacianVariance(luma, frame->width, frame->height);
  measure.thumbnail = thumbnailOf(luma, frame->width, frame->height);
  double sum = 0;
  for (const float value : luma) sum += static_cast<double>(value);
  measure.brightness = sum / static_cast<double>(luma.size());
  return measure;
} catch (const std::runtime_error&) {
  return std::nullopt;
}

}  // namespace quor
