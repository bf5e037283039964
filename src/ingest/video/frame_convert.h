// Decoded pictures made into the plain ones that this system works with: RGB24, or YUVJ420P (full range) for the JPEG
// encoder.
#pragma once

#include "ingest/video/ffmpeg_support.h"

namespace quor {

// The picture in width x height pixels of `format` (RGB24 or YUVJ420P), areas averaged where it shrinks; transparent
// parts lie on black. Takes any pixel format that FFmpeg's scaler reads; throws std::runtime_error with the bare reason
// for others.
FramePtr convertFrame(FramePtr frame, int width, int height, AVPixelFormat format);

// An RGB24 or YUVJ420P picture turned upright from the way that an EXIF orientation (1..8) says it is stored.
FramePtr turnUpright(FramePtr frame, int orientation);

}  // namespace quor
