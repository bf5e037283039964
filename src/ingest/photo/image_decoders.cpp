#include "ingest/photo/image_decoders.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ingest/photo/exif.h"
#include "ingest/photo/jpeg_file.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace quor {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr const char* kDamaged = "its picture data are damaged or cut off";

// What getGround() reads and reports through AVCodecContext::opaque.
struct Ground {
  std::optional<uint8_t> value;  // that new pictures are filled with
  std::string refusal;
};

// FFmpeg has its own limit, and some decoders exceed it without an error.
void checkDecodableSize(int width, int height) {
  if (width < 1 || height < 1) throw std::runtime_error(kDamaged);
  checkImageSize(width, height);
  if (av_image_check_size(static_cast<unsigned>(width), static_cast<unsigned>(height), 0, nullptr) < 0) {
    throw std::runtime_error(std::to_string(width) + " x " + std::to_string(height) + " pixels are too many");
  }
}

// Refuses pictures that are too large before it allocates them.
int getGround(AVCodecContext* codec, AVFrame* frame, int flags) {
  auto& ground = *static_cast<Ground*>(codec->opaque);
  try {
    checkImageSize(frame->width, frame->height);
  } catch (const std::runtime_error& e) {
    ground.refusal = e.what();
    return AVERROR(EINVAL);
  }
  const int error = avcodec_default_get_buffer2(codec, frame, flags);
  for (const AVBufferRef* buffer : frame->buf) {
    if (error >= 0 && buffer && ground.value) std::memset(buffer->data, *ground.value, buffer->size);
  }
  return error;
}

int receivePicture(AVCodecContext& codec, Bytes file, AVFrame& frame) {
  const PacketPtr packet = newPacket();
  if (av_new_packet(packet.get(), static_cast<int>(file.size())) < 0) throw std::bad_alloc();
  std::memcpy(packet->data, file.data(), file.size());
  int error = avcodec_send_packet(&codec, packet.get());
  if (error >= 0) error = avcodec_send_packet(&codec, nullptr);
  return error < 0 ? error : avcodec_receive_frame(&codec, &frame);
}

[[noreturn]] void throwUndecoded(int error, const std::string& refusal) {
  if (error == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (!refusal.empty()) throw std::runtime_error(refusal);
  if (error == AVERROR(EINVAL)) throw std::runtime_error("its size in pixels is not possible");
  const bool unsupported = error == AVERROR_PATCHWELCOME || error == AVERROR(ENOSYS);
  throw std::runtime_error(unsupported ? "files of its kind are not supported" : kDamaged);
}

FramePtr decode(AVCodecID id, Bytes file, int strictness, std::optional<uint8_t> groundValue = {}, int halvings = 0) {
  const AVCodec* decoder = avcodec_find_decoder(id);
  if (!decoder) {
    throw std::runtime_error(std::string("FFmpeg was built without its decoder for ") + avcodec_get_name(id));
  }
  const CodecPtr codec(avcodec_alloc_context3(decoder));
  if (!codec) throw std::bad_alloc();
  Ground ground{groundValue, {}};
  codec->thread_count = 1;  // pictures are decoded side by side
  codec->err_recognition = strictness;
  codec->lowres = halvings;
  codec->opaque = &ground;
  codec->get_buffer2 = getGround;
  FramePtr frame = newFrame();
  int error = avcodec_open2(codec.get(), decoder, nullptr);
  if (error >= 0) error = receivePicture(*codec, file, *frame);
  if (error < 0) throwUndecoded(error, ground.refusal);
  return frame;
}

bool samePixels(const AVFrame& a, const AVFrame& b) {
  const auto format = static_cast<AVPixelFormat>(a.format);
  const AVPixFmtDescriptor& about = *av_pix_fmt_desc_get(format);
  for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
    const bool chroma = (plane == 1 || plane == 2) && !(about.flags & AV_PIX_FMT_FLAG_RGB);
    const int rows = chroma ? AV_CEIL_RSHIFT(a.height, about.log2_chroma_h) : a.height;
    const auto bytes = static_cast<size_t>(av_image_get_linesize(format, a.width, plane));
    for (std::ptrdiff_t y = 0; y < rows; ++y) {
      if (std::memcmp(a.data[plane] + y * a.linesize[plane], b.data[plane] + y * b.linesize[plane], bytes) != 0) {
        return false;
      }
    }
  }
  return true;
}

// Some decoders return a damaged picture without an error and leave the missing pixels as they were. So decode it
// twice, onto black and onto white: pixels that differ were never written.
FramePtr decodeWhole(AVCodecID id, Bytes file) {
  FramePtr frame = decode(id, file, AV_EF_CRCCHECK, 0x00);
  if (!samePixels(*frame, *decode(id, file, AV_EF_CRCCHECK, 0xff))) throw std::runtime_error(kDamaged);
  return frame;
}

