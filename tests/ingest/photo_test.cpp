#include "ingest/photo/photo.h"

#include <gmock/gmock.h>

#include <map>

#include "base/split_mix64.h"
#include "ingest/photo/exif.h"
#include "picture_files.h"
#include "support/driver_leaks.h"
#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using namespace test;
using testing::HasSubstr;
using testing::StartsWith;

std::array<int, 3> pixel(const Image& image, int x, int y) {
  const auto at = static_cast<size_t>((y * image.width + x) * 3);
  return {image.rgb[at], image.rgb[at + 1], image.rgb[at + 2]};
}

// Sizes that fill whole blocks, so that colours do not run.
std::map<std::string, std::string> everyFormat(const Image& image, int orientation) {
  const std::string exif =
      exifOf({.orientation = orientation, .make = "Maker", .model = "M1", .gps = {1, 30, 0, 2, 0, 36, 5}},
             orientation % 2 == 0);
  const Image turned = stored(image, orientation);
  std::map<std::string, std::string> files;
  files["a.jpg"] = jpegWithExif(encoded(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ420P, turned), exif);
  files["a.png"] = pngWithExif(encoded(AV_CODEC_ID_PNG, AV_PIX_FMT_RGB24, turned), exif);
  files["a.tif"] = tiffOf(turned.width, turned.height, 2, {turned.rgb.begin(), turned.rgb.end()}, orientation);
  if (kWindows) return files;  // whose libraries read the others, and cannot write them
  files["a.webp"] = webpWithExif(encoded(AV_CODEC_ID_WEBP, AV_PIX_FMT_YUV420P, turned), exif);
  files["a.heic"] = heifOf(turned, static_cast<heif_orientation>(orientation), exif);
  return files;
}

TEST(Photo, EveryOrientationIsAppliedOnceInEveryFormat) {
  const TempFolder folder;
  const Image upright = quarters(96, 64);
  for (int orientation = 1; orientation <= 8; ++orientation) {
    for (const auto& [name, bytes] : everyFormat(upright, orientation)) {
      const Photo photo = readPhoto(writeFile(folder / name, bytes));
      EXPECT_LT(meanDifference(photo.image, upright), 4) << name << ", orientation " << orientation;
      EXPECT_EQ(photo.info.model, name == "a.tif" ? "" : "M1") << name;
      EXPECT_NEAR(photo.info.position.value_or(GeoPosition()).longitude, name == "a.tif" ? 0 : -2.01, 1e-9) << name;
    }
  }
}

TEST(Photo, EveryKindOfPixelBecomesRgb) {
  const TempFolder folder;
  const Image image = quarters(64, 48);
  for (const auto& [id, format] : {std::pair{AV_CODEC_ID_PNG, AV_PIX_FMT_RGB48BE},
                                   {AV_CODEC_ID_TIFF, AV_PIX_FMT_RGB48LE},
                                   {AV_CODEC_ID_BMP, AV_PIX_FMT_RGB565LE},
                                   {AV_CODEC_ID_TARGA, AV_PIX_FMT_BGRA},
                                   {AV_CODEC_ID_WEBP, AV_PIX_FMT_RGB32},
                                   {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ422P}}) {
    if (kWindows && id == AV_CODEC_ID_WEBP) continue;
    const Photo photo = readPhoto(writeFile(folder / "a.tif", encoded(id, format, image)));
    EXPECT_LT(meanDifference(photo.image, image), 5) << avcodec_get_name(id) << " " << av_get_pix_fmt_name(format);
  }
  for (const auto& [id, format] : {std::pair{AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY8},
                                   {AV_CODEC_ID_PNG, AV_PIX_FMT_YA16BE},
                                   {AV_CODEC_ID_TARGA, AV_PIX_FMT_GRAY8}}) {
    const Photo photo = readPhoto(writeFile(folder / "a.png", encoded(id, format, image)));
    const auto [r, g, b] = pixel(photo.image, 60, 40);
    EXPECT_TRUE(r == g && g == b && std::abs(r - 128) < 3) << av_get_pix_fmt_name(format) << " " << r;
  }
}

