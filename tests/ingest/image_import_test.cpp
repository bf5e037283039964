#include <gmock/gmock.h>

#include <set>
#include <thread>

#include "base/text/text.h"
#include "ingest/frame_extractor.h"
#include "ingest/photo/exif.h"
#include "ingest/photo/jpeg_file.h"
#include "picture_files.h"
#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using namespace test;
using testing::ElementsAre;

class ImageImport : public testing::Test {
 protected:
  ExtractionResult import(const std::filesystem::path& path) {
    fraction_ = 0;
    FrameExtractor extractor(log_, std::nullopt, cancelled_);
    return extractor.extract(path, InputKind::Images, settings_, frames_, [&](const std::string& text, float fraction) {
      EXPECT_EQ(text, "Importing images");
      EXPECT_EQ(std::this_thread::get_id(), thread_);
      EXPECT_GE(fraction, fraction_);
      fraction_ = fraction;
    });
  }
  std::string failure(const std::filesystem::path& path) {
    try {
      import(path);
    } catch (const IngestError& e) {
      return e.what();
    }
    return "no failure";
  }
  std::vector<std::string> logged() {
    std::vector<std::string> texts;
    for (const LogEntry& entry : log_.entriesAfter(0)) texts.push_back(entry.text);
    return texts;
  }
  void addJpeg(const std::string& name, const Image& image, const std::string& exif = {}) {
    const std::string jpeg = encoded(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ420P, image);
    writeFile(media_ / fromUtf8(name), exif.empty() ? jpeg : jpegWithExif(jpeg, exif));
  }
  PhotoInfo frameInfo(const std::string& name) {
    const std::string bytes = readFile(frames_ / name);
    return parseExif(readJpegSegments(asBytes(bytes)).exif);
  }

  const TempFolder folder_;
  const std::filesystem::path media_ = folder_ / "media", frames_ = folder_ / "frames";
  LogStore log_{1000};
  IngestSettings settings_;
  std::function<bool()> cancelled_ = [] { return false; };
  const std::thread::id thread_ = std::this_thread::get_id();
  float fraction_ = 0;
};

Image plain(int width, int height, uint8_t grey) {
  return {width, height, std::vector<uint8_t>(static_cast<size_t>(width * height * 3), grey)};
}

TEST_F(ImageImport, NumbersWithoutGapsInSortedOrder) {
  // Large and small ones, so that the workers finish in another order.
  for (int i = 0; i < 30; ++i) {
    const int size = i % 4 ? 16 : 1200;
    addJpeg(formatText("%02d.JPG", i), plain(size, size, static_cast<uint8_t>(i * 8)));
  }
  writeFile(media_ / "07_.jpg", "");
  writeFile(media_ / fromUtf8(kWindows ? "unterordner/ü_.png" : "unterordner/ü\n.png"), "no picture");
  addJpeg("sub/00.JPG", plain(16, 16, 250));
  settings_.maxDimension = 16;
  const ExtractionResult result = import(media_);
  ASSERT_EQ(result.frames.size(), 31u);
  EXPECT_EQ(result.unreadable, 2u);
  for (size_t i = 0; i < 31; ++i) {
    EXPECT_EQ(toUtf8(result.frames[i].filename()), formatText("f%05zu.jpg", i + 1));
    EXPECT_NEAR(readImage(result.frames[i]).rgb[0], i < 30 ? static_cast<int>(i) * 8 : 250, 4);
  }
  ASSERT_EQ(result.groups.size(), 1u);
  EXPECT_EQ(result.groups[0].name, "photos");
  EXPECT_EQ(result.groups[0].images.size(), 31u);
  EXPECT_EQ(fraction_, 1);
  EXPECT_THAT(logged(), ElementsAre("Skipped unreadable image: 07_.jpg (the file is empty)",
                                    testing::ContainsRegex("^Skipped unreadable image: unterordner.ü..png \\("),
                                    "Imported 31 images"));
}

TEST_F(ImageImport, ShrinksAndTurnsAndKeepsTheCamera) {
  const Image upright = quarters(320, 192);
  addJpeg("a.jpg", stored(upright, 6), exifOf({6, "Maker", "M1", 4.25, 26, 0, 0, {1, 30, 0, 2, 0, 36, 5}}, true));
  writeFile(media_ / "b.png", encoded(AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA, quarters(64, 32)));
  const std::string exif = exifOf({6, "", "", 0, 28}, false);
  if (kWindows) {  // whose libraries read HEIC, and cannot write it
    addJpeg("c.jpg", stored(upright, 6), exif);
  } else {
    writeFile(media_ / "c.heic", heifOf(upright, heif_orientation_normal, exif));
  }
  settings_.maxDimension = 160;
  const ExtractionResult result = import(media_);
  ASSERT_EQ(result.frames.size(), 3u);
  EXPECT_LT(meanDifference(readImage(result.frames[0]), quarters(160, 96)), 4);
  EXPECT_LT(meanDifference(readImage(result.frames[1]), quarters(64, 32)), 4);  // never enlarged
  EXPECT_LT(meanDifference(readImage(result.frames[2]), quarters(160, 96)), 4);
  const PhotoInfo info = frameInfo("f00001.jpg");
  EXPECT_EQ(info.orientation, 1);
  EXPECT_EQ(info.make, "Maker");
  EXPECT_EQ(info.model, "M1");
  EXPECT_EQ(info.focalLength, 4.25);
  EXPECT_EQ(info.focal35mm, 26);
  EXPECT_EQ(frameInfo("f00003.jpg").focal35mm, 28);
  EXPECT_NEAR(info.position.value_or(GeoPosition()).latitude, -1.5, 1e-9);
  ASSERT_EQ(result.positions.size(), 1u);
  EXPECT_NEAR(result.positions.at("f00001.jpg").longitude, -2.01, 1e-9);
}

