// Rigs on made-up captures: moments on a path, points all around, and views that a solve has placed one by one.
#include <gmock/gmock.h>

#include <numbers>
#include <random>

#include "base/failures.h"
#include "base/text/text.h"
#include "sfm/refine/bundle_adjustment.h"
#include "sfm/refine/projection.h"

namespace quor::refine {
namespace {

using Eigen::Quaterniond;
using Eigen::Vector3d;
using gs::colmap::Observation;

constexpr double kDegree = std::numbers::pi / 180;

Quaterniond about(const Vector3d& axis, double degrees) {
  return Quaterniond(Eigen::AngleAxisd(degrees * kDegree, axis));
}

class Capture {
 public:
  // `count` sensors, turned evenly about the vertical axis; with `baseline` they do not share their centre.
  Capture(int32_t camera, std::vector<double> parameters, size_t count, bool known, double baseline = 0) {
    ImageGroup group;
    for (size_t s = 0; s < count; ++s) {
      const Quaterniond turn = about(Vector3d::UnitY(), 360.0 / static_cast<double>(count) * static_cast<double>(s));
      sensors.push_back({turn, Vector3d(0, 0, s == 0 ? 0 : baseline)});
      RigView view{"_v" + std::to_string(s), {}};
      if (known) view.rotation = {turn.w(), turn.x(), turn.y(), turn.z()};
      group.rig.push_back(view);
    }
    rigid.model.cameras[1] = {1, camera, 400, 400, std::move(parameters)};
    for (size_t m = 0; m < kMoments; ++m) {
      const double along = static_cast<double>(m);
      const Quaterniond turn = about(Vector3d(0.1, 1, 0).normalized(), 12 * along);
      moments.push_back({turn, -(turn * Vector3d(std::cos(along / 3), 0.1 * along, std::sin(along / 3)))});
      for (size_t s = 0; s < count; ++s) {
        gs::colmap::Image image;
        image.id = static_cast<uint32_t>(m * count + s + 1);
        image.cameraId = 1;
        image.name = formatText("f%05zu_v%zu.jpg", m, s);
        group.images.push_back(image.name);
        rigid.model.images.push_back(image);
        rigid.mounts.push_back({m, s});
      }
    }
    groups.push_back(std::move(group));
    rigid.freeSensors.assign(count, !known);
    rigid.freeSensors[0] = false;
    observe();
  }

  Pose truth(size_t image) const { return sensors[rigid.mounts[image].sensor] * moments[rigid.mounts[image].moment]; }
  // Poses of their own for all images, each a little wrong.
  void placeOneByOne(double degrees, double distance) {
    for (size_t i = 0; i < rigid.model.images.size(); ++i) {
      const Pose wrong{about(direction(), degrees), distance * direction()};
      setPose(rigid.model.images[i], wrong * truth(i));
    }
  }
  double worstCentre() const {
    double worst = 0;
    for (size_t i = 0; i < rigid.model.images.size(); ++i) {
      worst = std::max(worst, (poseOf(rigid.model.images[i]).centre() - truth(i).centre()).norm());
    }
    return worst;
  }
  Vector3d direction() { return Vector3d(normal_(random_), normal_(random_), normal_(random_)).normalized(); }

  static constexpr size_t kMoments = 10;
  RigidModel rigid;
  std::vector<Pose> moments, sensors;
  std::vector<ImageGroup> groups;

 private:
  void observe() {
    constexpr size_t kPoints = 400;
    rigid.observations.resize(rigid.model.images.size());
    for (size_t p = 0; p < kPoints; ++p) {
      const Vector3d point = (4 + 2 * std::abs(normal_(random_))) * direction();
      for (size_t k = 0; k < 3; ++k) {
        rigid.model.points.positions.push_back(static_cast<float>(point[static_cast<long>(k)] * 1.01));
        rigid.model.points.colors.push_back(100);
      }
      for (size_t i = 0; i < rigid.model.images.size(); ++i) see(i, p, point);
    }
  }
  void see(size_t image, size_t point, const Vector3d& place) {
    const Pose pose = truth(image);
    const Vector3d at = pose.rotation * place + pose.translation;
    const gs::colmap::Camera& camera = rigid.model.cameras.at(1);
    visitCamera(camera.model, [&]<typename Camera>(Camera) {
      const double widest = Camera::kFisheye ? 88 * kDegree : 44 * kDegree;
      if (std::atan2(at.head<2>().norm(), at.z()) > widest) return;
      const Plane<double> seen = project<Camera>(camera.params.data(), at.data());
      if (std::abs(seen.x - 200) > 200 || std::abs(seen.y - 200) > 200) return;
      rigid.observations[image].push_back({seen.x + 0.2 * normal_(random_), seen.y + 0.2 * normal_(random_), point});
    });
  }

