#include "gs/data/dataset.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "colmap/model_writer.h"
#include "gs/data/undistort.h"
#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::thrownText;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A smooth picture on the plane at depth 1, one channel each way and one across.
std::array<double, 3> pattern(double x, double y) {
  return {127 + 100 * std::sin(9 * x), 127 + 100 * std::cos(8 * y), 127 + 100 * std::sin(5 * (x + y))};
}

// What a camera with a lens sees of the pattern; the lens is undone by iteration.
Image photographOf(const colmap::Camera& camera, int scaleDown = 1) {
  double fx, fy, cx, cy;
  Distortion lens;
  colmap::intrinsics(camera, fx, fy, cx, cy);
  colmap::distortion(camera, lens.k1, lens.k2, lens.p1, lens.p2);
  Image image{static_cast<int>(camera.width) / scaleDown, static_cast<int>(camera.height) / scaleDown, {}};
  for (int j = 0; j < image.height; ++j) {
    for (int i = 0; i < image.width; ++i) {
      const double u = ((i + 0.5) * scaleDown - cx) / fx;
      const double v = ((j + 0.5) * scaleDown - cy) / fy;
      double x = u, y = v;
      for (int k = 0; k < 40; ++k) {
        const auto [xd, yd] = distorted(lens, x, y);
        x += u - xd;
        y += v - yd;
      }
      for (const double value : pattern(x, y)) image.rgb.push_back(static_cast<uint8_t>(std::lround(value)));
    }
  }
  return image;
}

// The largest difference between a view and the pattern as its pinhole camera sees it.
double worstError(const View& view) {
  const std::shared_ptr<const Image> pixels = view.image.pixels();
  const Image& image = *pixels;
  double worst = 0;
  for (int j = 0; j < image.height; ++j) {
    for (int i = 0; i < image.width; ++i) {
      const auto expected =
          pattern((i + 0.5 - view.camera.cx) / view.camera.fx, (j + 0.5 - view.camera.cy) / view.camera.fy);
      const auto at = static_cast<size_t>(j * image.width + i) * 3;
      for (size_t c = 0; c < 3; ++c) worst = std::max(worst, std::abs(image.rgb[at + c] - expected[c]));
    }
  }
  return worst;
}

class DatasetTest : public testing::Test {
 protected:
  DatasetTest() {
    options_.folder = folder_.path();
    model_.cameras[1] = {1, 1, 120, 80, {100, 101, 61, 39}};
  }

  // Registers an image and writes its photograph.
  colmap::Image& add(const std::string& name, uint32_t camera = 1, int scaleDown = 1) {
    addMissing(name, camera);
    const auto path = folder_ / "images" / fromUtf8(name);
    std::filesystem::create_directories(path.parent_path());
    writePng(path, photographOf(model_.cameras.at(camera), scaleDown));
    return model_.images.back();
  }

  colmap::Image& addMissing(const std::string& name, uint32_t camera = 1) {
    colmap::Image image;
    image.id = static_cast<uint32_t>(model_.images.size() + 1);
    image.cameraId = camera;
    image.tvec = {static_cast<double>(image.id), 0, 0};
    image.name = name;
    model_.images.push_back(image);
    return model_.images.back();
  }

  Dataset load() {
    colmap::writeModel(folder_ / "sparse/0", model_, {}, colmap::Encoding::Binary);
    return loadDataset(options_, log_, cancel_);
  }

  std::string failure() {
    return thrownText([&] { load(); });
  }

  std::vector<std::string> logged(LogLevel level) const {
    std::vector<std::string> texts;
    for (const LogEntry& entry : log_.entriesAfter(0)) {
      if (entry.level == level) texts.push_back(entry.text);
    }
    return texts;
  }
  std::vector<std::string> warnings() const { return logged(LogLevel::Warning); }

  test::TempFolder folder_;
  colmap::Model model_;
  DatasetOptions options_;
  LogStore log_{100};
  std::atomic<bool> cancel_ = false;
};

std::vector<std::string> names(const std::vector<View>& views) {
  std::vector<std::string> result;
  for (const View& view : views) result.push_back(view.name);
  return result;
}