TEST_F(ImageImport, JpegsThatFitLoseNothing) {
  const std::string exif = exifOf({1, "Maker", "M1", 4.25, 26}, false);
  const std::string whole = jpegWithExif(encoded(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ422P, quarters(64, 48)), exif);
  writeFile(media_ / "a.png", whole + "a film that the camera appended");  // whatever its name says
  writeFile(media_ / "grey.jpg", flatJpeg({99}, 0));
  writeFile(media_ / "rgb.jpg", flatJpeg({200, 100, 50}, 0));
  settings_.maxDimension = 64;
  import(media_);
  EXPECT_EQ(readFile(frames_ / "f00001.jpg"), whole);
  EXPECT_EQ(readFile(frames_ / "f00002.jpg"), flatJpeg({99}, 0));
  EXPECT_NE(readFile(frames_ / "f00003.jpg"), flatJpeg({200, 100, 50}, 0));
  EXPECT_NEAR(readImage(frames_ / "f00003.jpg").rgb[0], 200, 4);
}

TEST_F(ImageImport, OneGroupForEachCamera) {
  const Image wide = plain(64, 48, 90), tall = plain(48, 64, 90);
  addJpeg("a.jpg", wide);
  addJpeg("b.jpg", wide, exifOf({1, "Maker", "M1", 4.25, 26}, false));
  addJpeg("c.jpg", wide, exifOf({1, "Maker", "M1", 4.251, 26}, true));  // rounded otherwise
  addJpeg("d.jpg", wide, exifOf({6, "Maker", "M1", 4.25, 26}, true));   // upright
  addJpeg("e.jpg", wide, exifOf({1, "Maker", "M1", 9, 77}, true));
  addJpeg("f.jpg", wide, exifOf({1, "Other", "M1", 4.25, 26}, true));
  addJpeg("g.jpg", wide);
  addJpeg("h.jpg", tall);
  const std::vector<CameraGroup> groups = import(media_).groups;
  std::vector<std::vector<std::string>> images;
  std::set<std::string> signatures;
  for (const CameraGroup& group : groups) {
    images.push_back(group.images);
    signatures.insert(group.signature);
    EXPECT_TRUE(group.cameraModel.empty() && group.cameraParams.empty() && !group.usesFisheyeMask);
  }
  EXPECT_THAT(images, ElementsAre(ElementsAre("f00001.jpg", "f00002.jpg", "f00003.jpg", "f00007.jpg"),
                                  ElementsAre("f00004.jpg", "f00008.jpg"), ElementsAre("f00005.jpg"),
                                  ElementsAre("f00006.jpg")));
  EXPECT_EQ(groups[0].name, "photos01");
  EXPECT_EQ(groups[3].name, "photos04");
  EXPECT_EQ(signatures.size(), 4u);
}

TEST_F(ImageImport, SaysWhatFailed) {
  const auto none = [](const std::filesystem::path& path) {
    return "No images found in " + toUtf8(path) + ". Supported: jpg, jpeg, png, bmp, tga, tif, webp, heic";
  };
  EXPECT_EQ(failure(folder_ / "missing"), none(folder_ / "missing"));
  writeFile(media_ / "a.jpg", "");
  writeFile(media_ / "b.tif", "II*");
  EXPECT_EQ(failure(media_), none(media_));
  EXPECT_EQ(logged().size(), 2u);

  addJpeg("c.jpg", plain(16, 16, 9));
  EXPECT_EQ(import(media_ / "c.jpg").frames.size(), 1u);
  if (test::kWindows) return;
  // A full disk while the picture is written.
  std::filesystem::remove(frames_ / "f00001.jpg");
  std::filesystem::create_symlink("/dev/full", frames_ / "f00001.jpg.partial");
  EXPECT_EQ(failure(media_), "Writing " + toUtf8(frames_ / "f00001.jpg") + " failed (disk full?)");
}

TEST_F(ImageImport, CancelledKeepsWhatIsWritten) {
  for (int i = 0; i < 20; ++i) addJpeg(formatText("%02d.jpg", i), plain(16, 16, 9));
  cancelled_ = [this] { return std::filesystem::exists(frames_ / "f00003.jpg"); };
  EXPECT_EQ(failure(media_), "Cancelled");
  EXPECT_TRUE(std::filesystem::exists(frames_ / "f00001.jpg"));
  EXPECT_FALSE(std::filesystem::exists(frames_ / "f00005.jpg"));
}

}  // namespace
}  // namespace quor
