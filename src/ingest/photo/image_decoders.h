// Still pictures through FFmpeg's decoders and libheif, chosen by the file's contents and not by its name.
#pragma once

#include <cstdint>
#include <span>

#include "ingest/photo/photo.h"
#include "ingest/video/ffmpeg_support.h"

namespace quor {

enum class PictureFormat { Unknown, Jpeg, Png, Bmp, Tiff, Webp, Heif, Tga };

// TGA files have no signature: anything that could be one counts as one.
PictureFormat pictureFormat(std::span<const uint8_t> file);

struct Picture {
  FramePtr frame;  // in the decoder's pixel format
  PhotoInfo info;  // its orientation is still to be applied to the frame
};

// Throws std::runtime_error with the bare reason: an unknown format, a damaged, cut-off or too large picture. Any
// thread.
Picture decodePicture(std::span<const uint8_t> file);

// A JPEG picture at a whole, half, quarter or eighth of its size, the smallest whose longer edge still has `edge`
// pixels. The first plane is its luma. Throws as decodePicture.
FramePtr decodeSmallJpeg(std::span<const uint8_t> file, int edge);

// The picture of a HEIF file as RGB24 or RGBA, with the file's own rotation and mirroring applied, so that
// info.orientation is 1.
Picture decodeHeif(std::span<const uint8_t> file);

}  // namespace quor
