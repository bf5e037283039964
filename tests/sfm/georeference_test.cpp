// Where a solved scene is put: on the Earth, upright, or left alone.
#include "sfm/georeference/georeference.h"

#include <Eigen/Geometry>

#include "base/split_mix64.h"
#include "base/text/text.h"
#include "sfm/georeference/up_axis.h"
#include "sfm/georeference/wgs84.h"
#include "solve_fixture.h"

namespace quor::test {
namespace {

using Eigen::AngleAxisd;
using Eigen::Matrix3d;
using Eigen::Vector3d;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr double kRadians = std::numbers::pi / 180;
constexpr GeoPosition kPlace = {47, 8.5, 430};
// Metres of a degree there, along the meridian and along the parallel; within 0.1 % over a kilometre.
constexpr double kNorth = 111170.84, kEast = 76055.998;

double degreesBetween(const Vector3d& a, const Vector3d& b) {
  return std::acos(std::clamp(a.normalized().dot(b.normalized()), -1.0, 1.0)) / kRadians;
}

Vector3d noise(SplitMix64& random, double sigma) {
  return sigma * Vector3d(random.normal(), random.normal(), random.normal());
}

// A camera in a world whose z points up. `course` turns about z from the north, `pitch` is above the horizon.
struct Held {
  Vector3d centre;
  double course = 0, pitch = 0, roll = 0;  // degrees
};

// A capture as a solve sees it: in a frame of its own.
struct Capture {
  Similarity worldFromSolve;
  std::vector<gs::colmap::Image> images;
  std::map<std::string, GeoPosition> positions;
  Places truth;

  explicit Capture(double scale = 3.5) {
    worldFromSolve.scale = scale;
    worldFromSolve.rotation = AngleAxisd(2.1, Vector3d(0.3, -0.8, 0.4).normalized()).toRotationMatrix();
    worldFromSolve.shift = {12, -7, 3};
  }