bool hasAt(Bytes bytes, size_t at, std::string_view text) {
  return bytes.size() >= at + text.size() && std::memcmp(bytes.data() + at, text.data(), text.size()) == 0;
}

Picture decodeJpeg(Bytes file) {
  const JpegFile jpeg = readJpegSegments(file);
  if (jpeg.picture.empty()) throw std::runtime_error("the file is cut off");
  checkDecodableSize(jpeg.width, jpeg.height);
  return {decode(AV_CODEC_ID_MJPEG, jpeg.picture, AV_EF_EXPLODE), parseExif(jpeg.exif)};
}

}  // namespace

FramePtr decodeSmallJpeg(Bytes file, int edge) {
  captureFfmpegLog();
  const JpegFile jpeg = readJpegSegments(file);
  if (jpeg.picture.empty()) throw std::runtime_error("the file is cut off");
  checkDecodableSize(jpeg.width, jpeg.height);
  constexpr int kMostHalvings = 3;
  int halvings = 0;
  while (halvings < kMostHalvings && std::max(jpeg.width, jpeg.height) >> (halvings + 1) >= edge) ++halvings;
  return decode(AV_CODEC_ID_MJPEG, jpeg.picture, AV_EF_EXPLODE, {}, halvings);
}

namespace {

uint32_t bigEndian(Bytes file, size_t at) {
  if (at + 4 > file.size()) throw std::runtime_error("the file is cut off");
  return uint32_t{file[at]} << 24 | uint32_t{file[at + 1]} << 16 | uint32_t{file[at + 2]} << 8 | file[at + 3];
}

Picture decodePng(Bytes file) {
  constexpr uint32_t kLongest = 0x7fffffff;
  checkDecodableSize(static_cast<int>(std::min(bigEndian(file, 16), kLongest)),
                     static_cast<int>(std::min(bigEndian(file, 20), kLongest)));
  return {decode(AV_CODEC_ID_PNG, file, AV_EF_EXPLODE | AV_EF_CRCCHECK), parseExif(findPngExif(file))};
}

Picture decodeWebp(Bytes file) {
  const size_t length = size_t{file[4]} | size_t{file[5]} << 8 | size_t{file[6]} << 16 | size_t{file[7]} << 24;
  if (length > file.size() - 8) throw std::runtime_error("the file is cut off");
  return {decodeWhole(AV_CODEC_ID_WEBP, file), parseExif(findWebpExif(file))};
}

}  // namespace

PictureFormat pictureFormat(Bytes file) {
  using namespace std::string_view_literals;
  if (hasAt(file, 0, "\xff\xd8\xff")) return PictureFormat::Jpeg;
  if (hasAt(file, 0, "\x89PNG\r\n\x1a\n")) return PictureFormat::Png;
  if (hasAt(file, 0, "BM")) return PictureFormat::Bmp;
  if (hasAt(file, 0, "II*\0"sv) || hasAt(file, 0, "MM\0*"sv)) return PictureFormat::Tiff;
  if (hasAt(file, 0, "RIFF") && hasAt(file, 8, "WEBP")) return PictureFormat::Webp;
  if (hasAt(file, 4, "ftyp")) return PictureFormat::Heif;
  // Its kind of colour map and its kind of picture.
  constexpr std::string_view kTgaKinds = "\1\2\3\x09\x0a\x0b";
  const bool tga = file.size() > 18 && file[1] <= 1 && kTgaKinds.find(static_cast<char>(file[2])) != kTgaKinds.npos;
  return tga ? PictureFormat::Tga : PictureFormat::Unknown;
}

Picture decodePicture(Bytes file) {
  captureFfmpegLog();
  if (file.empty()) throw std::runtime_error("the file is empty");
  switch (pictureFormat(file)) {
    case PictureFormat::Jpeg:
      return decodeJpeg(file);
    case PictureFormat::Png:
      return decodePng(file);
    case PictureFormat::Bmp:
      return {decodeWhole(AV_CODEC_ID_BMP, file), {}};
    case PictureFormat::Tiff:
      return {decodeWhole(AV_CODEC_ID_TIFF, file), parseExif(file)};
    case PictureFormat::Webp:
      return decodeWebp(file);
    case PictureFormat::Heif:
      return decodeHeif(file);
    case PictureFormat::Tga:
      return {decodeWhole(AV_CODEC_ID_TARGA, file), {}};
    case PictureFormat::Unknown:
      break;
  }
  throw std::runtime_error("it is not an image file");
}

}  // namespace quor