  std::mt19937 random_{7};
  std::normal_distribution<double> normal_;
};

std::vector<double> weights(const RigidModel& rigid) {
  std::vector<double> counts;
  for (const auto& list : rigid.observations) counts.push_back(static_cast<double>(list.size()));
  return counts;
}

const std::function<bool()> kNever = [] { return false; };

TEST(Rig, ViewsOfAMomentAgreeOnOnePoseAndThatIsAdjusted) {
  Capture capture(Pinhole::kId, {200, 200, 200, 200}, 4, true);
  capture.placeOneByOne(0.5, 0.02);
  auto& images = capture.rigid.model.images;
  setPose(images[6], Pose{about(Vector3d::UnitX(), 170), {3, 0, 0}});  // taken for something else
  const std::string unplaced = images[9].name;
  gs::colmap::Model model = capture.rigid.model;
  std::vector<double> votes = weights(capture.rigid);
  model.images.erase(model.images.begin() + 9);
  votes.erase(votes.begin() + 9);

  const RigLayout layout(capture.groups);
  const FusedRig fused = fuseMoments(model, votes, layout);
  EXPECT_THAT(fused.contradicting, testing::ElementsAre(images[6].name));
  ASSERT_TRUE(layout.find(unplaced));
  for (size_t m = 0; m < Capture::kMoments; ++m) {
    ASSERT_TRUE(fused.moments[m]);
    EXPECT_LT((fused.moments[m]->centre() - capture.moments[m].centre()).norm(), 0.03);
    capture.rigid.moments.push_back(*fused.moments[m]);
  }

  capture.rigid.sensors = fused.sensors;
  capture.rigid.freeCameras = false;
  const AdjustmentSummary summary = adjust(capture.rigid, kNever);
  EXPECT_LT(summary.error, 0.3);
  EXPECT_GT(summary.errorBefore, 2 * summary.error);
  for (size_t i = 0; i < images.size(); i += 4) {
    for (size_t s = 1; s < 4; ++s) {
      EXPECT_LT((poseOf(images[i]).centre() - poseOf(images[i + s]).centre()).norm(), 1e-9);
    }
  }
  EXPECT_EQ(capture.rigid.model.points.errors.size(), capture.rigid.model.points.count());
}

TEST(Rig, TheSecondLensIsFoundAndAPointThatDriftsBesideALensHaltsNothing) {
  Capture capture(OpenCvFisheye::kId, {120, 120, 200, 200, 0.01, 0, 0, 0}, 2, false, 0.03);
  capture.placeOneByOne(0.3, 0.01);
  const FusedRig fused = fuseMoments(capture.rigid.model, weights(capture.rigid), RigLayout(capture.groups));
  EXPECT_THAT(fused.estimated, testing::ElementsAre(false, true));
  EXPECT_LT(fused.sensors[1].rotation.angularDistance(capture.sensors[1].rotation), 0.5 * kDegree);

  for (const auto& moment : fused.moments) capture.rigid.moments.push_back(moment.value());
  capture.rigid.sensors = fused.sensors;
  capture.rigid.model.cameras.at(1).params[4] = 0.1;  // a lens that bends too much, as after a bad start
  capture.rigid.model.cameras.at(1).params[5] = -0.1;
  // A point that has drifted beside a lens which sees it at 88 degrees.
  for (size_t image = 0; image < 2; ++image) {
    for (const Observation& seen : capture.rigid.observations[image]) {
      if (std::hypot(seen.x - 200, seen.y - 200) < 120 * 80 * kDegree) continue;
      const Pose pose = capture.truth(image);
      float* point = &capture.rigid.model.points.positions[3 * seen.point];
      Vector3d at = pose.rotation * Eigen::Vector3f(point).cast<double>() + pose.translation;
      at.z() = -0.02 * at.norm();
      const Eigen::Vector3f drifted = (pose.rotation.conjugate() * (at - pose.translation)).cast<float>();
      std::copy_n(drifted.data(), 3, point);
    }
  }
  const AdjustmentSummary summary = adjust(capture.rigid, kNever);
  EXPECT_LT(summary.error, 0.3);
  const std::vector<double>& lens = capture.rigid.model.cameras.at(1).params;
  const std::vector<double> trueLens = {120, 120, 200, 200, 0.01, 0, 0, 0};
  for (double angle = 10; angle <= 80; angle += 10) {
    const std::array<double, 3> at = {std::sin(angle * kDegree), 0, std::cos(angle * kDegree)};
    EXPECT_NEAR(project<OpenCvFisheye>(lens.data(), at.data()).x, project<OpenCvFisheye>(trueLens.data(), at.data()).x,
                0.3)
        << angle;
  }
  EXPECT_LT(capture.rigid.sensors[1].rotation.angularDistance(capture.sensors[1].rotation), 0.1 * kDegree);
}

TEST(Rig, AnAdjustmentIsCancelled) {
  Capture capture(Pinhole::kId, {200, 200, 200, 200}, 3, true);
  capture.rigid.moments = capture.moments;
  capture.rigid.sensors = capture.sensors;
  EXPECT_THROW(adjust(capture.rigid, [] { return true; }), Cancelled);
}

}  // namespace
}  // namespace quor::refine