  void add(const Held& held) {
    Matrix3d level;  // of a camera that looks north: rows right, down, forward
    level << 1, 0, 0, 0, 0, -1, 0, 1, 0;
    const Matrix3d cameraFromWorld = AngleAxisd(held.roll * kRadians, Vector3d::UnitZ()).toRotationMatrix() *
                                     AngleAxisd(-held.pitch * kRadians, Vector3d::UnitX()).toRotationMatrix() * level *
                                     AngleAxisd(held.course * kRadians, Vector3d::UnitZ()).toRotationMatrix();
    const Matrix3d rotation = cameraFromWorld * worldFromSolve.rotation;
    const Vector3d centre =
        worldFromSolve.rotation.transpose() * (held.centre - worldFromSolve.shift) / worldFromSolve.scale;
    const Vector3d shift = -rotation * centre;
    const Eigen::Quaterniond q(rotation);
    gs::colmap::Image image;
    image.id = static_cast<uint32_t>(images.size() + 1);
    image.cameraId = 1;
    image.qvec = {q.w(), q.x(), q.y(), q.z()};
    image.tvec = {shift.x(), shift.y(), shift.z()};
    image.name = formatText("f%05zu.jpg", images.size() + 1);
    images.push_back(image);
    truth.push_back(held.centre);
  }
  void say(size_t image, const Vector3d& place) {
    positions[images[image].name] = {kPlace.latitude + place.y() / kNorth, kPlace.longitude + place.x() / kEast,
                                     kPlace.altitude + place.z()};
  }
  WorldFrame frame() const { return findWorldFrame(images, positions); }
  double tiltOf(const WorldFrame& frame) const {
    return degreesBetween(frame.worldFromSolve.rotation * worldFromSolve.rotation.transpose() * Vector3d::UnitZ(),
                          Vector3d::UnitZ());
  }
};

// An aircraft's grid, with the camera tilted down.
Capture aerial(SplitMix64& random, int rows = 6) {
  Capture capture;
  for (int row = 0; row < rows; ++row) {
    for (int k = 0; k < 10; ++k) {
      capture.add({{10.0 * k, 12.0 * row, 60 + 4 * random.uniform()}, row % 2 ? 270.0 : 90.0, -60, random.normal()});
    }
  }
  return capture;
}

// A walk around something, looking at it.
Capture ring(SplitMix64& random, double radius, int count, double scale = 3.5) {
  Capture capture(scale);
  for (int i = 0; i < count; ++i) {
    const double angle = 360.0 * i / count;
    capture.add({{radius * std::cos(angle * kRadians), radius * std::sin(angle * kRadians), 1.6},
                 270 - angle,
                 -5 + 3 * random.normal(),
                 random.normal()});
  }
  return capture;
}

TEST(Wgs84, AgreesWithTheEllipsoid) {
  EXPECT_LT((ecefFromGeodetic({0, 90, 10}) - Vector3d(0, 6378147, 0)).norm(), 1e-6);
  EXPECT_LT((ecefFromGeodetic({-90, 0, 0}) - Vector3d(0, 0, -6356752.314245)).norm(), 1e-6);
  const LocalFrame frame(kPlace);
  EXPECT_LT((frame.place({47.001, 8.5, 430}) - Vector3d(0, 111.171, 0)).norm(), 0.01);
  EXPECT_LT((frame.place({47, 8.501, 430}) - Vector3d(76.056, 0, 0)).norm(), 0.01);
  EXPECT_LT((frame.place({47, 8.5, 530}) - Vector3d(0, 0, 100)).norm(), 1e-6);
}

TEST(WorldFrame, AKnownSimilarityIsFoundAgainWhateverAThirdOfThePositionsSays) {
  for (const double outliers : {0.0, 0.3}) {
    SplitMix64 random(5);
    Capture capture = aerial(random);
    const size_t wrong = static_cast<size_t>(outliers * 60);
    for (size_t i = 0; i < 60; ++i) {
      // The wrong ones agree with one another: a receiver that has lost its way.
      const bool lost = (i * 7) % 60 < wrong;
      capture.say(i, lost ? Vector3d(90 + 0.2 * capture.truth[i].x(), -200, 30) + noise(random, 5)
                          : capture.truth[i] + noise(random, 0.3));
    }
    const WorldFrame frame = capture.frame();
    ASSERT_TRUE(frame.georeference);
    const Georeference& found = *frame.georeference;
    EXPECT_EQ(found.positions, 60u);
    EXPECT_GE(found.agreeing, 60 - wrong - 2);
    EXPECT_LE(found.agreeing, 60 - wrong);
    EXPECT_NEAR(found.metresPerUnit, 3.5, 0.02);
    EXPECT_LT(found.medianResidual, 0.8);
    EXPECT_LT(found.residual90, 1.2);
    EXPECT_LT(capture.tiltOf(frame), 0.3);
    EXPECT_THAT(frame.messages, ElementsAre(AllOf(StartsWith(formatText("%zu of 60 GPS positions", found.agreeing)),
                                                  HasSubstr("is 3.5"))));
    // Every camera lies where it was, about the origin.
    const Vector3d origin((found.origin.longitude - kPlace.longitude) * kEast,
                          (found.origin.latitude - kPlace.latitude) * kNorth, found.origin.altitude - kPlace.altitude);
    for (size_t i = 0; i < 60; ++i) {
      const Vector3d place = frame.worldFromSolve(CameraPose(capture.images[i]).centre);
      EXPECT_LT((place - (capture.truth[i] - origin)).norm(), 0.5) << i;
    }
  }
}

// A receiver on foot drifts in height by metres, which a fit to positions alone takes for a slope.
TEST(WorldFrame, PhotographsThatAreHeldLevelOverruleDriftingHeights) {
  SplitMix64 random(6);
  Capture capture = ring(random, 15, 40);
  for (size_t i = 0; i < 40; ++i) {
    capture.say(i, capture.truth[i] + noise(random, 0.8) + Vector3d(0, 0, 0.3 * capture.truth[i].x()));
  }
  const WorldFrame frame = capture.frame();
  ASSERT_TRUE(frame.georeference);
  EXPECT_LT(capture.tiltOf(frame), 1);
  EXPECT_NEAR(frame.georeference->metresPerUnit, 3.5, 0.1);
}

TEST(WorldFrame, SaysWhyPositionsAreNotEnoughAndStandsUprightAllTheSame) {
  SplitMix64 random(7);
  const auto refusal = [&](const Capture& capture) {
    const WorldFrame frame = capture.frame();
    EXPECT_FALSE(frame.georeference);
    EXPECT_EQ(frame.worldFromSolve.scale, 1);
    EXPECT_LT(capture.tiltOf(frame), 1);
    EXPECT_EQ(frame.messages.size(), 2u);
    return frame.messages.front();
  };
  Capture few = ring(random, 15, 20);
  for (size_t i = 0; i < 3; ++i) few.say(i, few.truth[i]);
  EXPECT_EQ(refusal(few),
            "Only 3 of the solved photographs know their GPS position, and 4 are needed: the scene keeps "
            "COLMAP's scale.");
  Capture line;
  for (int i = 0; i < 20; ++i) line.add({{2.0 * i, 1.0 * i, 1.6}, 60 * std::sin(i), -5});
  for (size_t i = 0; i < 20; ++i) line.say(i, line.truth[i]);
  EXPECT_THAT(refusal(line), HasSubstr("lie on one line or in one place"));
  Capture stuck = ring(random, 15, 20);
  for (size_t i = 0; i < 20; ++i) stuck.say(i, {1, 2, 3});
  EXPECT_THAT(refusal(stuck), HasSubstr("lie on one line or in one place"));
  // Around something small, the positions are their own errors.
  Capture small = ring(random, 0.5, 36, 0.02);
  for (size_t i = 0; i < 36; ++i) small.say(i, noise(random, 3));
  EXPECT_THAT(refusal(small), HasSubstr("GPS positions"));
}

TEST(WorldFrame, UpComesFromHowCamerasAreHeld) {
  SplitMix64 random(8);
  const auto tilt = [](const Capture& capture) { return capture.tiltOf(capture.frame()); };
  Capture walk;  // tilted down, turning to and fro; every fifth held on its side
  for (int i = 0; i < 50; ++i) {
    walk.add({{0.3 * i, 0, 1.5},
              40 * std::sin(0.5 * i),
              -35 + 3 * random.normal(),
              (i % 5 == 0 ? 90 : 0) + 1.5 * random.normal()});
  }
  EXPECT_LT(tilt(walk), 2);
  Capture wall;  // all look one way, so that their right sides leave the tilt open
  for (int i = 0; i < 20; ++i) wall.add({{0.5 * i, 0, 1.5}, 0, 2 * random.normal(), random.normal()});
  EXPECT_LT(tilt(wall), 3);
  Capture straightDown;
  for (int row = 0; row < 4; ++row) {
    for (int k = 0; k < 8; ++k) {
      straightDown.add(
          {{10.0 * k, 12.0 * row, 60 + 0.5 * random.normal()}, row % 2 ? 270.0 : 90.0, -90 + random.normal(), 0});
    }
  }
  EXPECT_LT(tilt(straightDown), 2);
  EXPECT_THAT(straightDown.frame().messages, ElementsAre(HasSubstr("straight down")));
  Capture tumbling;
  for (int i = 0; i < 40; ++i) {
    tumbling.add({noise(random, 3), 360 * random.uniform(), std::asin(2 * random.uniform() - 1) / kRadians,
                  360 * random.uniform()});
  }
  EXPECT_TRUE(tumbling.frame().worldFromSolve.rotation.isIdentity());
  EXPECT_THAT(tumbling.frame().messages, ElementsAre(HasSubstr("do not agree on where up is")));
}

class PlacedSolve : public SolveTest {
 protected:
  PlacedSolve() : colmap(folder / "tool") {
    SplitMix64 random(9);
    Capture capture = aerial(random, 2);
    model.cameras[1] = {1, 1, 64, 48, {60, 60, 32, 24}};
    model.images = capture.images;
    const Vector3d first = capture.worldFromSolve.rotation.transpose() *
                           (Vector3d(50, 6, 0) - capture.worldFromSolve.shift) / capture.worldFromSolve.scale;
    for (const double value : first) model.points.positions.push_back(static_cast<float>(value));
    model.points.colors = {1, 2, 3};
    for (size_t i = 0; i < model.images.size(); ++i) {
      addFrame(model.images[i].name);
      capture.say(i, capture.truth[i]);
    }
    project.extraction.positions = capture.positions;
    project.extraction.groups = {{"photos", frames, "", {}, false}};
    colmap.mapsTo("0", model, std::vector<gs::colmap::Observations>(20, {{3.5, 4.5, 0}}));
  }

