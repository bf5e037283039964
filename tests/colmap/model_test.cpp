#include "colmap/model.h"

#include <gmock/gmock.h>

#include <random>

#include "colmap/rewrite_model.h"
#include "support/temp_folder.h"

namespace quor::gs::colmap {
namespace {

using quor::test::TempFolder;
using quor::test::thrownText;
using quor::test::writeFile;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::StartsWith;

template <typename... T>
std::string bytes(const T&... values) {
  std::string out;
  (out.append(reinterpret_cast<const char*>(&values), sizeof values), ...);
  return out;
}

std::string binaryCamera(uint32_t id, int32_t model, const std::vector<double>& params) {
  std::string out = bytes(id, model, uint64_t{640}, uint64_t{480});
  for (const double p : params) out += bytes(p);
  return out;
}

std::string binaryImage(uint32_t id, uint32_t camera, const std::string& name, uint64_t observations) {
  return bytes(id, 0.5, -0.5, 0.25, 0.125, 1.0, 2.0, 3.0, camera) + name + '\0' + bytes(observations) +
         std::string(observations * 24, 'o');
}

std::string binaryPoint(uint64_t id, double x, uint64_t track) {
  return bytes(id, x, x + 1, x + 2, uint8_t{10}, uint8_t{20}, uint8_t{255}, id == 1 ? -1.0 : 0.5, track) +
         std::string(track * 8, 't');
}

const std::string kCameras = bytes(uint64_t{2}) + binaryCamera(7, 1, {500, 510, 320, 240}) +
                             binaryCamera(3, 4, {500, 510, 320, 240, .1, .2, .3, .4});
const std::string kImages = bytes(uint64_t{3}) + binaryImage(1, 7, "left cam/f00002.jpg", 3) +
                            binaryImage(2, 3, "left cam/f00001.jpg", 0) + binaryImage(3, 3, "left cam/f00001", 1);
const std::string kPoints = bytes(uint64_t{2}) + binaryPoint(9, -1.5, 2) + binaryPoint(1, 4, 0);

const char* const kCamerasText =
    "# Camera list\r\n\r\n7 PINHOLE 640 480 500 510 320 240\r\n3 OPENCV 640 480 500 510 320 240 0.1 2e-1 .3 +0.4\r\n";
const char* const kImagesText =
    "\n# Image list\n\n"
    "1 0.5 -0.5 0.25 0.125 1 2 3 7 \t left cam/f00002.jpg\n1 2 -1 3 4 5\n"
    "2 0.5 -0.5 0.25 0.125 1 2 3 3 left cam/f00001.jpg\n\n"
    "broken 0.5 -0.5\n1 2 -1\n"
    "3 0.5 -0.5 0.25 0.125 1 2 3 3 left cam/f00001";
const char* const kPointsText =
    "# Points\n9 -1.5 -0.5 0.5 10 20 255 0.5 1 2 3 4\n8 1 2 3 4 5\n\n1 4 5 6 10 20 511 -1\n";

void writeBinary(const std::filesystem::path& dir, const std::string& cameras, const std::string& images,
                 const std::string& points) {
  writeFile(dir / "cameras.bin", cameras);
  writeFile(dir / "images.bin", images);
  writeFile(dir / "points3D.bin", points);
}

void expectTheModel(const Model& model) {
  ASSERT_EQ(model.cameras.size(), 2u);
  const Camera& camera = model.cameras.at(3);
  EXPECT_EQ(std::tuple(camera.id, camera.model, camera.width, camera.height), std::tuple(3u, 4, 640u, 480u));
  EXPECT_THAT(camera.params, ElementsAre(500, 510, 320, 240, .1, .2, .3, .4));

  ASSERT_EQ(model.images.size(), 3u);
  EXPECT_EQ(model.images[0].name, "left cam/f00001");
  EXPECT_EQ(model.images[1].name, "left cam/f00001.jpg");
  const Image& image = model.images[2];
  EXPECT_EQ(std::tuple(image.name, image.id, image.cameraId), std::tuple("left cam/f00002.jpg", 1u, 7u));
  EXPECT_THAT(image.qvec, ElementsAre(0.5, -0.5, 0.25, 0.125));
  EXPECT_THAT(image.tvec, ElementsAre(1, 2, 3));

  EXPECT_THAT(model.points.positions, ElementsAre(-1.5f, -0.5f, 0.5f, 4, 5, 6));
  EXPECT_THAT(model.points.colors, ElementsAre(10, 20, 255, 10, 20, 255));
  EXPECT_EQ(model.points.meanError, 0.5);
}

TEST(ColmapModel, BothEncodingsGiveTheSameModel) {
  const TempFolder folder;
  writeBinary(folder / "binary", kCameras, kImages, kPoints);
  expectTheModel(loadModel(folder / "binary", true));
  writeFile(folder / "text/cameras.txt", kCamerasText);
  writeFile(folder / "text/images.txt", kImagesText);
  writeFile(folder / "text/points3D.txt", kPointsText);
  expectTheModel(loadModel(folder / "text", true));

  for (const char* name : {"binary", "text"}) {
    EXPECT_EQ(loadModel(folder / name, false).points.count(), 0u);
    std::filesystem::remove(folder / name / "points3D.bin");
    std::filesystem::remove(folder / name / "points3D.txt");
    EXPECT_EQ(loadModel(folder / name, true).points.count(), 0u);
  }
}

TEST(ColmapModel, IsFoundInTheOrderOfTheSearchAndNeverInMixedEncodings) {
  const TempFolder folder;
  writeFile(folder / "cameras.bin", kCameras);
  writeFile(folder / "images.txt", kImagesText);
  EXPECT_TRUE(findModelDir(folder.path()).empty());
  EXPECT_EQ(thrownText([&] { (void)loadModel(folder.path(), true); }),
            "No COLMAP model (cameras + images) in " + toUtf8(folder.path()));
  for (const char* dir : {"colmap/sparse/0", "", "sparse", "sparse/0"}) {
    writeBinary(folder / dir, kCameras, kImages, kPoints);
    EXPECT_TRUE(isSamePlace(findModelDir(folder.path()), folder / dir)) << dir;
  }
  EXPECT_EQ(imagesDir(folder.path()), folder.path());
  std::filesystem::create_directories(folder / "images");
  EXPECT_EQ(imagesDir(folder.path()), folder / "images");
}

// More skipped bytes than the reader buffers, in one record and in many small ones.
TEST(ColmapModel, SkipsObservationsAndTracksAcrossItsBuffer) {
  const TempFolder folder;
  std::string images =
      bytes(uint64_t{3}) + binaryImage(1, 7, "c", 100000) + binaryImage(2, 7, "b", 43687) + binaryImage(3, 7, "a", 1);
  std::string points = bytes(uint64_t{30000});
  for (uint64_t i = 0; i < 30000; ++i) points += binaryPoint(i, static_cast<double>(i), i % 11);
  writeBinary(folder.path(), kCameras, images, points);
  const Model model = loadModel(folder.path(), true);
  EXPECT_EQ(model.images.at(0).id, 3u);
  ASSERT_EQ(model.points.count(), 30000u);
  for (size_t i = 0; i < 30000; ++i) ASSERT_EQ(model.points.positions[3 * i], static_cast<float>(i));
}

TEST(ColmapModel, TruncationAtEveryByteIsNoticed) {
  const TempFolder folder;
  writeBinary(folder.path(), kCameras, kImages, kPoints);
  for (const auto& [name, whole] :
       {std::pair{"cameras.bin", kCameras}, {"images.bin", kImages}, {"points3D.bin", kPoints}}) {
    for (size_t length = 0; length < whole.size(); ++length) {
      writeFile(folder / name, whole.substr(0, length));
      ASSERT_EQ(thrownText([&] { (void)loadModel(folder.path(), true); }),
                "Truncated COLMAP file: " + toUtf8(folder / name))
          << length;
    }
    writeFile(folder / name, whole);
  }
  expectTheModel(loadModel(folder.path(), true));
}

TEST(ColmapModel, RewritingChangesPosesAndPointsAndNoOtherByte) {
  const TempFolder folder;
  writeBinary(folder.path(), kCameras, kImages, kPoints);
  writeFile(folder / "frames.bin", "the poses again");
  const auto rewrite = [&](double add) {
    rewriteBinaryModel(
        folder.path(),
        [&](Image& image) {
          image.qvec[3] += add;
          image.tvec[0] += add;
        },
        [&](std::array<double, 3>& point) { point[2] += add; });
  };
  rewrite(1);
  const Model moved = loadModel(folder.path(), true);
  for (const Image& image : moved.images) {
    EXPECT_THAT(image.qvec, ElementsAre(0.5, -0.5, 0.25, 1.125));
    EXPECT_THAT(image.tvec, ElementsAre(2, 2, 3));
  }
  EXPECT_THAT(moved.points.positions, ElementsAre(-1.5f, -0.5f, 1.5f, 4, 5, 7));
  EXPECT_FALSE(std::filesystem::exists(folder / "frames.bin"));
  rewrite(-1);
  EXPECT_EQ(test::readFile(folder / "images.bin"), kImages);
  EXPECT_EQ(test::readFile(folder / "points3D.bin"), kPoints);

  for (const auto& [name, whole] : {std::pair{"points3D.bin", kPoints}, {"images.bin", kImages}}) {
    for (size_t length = 0; length < whole.size(); ++length) {
      writeFile(folder / name, whole.substr(0, length));
      ASSERT_EQ(thrownText([&] { rewrite(0); }), "Truncated COLMAP file: " + toUtf8(folder / name)) << length;
      ASSERT_EQ(test::readFile(folder / name), whole.substr(0, length));
    }
  }
}

TEST(ColmapModel, DamagedFilesAreRefusedWithoutGreed) {
  const TempFolder folder;
  const auto load = [&] { (void)loadModel(folder.path(), true); };
  writeBinary(folder.path(), bytes(uint64_t{1}, uint32_t{1}, int32_t{11}), kImages, kPoints);
  EXPECT_EQ(thrownText(load), "Unknown COLMAP camera model id 11");

  const std::string huge = bytes(UINT64_MAX);
  writeBinary(folder.path(), kCameras, huge + kImages.substr(8), kPoints);
  EXPECT_THAT(thrownText(load), StartsWith("Truncated COLMAP file: "));
  // A count of observations whose bytes would wrap round to a few.
  const std::string image = binaryImage(1, 7, "a", 0);
  writeFile(folder / "images.bin", bytes(uint64_t{1}) + image.substr(0, image.size() - 8) + bytes(uint64_t{1} << 61));
  EXPECT_THAT(thrownText(load), StartsWith("Truncated COLMAP file: "));

  writeFile(folder / "text/images.txt", kImagesText);
  writeFile(folder / "text/cameras.txt", "1 pinhole 640 480 500 510 320 240\n");
  EXPECT_EQ(thrownText([&] { (void)loadModel(folder / "text", false); }), "Unknown COLMAP camera model pinhole");

  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string noise(random() % 400, '\0');
    for (char& c : noise) c = static_cast<char>(random() >> (round % 3 ? 24 : 30));
    std::array<std::string, 3> files = {kCameras, kImages, kPoints};
    files[static_cast<size_t>(round) % 3] = noise;
    writeBinary(folder.path(), files[0], files[1], files[2]);
    EXPECT_THAT(thrownText(load), AnyOf("no exception", StartsWith("Truncated COLMAP file: "),
                                        StartsWith("Unknown COLMAP camera model id ")));
  }

