// The segments of a JPEG file (ITU-T T.81, annex B), without decoding the picture.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace quor {

struct JpegFile {
  // From the start of the image through its end marker; cameras append previews, second pictures and films. Empty when
  // the end marker is missing: the file is cut off.
  std::span<const uint8_t> picture;
  std::span<const uint8_t> exif;  // its TIFF structure; empty when there is none
  int width = 0;                  // 0 when its header is missing
  int height = 0;
  // 8-bit grey or YCbCr, Huffman-coded: every JPEG reader supports it.
  bool common = false;
};

JpegFile readJpegSegments(std::span<const uint8_t> file);

// A JPEG file without EXIF, and with this one. The structure must be shorter than 64 KiB.
std::vector<uint8_t> insertExif(std::span<const uint8_t> jpeg, std::span<const uint8_t> exif);

}  // namespace quor