TEST_F(DatasetTest, ViewsComeInNameOrderFromSubFoldersAndAreSplit) {
  for (const char* name : {"b/été 写.png", "a b.png", "c.png", "b/a.png", "d.png"}) add(name);
  add("e.png").qvec = {0, 0, -3, 0};  // half a turn about y, not normalised
  model_.points.positions = {1, 2, 3, NAN, 0, 0, 4, 5, 1e30f, 7, 8, 9};
  model_.points.colors = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  options_.evalMode = true;
  options_.testEvery = 3;
  const Dataset dataset = load();
  EXPECT_THAT(names(dataset.heldOut), ElementsAre("a b.png", "c.png"));
  EXPECT_THAT(names(dataset.training), ElementsAre("b/a.png", "b/été 写.png", "d.png", "e.png"));
  EXPECT_EQ(dataset.imageBytes(), 6u * 120u * 80u * 3u);
  EXPECT_THAT(dataset.points.positions, ElementsAre(1, 2, 3, 7, 8, 9));
  EXPECT_THAT(dataset.points.colors, ElementsAre(1, 2, 3, 10, 11, 12));
  EXPECT_THAT(warnings(), ElementsAre("2 point(s) of the COLMAP model have no valid position and were dropped."));
  EXPECT_THAT(dataset.training[3].camera.rotation, ElementsAre(-1, 0, 0, 0, 1, 0, 0, 0, -1));
  EXPECT_THAT(dataset.training[3].camera.centre(), ElementsAre(6, 0, 0));
  for (const View& view : dataset.training) EXPECT_LT(worstError(view), 0.51) << view.name;
}

TEST_F(DatasetTest, LensesAreUndoneAtEveryResolution) {
  const std::vector<colmap::Camera> cameras = {{1, 2, 320, 240, {300, 163, 117, -0.15}},
                                               {2, 3, 320, 240, {280, 158, 121, 0.1, 0.02}},
                                               {3, 4, 240, 320, {300, 310, 118, 163, -0.12, 0.03, 0.004, -0.003}}};
  for (const colmap::Camera& camera : cameras) {
    model_.cameras[camera.id] = camera;
    add(std::to_string(camera.id) + ".png", camera.id);
    add(std::to_string(camera.id) + " half.png", camera.id, 2);
  }
  for (const int resolution : {0, 100}) {
    options_.resolution = resolution;
    const Dataset dataset = load();
    ASSERT_EQ(dataset.training.size(), 6u);
    for (const View& view : dataset.training) {
      EXPECT_LT(worstError(view), resolution == 0 ? 2.5 : 5.0) << view.name << resolution;
      EXPECT_EQ(view.image.width(), view.camera.width);
      // What the lens squeezes is gained, what it stretches is lost: the view is about as large as the photograph.
      const int photograph = view.name == "1.png" || view.name == "2.png" || view.name == "3.png" ? 320 : 160;
      const int longest = std::max(view.image.width(), view.image.height());
      EXPECT_NEAR(longest, resolution == 0 ? photograph : 100, resolution == 0 ? 0.15 * photograph : 0) << view.name;
    }
  }
}

TEST_F(DatasetTest, PhotographsMayBeUniformlyScaledButNotCropped) {
  model_.cameras[1] = {1, 1, 121, 81, {100, 100, 60, 40}};
  add("half.png", 1, 2);  // 60x40
  const View view = load().training.at(0);
  EXPECT_DOUBLE_EQ(view.camera.fx, 100 * 60.0 / 121);
  EXPECT_DOUBLE_EQ(view.camera.cy, 40 * 40.0 / 81);

  const Camera level = cameraAtLevel(view.camera, 2);
  EXPECT_EQ(level.width, 15);
  EXPECT_EQ(level.height, 10);
  EXPECT_DOUBLE_EQ(level.fx, view.camera.fx / 4);
  EXPECT_EQ(cameraAtLevel(view.camera, 30).width, 1);

  model_.cameras[1].width = 100;
  EXPECT_THAT(failure(), StartsWith("Image half.png has 60x40 pixels, but its camera in the COLMAP model has 100x81."));
  writePng(folder_ / "images/half.png", Image{1, 1, {0, 0, 0}});  // scaled uniformly, but a placeholder
  EXPECT_THAT(failure(), StartsWith("Image half.png has 1x1 pixels, but its camera in the COLMAP model has 100x81."));
}

