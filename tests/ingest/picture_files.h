// Picture files of every kind, made in memory: by the encoders of the libraries, and by hand where they have none.
#pragma once

#include <libheif/heif.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/image/image.h"
#include "ingest/extraction.h"
#include "ingest/video/ffmpeg_support.h"

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace quor::test {

inline std::string bigEndian(uint64_t value, int size) {
  std::string text;
  for (int i = size - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i));
  return text;
}
inline std::string littleEndian(uint64_t value, int size) {
  const std::string text = bigEndian(value, size);
  return {text.rbegin(), text.rend()};
}
inline std::span<const uint8_t> asBytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Four plain quarters: red, green, blue, grey in reading order.
inline Image quarters(int width, int height) {
  constexpr uint8_t kColours[4][3] = {{220, 40, 30}, {30, 180, 60}, {50, 60, 200}, {128, 128, 128}};
  Image image{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto& colour = kColours[(2 * y >= height) * 2 + (2 * x >= width)];
      image.rgb.insert(image.rgb.end(), colour, colour + 3);
    }
  }
  return image;
}

// The picture as a file of this EXIF orientation stores it. The standard says at which side of the upright picture the
// stored first row and first column lie.
inline Image stored(const Image& upright, int orientation) {
  const bool sideways = orientation >= 5;
  const int w = upright.width, h = upright.height;
  Image image{sideways ? h : w, sideways ? w : h, {}};
  const bool fromRight = orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7;
  const bool fromBottom = orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8;
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      const int x = sideways ? row : column, y = sideways ? column : row;
      const int at = ((fromBottom ? h - 1 - y : y) * w + (fromRight ? w - 1 - x : x)) * 3;
      image.rgb.insert(image.rgb.end(), upright.rgb.begin() + at, upright.rgb.begin() + at + 3);
    }
  }
  return image;
}

inline FramePtr blankFrame(int width, int height, AVPixelFormat format) {
  FramePtr frame = newFrame();
  frame->width = width;
  frame->height = height;
  frame->format = format;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  return frame;
}

inline std::string encoded(AVCodecID id, const AVFrame& frame) {
  const AVCodec* encoder = avcodec_find_encoder(id);
  if (!encoder) throw std::runtime_error(std::string("no encoder for ") + avcodec_get_name(id));
  const CodecPtr codec(avcodec_alloc_context3(encoder));
  codec->width = frame.width;
  codec->height = frame.height;
  codec->pix_fmt = static_cast<AVPixelFormat>(frame.format);
  codec->time_base = {1, 25};
  const PacketPtr packet = newPacket();
  if (avcodec_open2(codec.get(), encoder, nullptr) < 0 || avcodec_send_frame(codec.get(), &frame) < 0 ||
      avcodec_send_frame(codec.get(), nullptr) < 0 || avcodec_receive_packet(codec.get(), packet.get()) < 0) {
    throw std::runtime_error(std::string("cannot encode ") + avcodec_get_name(id));
  }
  return {reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size)};
}