  std::filesystem::remove(folder / "images.bin");
  std::filesystem::create_directories(folder / "images.bin");
  writeFile(folder / "cameras.bin", kCameras);
  EXPECT_EQ(thrownText(load), "Cannot open " + toUtf8(folder / "images.bin"));
}

TEST(ColmapModel, CamerasGiveTheirIntrinsicsAndDistortion) {
  Camera camera;
  for (int i = 1; i <= 12; ++i) camera.params.push_back(i);
  const auto numbers = [&](int32_t model) {
    camera.model = model;
    double n[8] = {};
    EXPECT_TRUE(intrinsics(camera, n[0], n[1], n[2], n[3]));
    distortion(camera, n[4], n[5], n[6], n[7]);
    return std::vector<double>(n, n + 8);
  };
  EXPECT_THAT(numbers(0), ElementsAre(1, 1, 2, 3, 0, 0, 0, 0));
  EXPECT_THAT(numbers(3), ElementsAre(1, 1, 2, 3, 4, 5, 0, 0));
  EXPECT_THAT(numbers(4), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));

  double n[4] = {-1, -1, -1, -1};
  camera.model = 12;
  EXPECT_FALSE(intrinsics(camera, n[0], n[1], n[2], n[3]));
  camera.model = 1;
  camera.params.resize(3);
  EXPECT_FALSE(intrinsics(camera, n[0], n[1], n[2], n[3]));
  EXPECT_THAT(n, Each(-1));
  for (const int model : {-1, 11}) EXPECT_EQ(modelName(model), "UNKNOWN");
}

}  // namespace
}  // namespace quor::gs::colmap
