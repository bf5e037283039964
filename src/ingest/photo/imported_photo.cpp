#include "ingest/photo/imported_photo.h"

#include <algorithm>
#include <cmath>

#include "base/files/file_bytes.h"
#include "ingest/photo/exif.h"
#include "ingest/photo/image_decoders.h"
#include "ingest/photo/jpeg_file.h"
#include "ingest/video/frame_convert.h"

namespace quor {
namespace {

ImageSize fitted(ImageSize size, int maxDimension) {
  const int longest = std::max(size.width, size.height);
  if (maxDimension < 1 || longest <= maxDimension) return size;
  const double factor = static_cast<double>(maxDimension) / longest;
  const auto shrunk = [&](int edge) { return std::max(1, static_cast<int>(std::lround(edge * factor))); };
  return {shrunk(size.width), shrunk(size.height)};
}

}  // namespace

ImportedPhoto importPhoto(const std::filesystem::path& path, int maxDimension, JpegEncoder& encoder) {
  const std::vector<uint8_t> file = readFileBytes(path, kLargestImageBytes);
  Picture picture = decodePicture(file);
  const ImageSize stored{picture.frame->width, picture.frame->height};
  const ImageSize size = fitted(stored, maxDimension);
  const bool untouched = size.width == stored.width && size.height == stored.height && picture.info.orientation == 1;
  if (untouched && pictureFormat(file) == PictureFormat::Jpeg) {
    if (const JpegFile jpeg = readJpegSegments(file); jpeg.common) {
      return {{jpeg.picture.begin(), jpeg.picture.end()}, size.width, size.height, picture.info};
    }
  }
  const FramePtr frame = turnUpright(
      convertFrame(std::move(picture.frame), size.width, size.height, AV_PIX_FMT_YUVJ420P), picture.info.orientation);
  return {insertExif(encoder.encode(*frame), writeExif(picture.info)), frame->width, frame->height, picture.info};
}

}  // namespace quor