TEST(Photo, PrintersColoursAndAdobesMarkers) {
  const TempFolder folder;
  const auto colourOf = [&](const std::string& bytes) {
    const Photo photo = readPhoto(writeFile(folder / "a.jpg", bytes));
    return pixel(photo.image, photo.image.width / 2, photo.image.height / 2);
  };
  const auto near = [](int r, int g, int b) {
    return testing::ElementsAre(testing::AllOf(testing::Gt(r - 6), testing::Lt(r + 6)),
                                testing::AllOf(testing::Gt(g - 6), testing::Lt(g + 6)),
                                testing::AllOf(testing::Gt(b - 6), testing::Lt(b + 6)));
  };
  EXPECT_THAT(colourOf(flatJpeg({200, 100, 50}, 0)), near(200, 100, 50));
  EXPECT_THAT(colourOf(flatJpeg({128, 128, 228}, 1)), near(255, 57, 128));
  // Adobe stores ink inverted: 255 is none of it.
  EXPECT_THAT(colourOf(flatJpeg({200, 100, 50, 255}, 0)), near(200, 100, 50));
  EXPECT_THAT(colourOf(flatJpeg({200, 100, 50, 128}, 0)), near(100, 50, 25));
  EXPECT_THAT(colourOf(flatJpeg({128, 128, 228, 255}, 2)), near(0, 198, 127));
  std::string ink;
  for (int i = 0; i < 16 * 16; ++i) ink += std::string("\x37\x9b\xcd\0", 4);
  EXPECT_THAT(colourOf(tiffOf(16, 16, 5, ink, 1)), near(200, 100, 50));
}

TEST(Photo, TransparentPartsLieOnBlack) {
  const TempFolder folder;
  const Image image = quarters(64, 48);
  const auto halfClear = [](AVFrame& frame) {  // the left half clear, the right half opaque
    for (int y = 0; y < frame.height; ++y) {
      for (int x = 0; x < frame.width; ++x) frame.data[0][y * frame.linesize[0] + 4 * x + 3] = x < 32 ? 0 : 255;
    }
  };
  for (const auto& [id, format] : {std::pair{AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA}, {AV_CODEC_ID_WEBP, AV_PIX_FMT_RGB32}}) {
    if (kWindows && id == AV_CODEC_ID_WEBP) continue;
    const Photo photo = readPhoto(writeFile(folder / "a.png", encoded(id, format, image, halfClear)));
    EXPECT_THAT(pixel(photo.image, 5, 5), testing::Each(testing::Lt(3))) << avcodec_get_name(id);
    EXPECT_NEAR(pixel(photo.image, 60, 5)[1], 180, 5) << avcodec_get_name(id);
  }

  const FramePtr palette = blankFrame(16, 16, AV_PIX_FMT_PAL8);
  auto* colours = reinterpret_cast<uint32_t*>(palette->data[1]);
  std::fill(colours, colours + 256, 0xff000000u);
  colours[1] = 0xffc86432;
  colours[2] = 0x80c86432;
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) palette->data[0][y * palette->linesize[0] + x] = x < 8 ? 1 : 2;
  }
  const Photo photo = readPhoto(writeFile(folder / "a.png", encoded(AV_CODEC_ID_PNG, *palette)));
  EXPECT_THAT(pixel(photo.image, 2, 8), testing::ElementsAre(200, 100, 50));
  EXPECT_THAT(pixel(photo.image, 12, 8), testing::ElementsAre(100, 50, 25));
}

TEST(Photo, DamageIsRefusedInEveryFormat) {
  const TempFolder folder;
  Image image = quarters(160, 120);
  SplitMix64 random(7);
  for (uint8_t& value : image.rgb) value = static_cast<uint8_t>(value / 2 + random.next() % 100);
  std::map<std::string, std::string> files = everyFormat(image, 1);
  files["a.bmp"] = encoded(AV_CODEC_ID_BMP, AV_PIX_FMT_BGR24, image);
  files["a.tga"] = encoded(AV_CODEC_ID_TARGA, AV_PIX_FMT_BGR24, image);
  files["packed.tif"] = encoded(AV_CODEC_ID_TIFF, AV_PIX_FMT_RGB24, image);
  for (const auto& [name, bytes] : files) {
    for (const double part : {0.001, 0.1, 0.5, 0.9, 0.99}) {
      const auto size = static_cast<size_t>(static_cast<double>(bytes.size()) * part);
      const auto path = writeFile(folder / name, bytes.substr(0, size));
      EXPECT_THAT(thrownText([&] { (void)readPhoto(path); }), StartsWith("Cannot read image " + toUtf8(path) + ": "))
          << part;
    }
  }
  // Damage in the middle of a JPEG and of a PNG: the decoders see codes and checksums that cannot be.
  for (const char* name : {"a.jpg", "a.png"}) {
    std::string bytes = files[name];
    for (size_t i = 0; i < 400; ++i) bytes[bytes.size() / 2 + i] = static_cast<char>(random.next());
    const auto path = writeFile(folder / name, bytes);
    EXPECT_THAT(thrownText([&] { (void)readPhoto(path); }), StartsWith("Cannot read image ")) << name;
  }
}