  FakeColmap colmap;
  gs::colmap::Model model;
};

TEST_F(PlacedSolve, EndsInAMetricDatasetAndKeepsItsOrigin) {
  const ColmapRunner::Result result = solve(colmap);
  const gs::colmap::Model placed = gs::colmap::loadModel(result.dataset / "sparse", true);
  ASSERT_EQ(placed.images.size(), 20u);
  const Vector3d along = CameraPose(placed.images[9]).centre - CameraPose(placed.images[0]).centre;
  EXPECT_NEAR(along.x(), 90, 0.1);
  EXPECT_NEAR(along.y(), 0, 0.1);
  for (const gs::colmap::Image& image : placed.images) EXPECT_GT(CameraPose(image).up().z(), 0.4);
  // The ground lies some 60 metres below.
  EXPECT_NEAR(static_cast<double>(placed.points.positions[2]) - CameraPose(placed.images[0]).centre.z(), -62, 2.1);
  EXPECT_EQ(std::filesystem::file_size(result.dataset / "sparse/points3D.bin"),
            std::filesystem::file_size(project.sparseFolder() / "0/points3D.bin"));  // tracks and all

  const std::optional<Georeference> kept = Project::load(project.root).georeference;
  ASSERT_TRUE(kept);
  EXPECT_NEAR(kept->metresPerUnit, 3.5, 0.01);
  EXPECT_EQ(kept->agreeing, 20u);
  EXPECT_NEAR(kept->origin.latitude, kPlace.latitude, 0.001);
  EXPECT_THAT(logText(), HasSubstr("20 of 20 GPS positions agree with the solved cameras"));
}

TEST_F(PlacedSolve, LeavesColmapsFrameWhenAskedTo) {
  project.georeference = Georeference();  // of an earlier solve
  project.sparse.georeference = false;
  const ColmapRunner::Result result = solve(colmap);
  for (const char* name : {"images.bin", "points3D.bin"}) {
    EXPECT_EQ(readFile(result.dataset / "sparse" / name), readFile(project.sparseFolder() / "0" / name)) << name;
  }
  EXPECT_FALSE(Project::load(project.root).georeference);
}

}  // namespace
}  // namespace quor::test
