// A direction that is known when the picture is made must land where the extracted view and its camera say.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <optional>

#include "base/files/paths.h"
#include "ingest/frame_extractor.h"
#include "ingest/sphere/sphere_views.h"
#include "sample_capture/orbit.h"
#include "sample_capture/video_writer.h"
#include "support/solved_cameras.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using sample::Vec3;
constexpr double kDegree = std::numbers::pi / 180;

struct Place {
  double x = 0, y = 0;  // pixels
};

// In the camera's frame: +x right, +y down, +z forward.
Vec3 direction(double yaw, double pitch) {
  const double y = yaw * kDegree, p = pitch * kDegree;
  return {std::cos(p) * std::sin(y), -std::sin(p), std::cos(p) * std::cos(y)};
}

// Small round lights on black.
template <typename View>
Image lights(const View& view, const std::vector<Vec3>& directions, double size) {
  Image image{view.width, view.height, {}};
  for (int y = 0; y < view.height; ++y) {
    for (int x = 0; x < view.width; ++x) {
      const Vec3 ray = view.rayThrough(x + 0.5, y + 0.5).direction;
      double light = 0;
      for (const Vec3& d : directions) {
        const double apart2 = 2 * (1 - dot(ray, d)) / (size * size);
        if (apart2 < 20) light += 230 * std::exp(-0.5 * apart2);
      }
      image.rgb.insert(image.rgb.end(), 3, static_cast<uint8_t>(light));
    }
  }
  return image;
}

// The middle of the light near a place, if there is one.
std::optional<Place> lightNear(const Image& image, Place place) {
  constexpr int kReach = 9;
  double sum = 0;
  Place middle;
  for (int y = static_cast<int>(place.y) - kReach; y <= static_cast<int>(place.y) + kReach; ++y) {
    for (int x = static_cast<int>(place.x) - kReach; x <= static_cast<int>(place.x) + kReach; ++x) {
      const double light = std::max(0, image.rgb[3 * static_cast<size_t>(y * image.width + x)] - 20);
      sum += light;
      middle.x += light * (x + 0.5);
      middle.y += light * (y + 0.5);
    }
  }
  if (sum < 500) return {};
  return Place{middle.x / sum, middle.y / sum};
}

class GeometryTest : public testing::Test {
 protected:
  ExtractionResult extract(InputKind kind, const std::vector<Image>& tracks) {
    const std::filesystem::path file = folder_ / "video.mp4";
    sample::VideoWriter video(
        file, {{tracks[0].width, tracks[0].height}, static_cast<int>(tracks.size()), 10, kind == InputKind::Video360});
    for (size_t i = 0; i < tracks.size(); ++i) video.write(static_cast<int>(i), tracks[i]);
    video.finish();
    FrameExtractor extractor(log_, {}, [] { return false; });
    return extractor.extract(file, kind, settings_, folder_ / "frames", {});
  }
  // Looks for every light that is to be seen well within the picture, and counts them.
  void expectLights(const Image& image, const std::vector<std::optional<Place>>& places, const std::string& name) {
    constexpr double kMargin = 12;
    for (const std::optional<Place>& place : places) {
      if (!place || std::min(place->x, place->y) < kMargin || place->x > image.width - kMargin ||
          place->y > image.height - kMargin) {
        continue;
      }
      ++found_;
      const std::optional<Place> light = lightNear(image, *place);
      ASSERT_TRUE(light) << name << ": no light at " << place->x << " " << place->y;
      const double distance = std::hypot(light->x - place->x, light->y - place->y);
      EXPECT_LT(distance, 0.75) << name << ": light at " << place->x << " " << place->y;
    }
  }

  test::TempFolder folder_;
  LogStore log_{100};
  IngestSettings settings_;
  int found_ = 0;
};