TEST_F(DatasetTest, UnreadableImagesAreSkippedAndNamesThatLeadOutsideAreNotFollowed) {
  add("fine.png");
  addMissing("missing.png");
  test::writeFile(folder_ / "images/broken.jpg", "\xff\xd8 not a picture");
  addMissing("broken.jpg");
  writePng(folder_ / "outside.png", photographOf(model_.cameras[1]));
  addMissing("../outside.png");
  addMissing(toUtf8(folder_ / "outside.png"));
  addMissing("");
  const Dataset dataset = load();
  EXPECT_THAT(names(dataset.training), ElementsAre("fine.png"));
  EXPECT_EQ(dataset.geometry.radius, 1.0);
  ASSERT_EQ(warnings().size(), 1u);
  EXPECT_THAT(warnings()[0], StartsWith("5 image(s) could not be read and were skipped (, ../outside.png, " +
                                        toUtf8(folder_ / "outside.png") + ", "));
  EXPECT_THAT(warnings()[0], EndsWith(", ...)."));

  std::filesystem::remove_all(folder_ / "images");
  std::filesystem::create_directory(folder_ / "images");
  EXPECT_EQ(failure(), "None of the dataset's images could be read from " + toUtf8(folder_ / "images"));
}

TEST_F(DatasetTest, WhatDoesNotFitIntoMemoryIsReadFromAFileThatNobodySees) {
  for (int i = 0; i < 9; ++i) add(std::to_string(i) + ".png");
  options_.evalMode = true;
  options_.pool = {folder_ / "output", 3 * 120 * 80 * 3};
  EXPECT_THAT(failure(), StartsWith("The photographs do not fit into memory, and " + toUtf8(folder_ / "output")));
  std::filesystem::create_directory(folder_ / "output");
  {
    const Dataset dataset = load();
    EXPECT_TRUE(test::kWindows || std::filesystem::is_empty(folder_ / "output"));  // where an open file keeps its name
    EXPECT_EQ(dataset.heldOut.size(), 2u);
    for (const auto* views : {&dataset.training, &dataset.heldOut}) {
      for (const View& view : *views) EXPECT_LT(worstError(view), 0.51) << view.name;
    }
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder_ / "output"));
  EXPECT_EQ(logged(LogLevel::Information).back(),
            "6 photographs (0.00 GB) do not fit into memory: a temporary file holds them.");
  options_.pool.budget = 0;
  load();
  EXPECT_THAT(logged(LogLevel::Information).back(), StartsWith("Dataset: 7 training views, 2 held out"));
}

TEST_F(DatasetTest, ASplitThatWouldLeaveNothingToTrainOnHoldsNothingOut) {
  add("only.png");
  options_.evalMode = true;
  EXPECT_EQ(load().training.size(), 1u);
  EXPECT_THAT(warnings(), ElementsAre("Holding views out would leave none to train on, so none is held out."));
}

TEST_F(DatasetTest, ModelAndImagesMayLieApart) {
  add("a.png");
  colmap::writeModel(folder_ / "elsewhere", model_, {}, colmap::Encoding::Binary);
  std::filesystem::rename(folder_ / "images", folder_ / "pictures");
  EXPECT_EQ(thrownText([&] { loadDataset(options_, log_, cancel_); }),
            "No COLMAP model found in " + toUtf8(folder_.path()) + " (expected sparse/0/cameras.bin and images.bin).");
  options_.modelFolder = folder_ / "elsewhere";
  options_.imagesFolder = folder_ / "pictures";
  EXPECT_EQ(loadDataset(options_, log_, cancel_).training.size(), 1u);
}

