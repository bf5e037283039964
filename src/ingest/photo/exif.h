// What photographs say about their camera: the few EXIF values that the camera solve and the grouping of photographs
// need. Every picture format carries EXIF as the same structure, that of a small TIFF file.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ingest/photo/photo.h"

namespace quor {

// Reads a TIFF structure of either byte order. What is missing, damaged or absurd stays at its default; nothing throws,
// whatever the bytes. Without a focal length in 35 mm terms it is worked out from the sensor's resolution if that is
// given. Texts come out as printable ASCII.
PhotoInfo parseExif(std::span<const uint8_t> tiff);

// A TIFF structure that says what is known in `info`, and that the picture is upright whatever info.orientation is. The
// focal length in 35 mm terms is relative to the frame, so that it holds for a picture that was scaled too.
std::vector<uint8_t> writeExif(const PhotoInfo& info);

// The TIFF structure in a PNG or WebP file; empty when there is none.
std::span<const uint8_t> findPngExif(std::span<const uint8_t> file);
std::span<const uint8_t> findWebpExif(std::span<const uint8_t> file);
// A block as it lies in JPEG, HEIF and some WebP files: the structure behind "Exif" and two more bytes.
std::span<const uint8_t> withoutExifMark(std::span<const uint8_t> block);

}  // namespace quor