// `change` may paint on the converted frame.
inline std::string encoded(AVCodecID id, AVPixelFormat format, const Image& image,
                           const std::function<void(AVFrame&)>& change = {}) {
  captureFfmpegLog();
  const FramePtr frame = blankFrame(image.width, image.height, format);
  SwsContext* scaler = sws_getContext(image.width, image.height, AV_PIX_FMT_RGB24, image.width, image.height, format,
                                      SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
  std::vector<uint8_t> pixels = image.rgb;
  pixels.resize(pixels.size() + AV_INPUT_BUFFER_PADDING_SIZE);  // the scaler reads whole vectors at the end
  const uint8_t* source[4] = {pixels.data()};
  const int stride[4] = {image.width * 3};
  sws_scale(scaler, source, stride, 0, image.height, frame->data, frame->linesize);
  sws_freeContext(scaler);
  if (change) change(*frame);
  return encoded(id, *frame);
}

// An EXIF structure of either byte order.
struct ExifValues {
  int orientation = 0;  // 0: not said
  std::string make = {}, model = {};
  double focalLength = 0;
  int focal35mm = 0;
  double pixelsPerInch = 0;  // of the sensor
  int pixelWidth = 0;
  // Degrees and metres; latitude and longitude as degrees, minutes and seconds, south, west and below the sea.
  std::vector<double> gps = {};
};
inline std::string exifOf(const ExifValues& values, bool big) {
  const auto number = [&](uint64_t value, int size) {
    return big ? bigEndian(value, size) : littleEndian(value, size);
  };
  std::string data;  // what does not fit an entry, behind both directories
  const auto text = [&](const std::string& value) {
    if (value.size() < 4) {
      return number(2, 2) + number(value.size() + 1, 4) + value + std::string(4 - value.size(), '\0');
    }
    const uint64_t at = 400 + data.size();
    data += value + '\0';
    return number(2, 2) + number(value.size() + 1, 4) + number(at, 4);
  };
  const auto thousandths = [&](double value) {
    const uint64_t at = 400 + data.size();
    data += number(static_cast<uint64_t>(value * 1000), 4) + number(1000, 4);
    return number(5, 2) + number(1, 4) + number(at, 4);
  };
  const auto shortValue = [&](int value) {
    return number(3, 2) + number(1, 4) + number(static_cast<uint64_t>(value), 2) + number(0, 2);
  };
  const auto directory = [&](const std::vector<std::string>& entries) {
    std::string bytes = number(entries.size(), 2);
    for (const std::string& entry : entries) bytes += entry;
    return bytes + number(0, 4);
  };
  std::vector<std::string> main, exif;
  if (!values.make.empty()) main.push_back(number(0x10f, 2) + text(values.make));
  if (!values.model.empty()) main.push_back(number(0x110, 2) + text(values.model));
  if (values.orientation) main.push_back(number(0x112, 2) + shortValue(values.orientation));
  main.push_back(number(0x8769, 2) + number(4, 2) + number(1, 4) + number(200, 4));
  if (values.focalLength > 0) exif.push_back(number(0x920a, 2) + thousandths(values.focalLength));
  if (values.pixelWidth) exif.push_back(number(0xa002, 2) + shortValue(values.pixelWidth));
  if (values.pixelsPerInch > 0) exif.push_back(number(0xa20e, 2) + thousandths(values.pixelsPerInch));
  if (values.focal35mm) exif.push_back(number(0xa405, 2) + shortValue(values.focal35mm));
  const auto rationals = [&](const std::vector<double>& parts) {
    const uint64_t at = 400 + data.size();
    for (const double part : parts)
      data += number(static_cast<uint64_t>(std::llround(part * 10000)), 4) + number(10000, 4);
    return number(5, 2) + number(parts.size(), 4) + number(at, 4);
  };
  std::vector<std::string> gps;
  if (!values.gps.empty()) {
    main.push_back(number(0x8825, 2) + number(4, 2) + number(1, 4) + number(300, 4));
    gps.push_back(number(1, 2) + text("S"));
    gps.push_back(number(2, 2) + rationals({values.gps[0], values.gps[1], values.gps[2]}));
    gps.push_back(number(3, 2) + text("W"));
    gps.push_back(number(4, 2) + rationals({values.gps[3], values.gps[4], values.gps[5]}));
    gps.push_back(number(5, 2) + number(1, 2) + number(1, 4) + '\1' + std::string(3, '\0'));
    if (values.gps.size() > 6) gps.push_back(number(6, 2) + rationals({values.gps[6]}));
  }
  std::string bytes = (big ? "MM" : "II") + number(42, 2) + number(8, 4) + directory(main);
  bytes.resize(200);
  bytes += directory(exif);
  bytes.resize(300);
  bytes += directory(gps);
  bytes.resize(400);
  return bytes + data;
}

inline std::string jpegWithExif(const std::string& jpeg, const std::string& exif) {
  return jpeg.substr(0, 2) + "\xff\xe1" + bigEndian(exif.size() + 8, 2) + std::string("Exif\0\0", 6) + exif +
         jpeg.substr(2);
}

inline std::string pngWithExif(const std::string& png, const std::string& exif) {
  const std::string chunk = "eXIf" + exif;
  const uint32_t crc = ~av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), ~0u, asBytes(chunk).data(), chunk.size());
  constexpr size_t kBehindHeader = 33;
  return png.substr(0, kBehindHeader) + bigEndian(exif.size(), 4) + chunk + bigEndian(crc, 4) +
         png.substr(kBehindHeader);
}

inline std::string webpWithExif(const std::string& webp, const std::string& exif) {
  const std::string all = webp.substr(8) + "EXIF" + littleEndian(exif.size(), 4) + exif;
  return webp.substr(0, 4) + littleEndian(all.size(), 4) + all;
}

// Uncompressed, one strip, 8 bits a sample; `photometric` 2: RGB, 5: CMYK.
inline std::string tiffOf(int width, int height, int photometric, const std::string& samples, int orientation,
                          int statedSize = 0) {
  const auto perPixel = samples.size() / static_cast<size_t>(width * height);
  const auto entry = [](int tag, int type, uint64_t count, uint64_t value) {
    return littleEndian(static_cast<uint64_t>(tag), 2) + littleEndian(static_cast<uint64_t>(type), 2) +
           littleEndian(count, 4) + littleEndian(value, 4);
  };
  const auto size = [](int edge) { return static_cast<uint64_t>(edge); };
  constexpr uint64_t kBits = 8 + 2 + 11 * 12 + 4, kSamples = kBits + 8;
  std::string bytes =
      std::string("II*\0\x08\0\0\0\x0b\0", 10) + entry(256, 3, 1, size(statedSize ? statedSize : width)) +
      entry(257, 3, 1, size(statedSize ? statedSize : height)) + entry(258, 3, perPixel, kBits) + entry(259, 3, 1, 1) +
      entry(262, 3, 1, size(photometric)) + entry(273, 4, 1, kSamples) + entry(274, 3, 1, size(orientation)) +
      entry(277, 3, 1, perPixel) + entry(278, 3, 1, size(height)) + entry(279, 4, 1, samples.size()) +
      entry(284, 3, 1, 1) + littleEndian(0, 4);
  for (int i = 0; i < 4; ++i) bytes += littleEndian(8, 2);
  return bytes + samples;
}