TEST_F(DatasetTest, ABrokenModelIsRefusedInOneSentence) {
  EXPECT_EQ(failure(), "The COLMAP model has no registered images.");
  add("a.png");
  add("b.png");
  const auto imageWith = [&](auto member, auto value) {
    return [=](colmap::Model& model) { model.images[1].*member = value; };
  };
  const auto cameraWith = [&](std::vector<double> params, int32_t type = 1, uint64_t width = 120) {
    return [=](colmap::Model& model) { model.cameras[1] = {1, type, width, 80, params}; };
  };
  using Quaternion = std::array<double, 4>;
  const auto qvec = &colmap::Image::qvec;
  const std::vector<std::pair<std::string, std::function<void(colmap::Model&)>>> rows = {
      {"Image b.png belongs to camera 7, which the COLMAP model does not hold.",
       imageWith(&colmap::Image::cameraId, 7u)},
      {"Image b.png of the COLMAP model has no valid rotation.", imageWith(qvec, Quaternion{})},
      {"Image b.png of the COLMAP model has no valid rotation.", imageWith(qvec, Quaternion{kNaN})},
      {"Image b.png of the COLMAP model has no valid translation.",
       imageWith(&colmap::Image::tvec, std::array{0.0, 0.0, kNaN})},
      {"Camera 1 of the COLMAP model has no valid focal length.", cameraWith({100, kNaN, 61, 39})},
      {"Camera 1 of the COLMAP model has no valid focal length.", cameraWith({100, 1e30, 61, 39})},
      {"Camera 1 of the COLMAP model has no valid principal point.", cameraWith({100, 100, kNaN, 39})},
      {"Camera 1 of the COLMAP model has no valid principal point: with lens distortion it must lie inside the image.",
       cameraWith({100, 200, 39, 0.1}, 2)},
      {"Camera 1 of the COLMAP model has no valid lens distortion.", cameraWith({100, 61, 39, kNaN}, 2)},
      {"Camera 1 of the COLMAP model has no valid image size.", cameraWith({100, 100, 61, 39}, 1, 1ULL << 63)},
      {"Camera model OPENCV_FISHEYE cannot be trained directly. Run COLMAP's image_undistorter first (the Camera Solve "
       "stage does this).",
       cameraWith({100, 100, 61, 39, 0, 0, 0, 0}, 5)}};
  const colmap::Model good = model_;
  for (const auto& [text, damage] : rows) {
    model_ = good;
    damage(model_);
    EXPECT_EQ(failure(), text);
  }
}

TEST_F(DatasetTest, ProgressIsOrderedAndALoadCanBeCancelled) {
  for (int i = 0; i < 20; ++i) add(std::to_string(i) + ".png");
  colmap::writeModel(folder_ / "sparse/0", model_, {}, colmap::Encoding::Binary);
  std::vector<size_t> seen;
  loadDataset(options_, log_, cancel_, [&](size_t done, size_t total) {
    EXPECT_EQ(total, 20u);
    seen.push_back(done);
  });
  EXPECT_EQ(seen.size(), 20u);
  EXPECT_TRUE(std::ranges::is_sorted(seen));
  const auto cancelled = [&] { loadDataset(options_, log_, cancel_, [&](size_t, size_t) { cancel_ = true; }); };
  EXPECT_EQ(thrownText(cancelled), "Cancelled");
}

TEST(Views, GeometryIsThatOfTheCameras) {
  using Vector = std::array<double, 3>;
  // The geometry asks only for the place and the up vector, so the rest need not be a proper rotation.
  const auto geometryOf = [](const std::vector<std::pair<Vector, Vector>>& placesAndUps) {
    std::vector<Camera> cameras(placesAndUps.size());
    for (size_t i = 0; i < cameras.size(); ++i) {
      const auto& [place, up] = placesAndUps[i];
      cameras[i].rotation = {1, 0, 0, -up[0], -up[1], -up[2], 0, 0, 1};
      cameras[i].translation = {-place[0], up[0] * place[0] + up[1] * place[1] + up[2] * place[2], -place[2]};
    }
    return sceneGeometry(cameras);
  };
  SceneGeometry geometry = geometryOf({{{1, 0, 0}, {0, -1, 0}}, {{5, 0, 0}, {0, -1, 0}}, {{3, 0, 3}, {0, -1, 0}}});
  EXPECT_THAT(geometry.centre, ElementsAre(3, 0, 1));
  EXPECT_NEAR(geometry.radius, std::sqrt(5.0), 1e-12);
  EXPECT_NEAR(geometry.extent, 1.1 * std::sqrt(5.0), 1e-12);
  EXPECT_THAT(geometry.up, ElementsAre(0, -1, 0));

  geometry = geometryOf({{{2, 0, 0}, {0, 0.6, -0.8}}, {{2, 0, 0}, {0, -0.6, -0.8}}});
  EXPECT_EQ(geometry.radius, 1.0);
  EXPECT_NEAR(geometry.up[2], -1, 1e-12);
  EXPECT_THAT(geometryOf({{{0, 0, 0}, {0, 1, 0}}, {{0, 0, 0}, {0, -1, 0}}}).up, ElementsAre(0, -1, 0));
}

}  // namespace
}  // namespace quor::gs
