// Photographs as cameras and editors write them: any format that can be decoded here, turned upright, with what their
// EXIF block says about the camera.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/image/image.h"
#include "project/georeference.h"

namespace quor {

struct PhotoInfo {
  int orientation = 1;  // EXIF: 1 upright ... 8
  std::string make;     // of the camera, empty when unknown
  std::string model;
  double focal35mm = 0;                 // focal length in 35 mm terms, 0 when unknown
  double focalLength = 0;               // millimetres, 0 when unknown
  std::optional<GeoPosition> position;  // only with its altitude
};

struct Photo {
  Image image;  // upright: the orientation is applied; transparent parts lie on black
  PhotoInfo info;
};

// Throws std::runtime_error "Cannot read image PATH: reason", also for a file that is cut off.
Photo readPhoto(const std::filesystem::path& path);

// Teaches readImage() the formats that it cannot read itself (tif, webp, heic and what else FFmpeg and libheif decode).
// Pixels come as they are stored. May be called more than once.
void registerImageDecoders();

}  // namespace quor