// A baseline JPEG of 8 x 8 pixels in one colour; `transform` is what Adobe's marker says (0: none, 1: YCbCr, 2: YCCK).
inline std::string flatJpeg(const std::vector<int>& components, int transform) {
  const size_t count = components.size();
  std::string file = "\xff\xd8\xff\xee" + bigEndian(14, 2) + "Adobe" + bigEndian(100, 2) + bigEndian(0, 4) +
                     bigEndian(static_cast<uint64_t>(transform), 1);
  file += "\xff\xdb" + bigEndian(67, 2) + '\0' + std::string(64, '\1');
  file += "\xff\xc0" + bigEndian(8 + 3 * count, 2) + '\x08' + bigEndian(8, 2) + bigEndian(8, 2) + bigEndian(count, 1);
  for (size_t i = 0; i < count; ++i) file += bigEndian(i + 1, 1) + '\x11' + '\0';
  // Twelve codes of 4 bits for the sizes of the DC values; one bit that ends a block.
  file += "\xff\xc4" + bigEndian(31, 2) + '\0' + std::string("\0\0\0\x0c", 4) + std::string(12, '\0');
  for (char c = 0; c < 12; ++c) file += c;
  file += "\xff\xc4" + bigEndian(20, 2) + '\x10' + '\1' + std::string(15, '\0') + '\0';
  file += "\xff\xda" + bigEndian(6 + 2 * count, 2) + bigEndian(count, 1);
  for (size_t i = 0; i < count; ++i) file += bigEndian(i + 1, 1) + '\0';
  file += std::string("\0\x3f\0", 3);
  std::string bits;
  for (const int value : components) {
    const int dc = 8 * (value - 128), magnitude = std::abs(dc);
    int size = 0;
    while (magnitude >> size) ++size;
    const auto put = [&](int number, int length) {
      for (int i = length - 1; i >= 0; --i) bits += (number >> i & 1) ? '1' : '0';
    };
    put(size, 4);
    put(dc < 0 ? dc + (1 << size) - 1 : dc, size);
    put(0, 1);
  }
  while (bits.size() % 8) bits += '1';
  for (size_t i = 0; i < bits.size(); i += 8) {
    const auto byte = static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
    file += byte;
    if (byte == '\xff') file += '\0';
  }
  return file + "\xff\xd9";
}

inline void checkHeif(const heif_error& error) {
  if (error.code != heif_error_Ok) throw std::runtime_error(error.message);
}

// `turned` is written as the file's own transformation, `exif` beside it.
inline std::string heifOf(const Image& image, heif_orientation turned, const std::string& exif) {
  heif_context* context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  checkHeif(heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder));
  heif_image* pixels = nullptr;
  checkHeif(heif_image_create(image.width, image.height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &pixels));
  checkHeif(heif_image_add_plane(pixels, heif_channel_interleaved, image.width, image.height, 8));
  int stride = 0;
  uint8_t* plane = heif_image_get_plane(pixels, heif_channel_interleaved, &stride);
  const auto rowBytes = static_cast<size_t>(image.width) * 3;
  for (int y = 0; y < image.height; ++y) {
    std::memcpy(plane + y * stride, image.rgb.data() + static_cast<size_t>(y) * rowBytes, rowBytes);
  }
  heif_encoding_options* options = heif_encoding_options_alloc();
  options->image_orientation = turned;
  heif_image_handle* handle = nullptr;
  checkHeif(heif_context_encode_image(context, pixels, encoder, options, &handle));
  if (!exif.empty()) {
    checkHeif(heif_context_add_exif_metadata(context, handle, exif.data(), static_cast<int>(exif.size())));
  }
  std::string file;
  heif_writer writer{1, [](heif_context*, const void* data, size_t size, void* to) {
                       static_cast<std::string*>(to)->assign(static_cast<const char*>(data), size);
                       return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                     }};
  checkHeif(heif_context_write(context, &writer, &file));
  heif_image_handle_release(handle);
  heif_encoding_options_free(options);
  heif_image_release(pixels);
  heif_encoder_release(encoder);
  heif_context_free(context);
  return file;
}

}  // namespace quor::test
