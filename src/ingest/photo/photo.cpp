#include "ingest/photo/photo.h"

#include <algorithm>
#include <stdexcept>

#include "base/files/file_bytes.h"
#include "base/files/paths.h"
#include "ingest/photo/image_decoders.h"
#include "ingest/video/frame_convert.h"

namespace quor {
namespace {

Image toImage(FramePtr frame, int orientation) {
  const int width = frame->width, height = frame->height;
  frame = turnUpright(convertFrame(std::move(frame), width, height, AV_PIX_FMT_RGB24), orientation);
  Image image{frame->width, frame->height, {}};
  const size_t rowBytes = static_cast<size_t>(image.width) * 3;
  image.rgb.resize(rowBytes * static_cast<size_t>(image.height));
  for (int y = 0; y < image.height; ++y) {
    std::copy_n(frame->data[0] + std::ptrdiff_t{y} * frame->linesize[0], rowBytes,
                image.rgb.data() + static_cast<size_t>(y) * rowBytes);
  }
  return image;
}

std::optional<Image> decodeAsStored(const std::filesystem::path& path) {
  const std::vector<uint8_t> file = readFileBytes(path, kLargestImageBytes);
  if (pictureFormat(file) == PictureFormat::Unknown) return std::nullopt;
  return toImage(decodePicture(file).frame, 1);
}

}  // namespace

Photo readPhoto(const std::filesystem::path& path) try {
  Picture picture = decodePicture(readFileBytes(path, kLargestImageBytes));
  return {toImage(std::move(picture.frame), picture.info.orientation), picture.info};
} catch (const std::runtime_error& e) {
  throw std::runtime_error("Cannot read image " + toUtf8(path) + ": " + e.what());
}

void registerImageDecoders() {
  registerImageDecoder(decodeAsStored);
}

}  // namespace quor