TEST(Photo, SaysWhatIsNoPhotograph) {
  const TempFolder folder;
  const auto reason = [](const std::filesystem::path& path) { return thrownText([&] { (void)readPhoto(path); }); };
  EXPECT_THAT(reason(writeFile(folder / "a.jpg", "")), HasSubstr("the file is empty"));
  EXPECT_THAT(reason(writeFile(folder / "b.jpg", "This is no picture at all.")), HasSubstr("it is not an image file"));
  std::filesystem::create_directories(folder / "c.jpg");
  EXPECT_THAT(reason(folder / "c.jpg"), HasSubstr("it is not a file"));
  EXPECT_THAT(reason(folder / "d.jpg"), HasSubstr("No such file"));

  // Headers that promise more than any memory holds.
  std::string png = encoded(AV_CODEC_ID_PNG, AV_PIX_FMT_RGB24, quarters(16, 16));
  std::string header = "IHDR" + bigEndian(30000, 4) + bigEndian(30000, 4) + png.substr(24, 5);
  const uint32_t crc = ~av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), ~0u, asBytes(header).data(), header.size());
  png.replace(12, 21, header + bigEndian(crc, 4));
  std::string jpeg = flatJpeg({1, 2, 3}, 1);
  jpeg.replace(jpeg.find("\xff\xc0") + 5, 4, "\xff\x10\xff\x10");
  std::string bmp = encoded(AV_CODEC_ID_BMP, AV_PIX_FMT_BGR24, quarters(16, 16));
  bmp.replace(18, 8, littleEndian(30000, 4) + littleEndian(30000, 4));
  std::string tga = encoded(AV_CODEC_ID_TARGA, AV_PIX_FMT_BGR24, quarters(16, 16));
  tga.replace(12, 4, std::string("\xff\xff\xff\xff", 4));
  const std::string tiff = tiffOf(16, 16, 2, std::string(768, 'x'), 1, 60000);
  for (const auto& [bomb, text] : {std::pair{png, "30000 x 30000 pixels are too many"},
                                   {jpeg, "65296 x 65296 pixels are too many"},
                                   {bmp, "damaged or cut off"},
                                   {tga, "size in pixels"},
                                   {tiff, "size in pixels"}}) {
    EXPECT_THAT(reason(writeFile(folder / "huge.png", bomb)), HasSubstr(text));
  }
}

TEST(Photo, ReadImageLearnsTheOtherFormats) {
  const TempFolder folder;
  const Image image = quarters(64, 48);
  registerImageDecoders();
  // As it is stored: the orientation stays for others.
  const auto tiff = writeFile(folder / "a.tif", tiffOf(64, 48, 2, {image.rgb.begin(), image.rgb.end()}, 6));
  EXPECT_EQ(readImage(tiff).rgb, image.rgb);
  EXPECT_EQ(readImageSize(tiff).width, 64);
  const auto lying = writeFile(folder / "a.jpg", encoded(AV_CODEC_ID_TIFF, AV_PIX_FMT_RGB24, image));
  EXPECT_LT(meanDifference(readImage(lying), image), 4);
  const auto text = writeFile(folder / "b.heic", "no picture");
  EXPECT_THAT(thrownText([&] { (void)readImage(text); }), StartsWith("Cannot read image " + toUtf8(text) + ": "));
  registerImageDecoder({});
}

