// The camera data in photographs: the few EXIF values that the camera solve and the grouping of photographs need, and
// where they were taken. Every picture format carries EXIF as the same structure, that of a small TIFF file.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ingest/photo/photo.h"

namespace quor {

// Reads a TIFF structure of either byte order. Missing, damaged and implausible values keep their defaults; it never
// throws, whatever the bytes. Latitude and longitude 0 are what receivers write that do not know their place. A missing
// focal length in 35 mm terms is derived from the sensor's resolution where that is given. Texts are printable ASCII.
PhotoInfo parseExif(std::span<const uint8_t> tiff);

// A TIFF structure with the known values of `info`. The orientation is always written as upright. The focal length in
// 35 mm terms is relative to the frame, so it also holds for a scaled picture.
std::vector<uint8_t> writeExif(const PhotoInfo& info);

// The TIFF structure in a PNG or WebP file; empty when there is none.
std::span<const uint8_t> findPngExif(std::span<const uint8_t> file);
std::span<const uint8_t> findWebpExif(std::span<const uint8_t> file);
// Skips the "Exif\0\0" in front of the structure in JPEG, HEIF and some WebP files.
std::span<const uint8_t> withoutExifMark(std::span<const uint8_t> block);

}  // namespace quor
