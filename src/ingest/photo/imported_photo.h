// One photograph on its way into a project: decoded, turned, scaled and written as JPEG again, in memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "ingest/photo/jpeg_encoder.h"
#include "ingest/photo/photo.h"

namespace quor {

struct ImportedPhoto {
  std::vector<uint8_t> jpeg;  // upright; its EXIF block says so and names the camera as far as it is known
  int width = 0;
  int height = 0;
  PhotoInfo info;
};

// The longest edge becomes at most `maxDimension` pixels (below 1: as long as it is). A sound JPEG that needs neither
// scaling nor turning is passed on without a loss. Throws std::runtime_error with the bare reason when the photograph
// cannot be read, IngestError when it cannot be encoded.
ImportedPhoto importPhoto(const std::filesystem::path& path, int maxDimension, JpegEncoder& encoder);

}  // namespace quor