TEST(Exif, BothByteOrdersSayTheSame) {
  for (const bool big : {false, true}) {
    const PhotoInfo info = parseExif(asBytes(exifOf(
        {.orientation = 6, .make = "Maker & Sons ", .model = "X\xe9\n", .focalLength = 4.25, .focal35mm = 26}, big)));
    EXPECT_EQ(info.orientation, 6);
    EXPECT_EQ(info.make, "Maker & Sons");
    EXPECT_EQ(info.model, "X??");
    EXPECT_EQ(info.focalLength, 4.25);
    EXPECT_EQ(info.focal35mm, 26);
    // 6000 pixels at 4233.333 an inch are a sensor of 36 mm.
    const PhotoInfo sensor = parseExif(asBytes(exifOf({9, "", "", 50, 0, 4233.333, 6000}, big)));
    EXPECT_NEAR(sensor.focal35mm, 50, 0.01);
    EXPECT_EQ(sensor.orientation, 1);
  }
}

TEST(Exif, PositionsAreReadInBothByteOrdersAndSurviveWriting) {
  for (const bool big : {false, true}) {
    const PhotoInfo info = parseExif(asBytes(exifOf({.gps = {47, 12, 34.5678, 8, 30, 0.0036, 12.3456}}, big)));
    ASSERT_TRUE(info.position);
    EXPECT_NEAR(info.position->latitude, -(47 + 12 / 60. + 34.5678 / 3600), 1e-12);
    EXPECT_NEAR(info.position->longitude, -8.500001, 1e-12);
    EXPECT_NEAR(info.position->altitude, -12.3456, 1e-9);
    // Decimal minutes, as some write them, and nothing but decimal degrees.
    EXPECT_NEAR(parseExif(asBytes(exifOf({.gps = {47, 12.5, 0, 8, 0, 0, 1}}, big))).position->latitude, -47.208333,
                1e-6);
    EXPECT_NEAR(parseExif(asBytes(exifOf({.gps = {47.25, 0, 0, 8, 0, 0, 1}}, big))).position->latitude, -47.25, 1e-9);
    // A receiver without a fix, one without an altitude, and no place on the Earth.
    for (const std::vector<double>& gps :
         {std::vector<double>{0, 0, 0, 0, 0, 0, 0}, {47, 0, 0, 8, 0, 0}, {91, 0, 0, 8, 0, 0, 1}}) {
      EXPECT_FALSE(parseExif(asBytes(exifOf({.gps = gps}, big))).position);
    }
  }
  for (const GeoPosition& place : {GeoPosition{47.123456789, -0.000001, 432.125}, {-33.9999999999, 151.2, -3.5}}) {
    PhotoInfo info;
    info.make = "Maker";
    info.focal35mm = 26;
    info.position = place;
    const PhotoInfo read = parseExif(writeExif(info));
    ASSERT_TRUE(read.position);
    EXPECT_NEAR(read.position->latitude, place.latitude, 1e-10);
    EXPECT_NEAR(read.position->longitude, place.longitude, 1e-10);
    EXPECT_NEAR(read.position->altitude, place.altitude, 1e-3);
    EXPECT_EQ(read.make, "Maker");
    EXPECT_EQ(read.focal35mm, 26);
  }
}

// Under the address sanitizer a read outside of the block fails the test.
TEST(Exif, NoBytesMakeItReadOutside) {
  const std::string whole = exifOf({6, "Maker", "Model", 4.25, 26, 4233, 6000, {47, 12, 34, 8, 30, 0, 12}}, true);
  for (size_t size = 0; size <= whole.size(); ++size) {
    const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_LE(parseExif(cut).orientation, 8);
  }
  SplitMix64 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::vector<uint8_t> bytes(whole.begin(), whole.end());
    for (uint64_t i = 0; i < 1 + random.next() % 8; ++i) {
      bytes[8 + random.next() % (bytes.size() - 8)] = static_cast<uint8_t>(random.next() % 3 ? random.next() : 0xff);
    }
    const PhotoInfo info = parseExif(bytes);
    EXPECT_TRUE(info.orientation >= 1 && info.orientation <= 8 && info.focalLength >= 0 && info.focal35mm < 10000);
    (void)findPngExif(bytes);
    (void)findWebpExif(bytes);
  }
}

}  // namespace
}  // namespace quor
