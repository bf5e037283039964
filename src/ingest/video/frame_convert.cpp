#include "ingest/video/frame_convert.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace quor {
namespace {

FramePtr makeFrame(int width, int height, AVPixelFormat format) {
  FramePtr frame = newFrame();
  frame->format = format;
  frame->width = width;
  frame->height = height;
  frame->color_range = AVCOL_RANGE_JPEG;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  return frame;
}

FramePtr scale(const AVFrame& from, int width, int height, AVPixelFormat format) {
  const auto source = static_cast<AVPixelFormat>(from.format);
  constexpr int kFlags = SWS_AREA | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
  const std::unique_ptr<SwsContext, void (*)(SwsContext*)> scaler(
      sws_isSupportedInput(source)
          ? sws_getContext(from.width, from.height, source, width, height, format, kFlags, nullptr, nullptr, nullptr)
          : nullptr,
      sws_freeContext);
  if (!scaler) throw std::runtime_error("its pixel format is not supported");
  // Only the formats named yuvj are taken as full range unless it is said.
  int *inverse = nullptr, *table = nullptr, fromFull = 0, toFull = 0, brightness = 0, contrast = 0, saturation = 0;
  if (sws_getColorspaceDetails(scaler.get(), &inverse, &fromFull, &table, &toFull, &brightness, &contrast,
                               &saturation) >= 0) {
    const int* matrix = from.colorspace == AVCOL_SPC_UNSPECIFIED ? inverse : sws_getCoefficients(from.colorspace);
    sws_setColorspaceDetails(scaler.get(), matrix, fromFull || from.color_range == AVCOL_RANGE_JPEG, table, toFull,
                             brightness, contrast, saturation);
  }
  FramePtr to = makeFrame(width, height, format);
  if (sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, to->data, to->linesize) < 0) {
    throw std::runtime_error("its pixels could not be converted");
  }
  return to;
}

bool hasAlpha(const AVFrame& frame) {
  const AVPixFmtDescriptor* about = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  return about && (about->flags & (AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL)) != 0;
}

// As RGB0, every colour weakened by its alpha.
FramePtr layOnBlack(const AVFrame& frame) {
  FramePtr picture = scale(frame, frame.width, frame.height, AV_PIX_FMT_RGBA);
  const auto row = [&](int y) { return picture->data[0] + std::ptrdiff_t{y} * picture->linesize[0]; };
  const std::ptrdiff_t rowBytes = std::ptrdiff_t{picture->width} * 4;
  // An alpha channel that hides every pixel was never meant as one.
  bool visible = false;
  for (int y = 0; y < picture->height && !visible; ++y) {
    for (std::ptrdiff_t x = 3; x < rowBytes && !visible; x += 4) visible = row(y)[x] != 0;
  }
  for (int y = 0; y < picture->height && visible; ++y) {
    for (uint8_t* pixel = row(y); pixel < row(y) + rowBytes; pixel += 4) {
      for (int c = 0; c < 3; ++c) pixel[c] = static_cast<uint8_t>((pixel[c] * pixel[3] + 127) / 255);
    }
  }
  picture->format = AV_PIX_FMT_RGB0;
  return picture;
}

struct Turn {
  bool swapsSides = false;
  bool flipsX = false;  // the stored columns run from the right
  bool flipsY = false;
};

// EXIF 2.32, tag 0x0112.
Turn turnOf(int orientation) {
  switch (orientation) {
    case 2:
      return {false, true, false};
    case 3:
      return {false, true, true};
    case 4:
      return {false, false, true};
    case 5:
      return {true, false, false};
    case 6:
      return {true, false, true};
    case 7:
      return {true, true, true};
    case 8:
      return {true, true, false};
    default:
      return {};
  }
}

struct Plane {
  uint8_t* data;
  std::ptrdiff_t stride;
  int width;
  int height;
};

template <int kBytes>
void turnPlane(const Plane& from, const Plane& to, const Turn& turn) {
  const uint8_t* first = from.data + (turn.flipsX ? std::ptrdiff_t{from.width - 1} * kBytes : 0) +
                         (turn.flipsY ? (from.height - 1) * from.stride : 0);
  const std::ptrdiff_t column = turn.flipsX ? -kBytes : kBytes, row = turn.flipsY ? -from.stride : from.stride;
  const std::ptrdiff_t stepX = turn.swapsSides ? row : column, stepY = turn.swapsSides ? column : row;
  constexpr int kBlock = 32;  // keeps the rows that a column crosses in the cache
  for (int y0 = 0; y0 < to.height; y0 += kBlock) {
    for (int x0 = 0; x0 < to.width; x0 += kBlock) {
      for (int y = y0; y < std::min(y0 + kBlock, to.height); ++y) {
        const uint8_t* source = first + y * stepY + x0 * stepX;
        uint8_t* target = to.data + y * to.stride + std::ptrdiff_t{x0} * kBytes;
        for (int x = x0; x < std::min(x0 + kBlock, to.width); ++x, source += stepX, target += kBytes) {
          std::memcpy(target, source, kBytes);
        }
      }
    }
  }
}

Plane planeOf(const AVFrame& frame, int plane) {
  const bool chroma = plane > 0;
  return {frame.data[plane], frame.linesize[plane], chroma ? (frame.width + 1) / 2 : frame.width,
          chroma ? (frame.height + 1) / 2 : frame.height};
}

}  // namespace

FramePtr convertFrame(FramePtr frame, int width, int height, AVPixelFormat format) {
  if (hasAlpha(*frame)) frame = layOnBlack(*frame);
  if (frame->format == format && frame->width == width && frame->height == height) return frame;
  return scale(*frame, width, height, format);
}

FramePtr turnUpright(FramePtr frame, int orientation) {
  if (orientation <= 1 || orientation > 8) return frame;
  const Turn turn = turnOf(orientation);
  const auto format = static_cast<AVPixelFormat>(frame->format);
  FramePtr turned =
      turn.swapsSides ? makeFrame(frame->height, frame->width, format) : makeFrame(frame->width, frame->height, format);
  if (format == AV_PIX_FMT_RGB24) {
    turnPlane<3>(planeOf(*frame, 0), planeOf(*turned, 0), turn);
  } else {
    for (int plane = 0; plane < 3; ++plane) turnPlane<1>(planeOf(*frame, plane), planeOf(*turned, plane), turn);
  }
  return turned;
}

}  // namespace quor