TEST_F(GeometryTest, LightsOfTheSphereLandWhereTheCameraOfAViewSays) {
  settings_.viewsPerFrame = 5;
  settings_.includePoles = true;
  settings_.pitchOffset = 12;
  settings_.viewResolution = 256;
  std::vector<Vec3> directions = {direction(0, 90), direction(0, -90)};
  for (int pitch = -75; pitch <= 75; pitch += 25) {
    for (int yaw = -170; yaw < 180; yaw += 30) directions.push_back(direction(yaw + pitch / 5, pitch));
  }
  // Finer than the views, as footage is: the v360 filter puts the centres of a row's outer pixels on its ends, so that
  // away from the middle everything is off by up to half a pixel of the sphere.
  sample::EquirectangularView sphere;
  sphere.width = 2048;
  sphere.height = 1024;
  const ExtractionResult result = extract(InputKind::Video360, {lights(sphere, directions, 0.7 * kDegree)});

  const auto [fx, fy, cx, cy] = sphereViewCamera(settings_);
  const std::vector<SphereView> views = sphereViews(settings_);
  ASSERT_EQ(result.frames.size(), views.size());
  for (size_t i = 0; i < views.size(); ++i) {
    const sample::Pose view{test::viewTurn(views[i].yaw, views[i].pitch), {}};
    std::vector<std::optional<Place>> places;
    for (const Vec3& d : directions) {
      const Vec3 c = view.toCamera(d);
      places.push_back(c.z > 0.1 ? std::optional<Place>({fx * c.x / c.z + cx, fy * c.y / c.z + cy}) : std::nullopt);
    }
    expectLights(readImage(result.frames[i]), places, views[i].name);
  }
  EXPECT_GT(found_, 90);
}

TEST_F(GeometryTest, LightsOfALensLandWhereItsSeedSays) {
  settings_.fisheyeFieldOfView = 200;
  settings_.maxDimension = 320;  // the seed is that of the scaled picture
  std::vector<Vec3> directions = {direction(0, 0)};
  for (int theta = 15; theta <= 90; theta += 15) {
    for (int turn = theta; turn < 360 + theta; turn += 40) {
      const double t = theta * kDegree, u = turn * kDegree;
      directions.push_back({std::sin(t) * std::cos(u), std::sin(t) * std::sin(u), std::cos(t)});
    }
  }
  sample::FisheyeView lens;
  lens.width = lens.height = 480;
  lens.fieldOfView = 200;
  const Image picture = lights(lens, directions, 1.0 * kDegree);
  const ExtractionResult result = extract(InputKind::DualFisheye, {picture, picture});

  ASSERT_EQ(result.lensSize, 320);
  const std::vector<double> seed = fisheyeCamera(settings_, result.lensSize);
  std::vector<std::optional<Place>> places;
  for (const Vec3& d : directions) {
    const double sideways = std::hypot(d.x, d.y), theta = std::atan2(sideways, d.z);
    const double stretch = sideways > 0 ? theta / sideways : 1;
    places.push_back(Place{seed[0] * stretch * d.x + seed[2], seed[1] * stretch * d.y + seed[3]});
  }
  for (const std::filesystem::path& frame : result.frames) {
    expectLights(readImage(frame), places, toUtf8(frame.filename()));
  }
  EXPECT_EQ(found_, 2 * static_cast<int>(directions.size()));
}

TEST(SphereViews, KnowTheirTurnAndAreNoLargerThanTheirSphere) {
  IngestSettings settings;
  settings.includePoles = true;
  settings.pitchOffset = 20;
  for (const SphereView& view : sphereViews(settings)) {
    const auto [w, x, y, z] = rotationOf(view);
    const Vec3 v = direction(view.yaw, view.pitch);
    // The last row of the rotation's matrix: the view's axis in the sphere's frame.
    EXPECT_NEAR(dot({2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}, v), 1, 1e-9) << view.name;
  }
  EXPECT_EQ(fittedTo(settings, 640).viewResolution, 1400);
  settings.viewsFollowSphere = true;
  EXPECT_EQ(sphereViewSize(fittedTo(settings, 640)), 304);
  EXPECT_EQ(sphereViewSize(fittedTo(settings, 7680)), 1400);
  settings.viewResolution = 1000;  // a size of the user's own
  EXPECT_EQ(fittedTo(settings, 640).viewResolution, 1000);
}

}  // namespace
}  // namespace quor
