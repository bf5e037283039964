#include "sfm/refine/bundle_adjustment.h"

#include <ceres/ceres.h>

#include <algorithm>
#include <array>
#include <memory>
#include <thread>

#include "base/failures.h"
#include "sfm/refine/projection.h"

namespace quor::refine {
namespace {

using gs::colmap::Observation;
using gs::colmap::Observations;

constexpr double kLossScale = 1;  // pixels up to which an error counts with its square
constexpr double kMaxError = 4;   // pixels
constexpr int kIterations = 60;
constexpr size_t kDenseMoments = 60;  // with more poses than this the reduced system is sparse

// Parameter blocks in the order of Ceres's quaternion: x y z w.
struct PoseBlock {
  std::array<double, 4> rotation;
  std::array<double, 3> translation;

  explicit PoseBlock(const Pose& pose) {
    Eigen::Map<Eigen::Quaterniond>(rotation.data()) = pose.rotation;
    Eigen::Map<Eigen::Vector3d>(translation.data()) = pose.translation;
  }
  Pose pose() const {
    return {Eigen::Map<const Eigen::Quaterniond>(rotation.data()).normalized(),
            Eigen::Map<const Eigen::Vector3d>(translation.data())};
  }
};

template <typename T>
Eigen::Matrix<T, 3, 1> move(const T* rotation, const T* translation, const Eigen::Matrix<T, 3, 1>& point) {
  return Eigen::Map<const Eigen::Quaternion<T>>(rotation) * point +
         Eigen::Map<const Eigen::Matrix<T, 3, 1>>(translation);
}

template <typename Camera>
struct Error {
  double x, y;

  template <typename T>
  bool operator()(const T* rigRotation, const T* rigTranslation, const T* rotation, const T* translation,
                  const T* camera, const T* point, T* residual) const {
    const Eigen::Matrix<T, 3, 1> world(point[0], point[1], point[2]);
    const Eigen::Matrix<T, 3, 1> inCamera = move<T>(rotation, translation, move<T>(rigRotation, rigTranslation, world));
    const Plane<T> at = project<Camera>(camera, inCamera.data());
    residual[0] = at.x - T(x);
    residual[1] = at.y - T(y);
    return true;
  }
};

class StopWhenCancelled : public ceres::IterationCallback {
 public:
  explicit StopWhenCancelled(const std::function<bool()>& cancelled) : cancelled_(cancelled) {}
  ceres::CallbackReturnType operator()(const ceres::IterationSummary&) override {
    return cancelled_() ? ceres::SOLVER_ABORT : ceres::SOLVER_CONTINUE;
  }

 private:
  const std::function<bool()>& cancelled_;
};

class Adjuster {
 public:
  Adjuster(RigidModel& rigid, const std::function<bool()>& cancelled) : rigid_(rigid), cancelled_(cancelled) {
    for (const Pose& pose : rigid.moments) moments_.emplace_back(pose);
    for (const Pose& pose : rigid.sensors) sensors_.emplace_back(pose);
    const std::vector<float>& positions = rigid.model.points.positions;
    points_.assign(positions.begin(), positions.end());
    tracks_.resize(rigid.model.points.count());
    for (const Observations& list : rigid.observations) {
      for (const Observation& observation : list) {
        if (observation.point != Observation::kNoPoint) ++tracks_[observation.point];
      }
    }
  }

  AdjustmentSummary run() {
    AdjustmentSummary summary;
    filter();  // tracks of one observation say nothing
    summary.errorBefore = meanError();
    solve();
    summary.dropped = filter();
    solve();
    store();
    summary.error = meanError();
    for (const size_t track : tracks_) summary.observations += track;
    return summary;
  }

 private:
  void solve() {
    ceres::Problem::Options ownership;
    ownership.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
    ownership.manifold_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
    ceres::Problem problem(ownership);
    for (size_t i = 0; i < rigid_.mounts.size(); ++i) addImage(problem, i);
    hold(problem);

    ceres::Solver::Options options;
    options.linear_solver_type = moments_.size() <= kDenseMoments ? ceres::DENSE_SCHUR : ceres::SPARSE_SCHUR;
    options.max_num_iterations = kIterations;
    options.function_tolerance = 1e-7;
    options.num_threads = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    options.logging_type = ceres::SILENT;
    StopWhenCancelled stop(cancelled_);
    options.callbacks.push_back(&stop);
    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    if (cancelled_()) throw Cancelled();
  }

  void addImage(ceres::Problem& problem, size_t image) {
    const Mount& mount = rigid_.mounts[image];
    gs::colmap::Camera& camera = rigid_.model.cameras.at(rigid_.model.images[image].cameraId);
    visitCamera(camera.model, [&]<typename Camera>(Camera) {
      for (const Observation& seen : rigid_.observations[image]) {
        if (seen.point == Observation::kNoPoint) continue;
        using Cost = ceres::AutoDiffCostFunction<Error<Camera>, 2, 4, 3, 4, 3, Camera::kParameters, 3>;
        problem.AddResidualBlock(new Cost(new Error<Camera>{seen.x, seen.y}), &loss_,
                                 moments_[mount.moment].rotation.data(), moments_[mount.moment].translation.data(),
                                 sensors_[mount.sensor].rotation.data(), sensors_[mount.sensor].translation.data(),
                                 camera.params.data(), &points_[3 * seen.point]);
      }
    });
  }

  // Keeps constant what is known, and the first moment: where the world begins is nobody's to say.
  void hold(ceres::Problem& problem) {
    const auto rotates = [&](PoseBlock& block) {
      if (problem.HasParameterBlock(block.rotation.data())) problem.SetManifold(block.rotation.data(), &turn_);
    };
    const auto keep = [&](PoseBlock& block) {
      if (!problem.HasParameterBlock(block.rotation.data())) return false;
      problem.SetParameterBlockConstant(block.rotation.data());
      problem.SetParameterBlockConstant(block.translation.data());
      return true;
    };
    for (PoseBlock& block : moments_) rotates(block);
    for (size_t s = 0; s < sensors_.size(); ++s) rigid_.freeSensors[s] ? rotates(sensors_[s]) : void(keep(sensors_[s]));
    for (PoseBlock& block : moments_) {
      if (keep(block)) break;
    }
    for (auto& [id, camera] : rigid_.model.cameras) {
      if (!problem.HasParameterBlock(camera.params.data())) continue;
      if (!rigid_.freeCameras) {
        problem.SetParameterBlockConstant(camera.params.data());
        continue;
      }
      visitCamera(camera.model, [&]<typename Camera>(Camera) {
        problem.SetManifold(camera.params.data(), &principalPoint<Camera>());
      });
    }
  }

  template <typename Camera>
  static ceres::Manifold& principalPoint() {
    static ceres::SubsetManifold manifold(Camera::kParameters, {Camera::kFocals, Camera::kFocals + 1});
    return manifold;
  }

  double errorOf(size_t image, const Observation& seen) const {
    const Mount& mount = rigid_.mounts[image];
    const gs::colmap::Camera& camera = rigid_.model.cameras.at(rigid_.model.images[image].cameraId);
    double error = 0;
    visitCamera(camera.model, [&]<typename Camera>(Camera) {
      std::array<double, 2> residual{};
      Error<Camera>{seen.x, seen.y}(moments_[mount.moment].rotation.data(), moments_[mount.moment].translation.data(),
                                    sensors_[mount.sensor].rotation.data(), sensors_[mount.sensor].translation.data(),
                                    camera.params.data(), &points_[3 * seen.point], residual.data());
      error = std::hypot(residual[0], residual[1]);
    });
    return error;
  }

  template <typename Visit>
  void eachObservation(Visit&& visit) {
    for (size_t i = 0; i < rigid_.observations.size(); ++i) {
      for (Observation& seen : rigid_.observations[i]) {
        if (seen.point != Observation::kNoPoint) visit(i, seen);
      }
    }
  }

  size_t filter() {
    size_t dropped = 0;
    const auto drop = [&](Observation& seen) {
      --tracks_[seen.point];
      seen.point = Observation::kNoPoint;
      ++dropped;
    };
    if (adjusted_) {
      eachObservation([&](size_t image, Observation& seen) {
        if (!(errorOf(image, seen) <= kMaxError)) drop(seen);
      });
    }
    adjusted_ = true;
    eachObservation([&](size_t, Observation& seen) {
      if (tracks_[seen.point] < 2) drop(seen);
    });
    return dropped;
  }

  double meanError() {
    double sum = 0;
    size_t count = 0;
    eachObservation([&](size_t image, const Observation& seen) {
      sum += errorOf(image, seen);
      ++count;
    });
    return count == 0 ? 0 : sum / static_cast<double>(count);
  }

  // Poses and points into the model, without the points that nothing sees any more.
  void store() {
    for (size_t m = 0; m < moments_.size(); ++m) rigid_.moments[m] = moments_[m].pose();
    for (size_t s = 0; s < sensors_.size(); ++s) rigid_.sensors[s] = sensors_[s].pose();
    for (size_t i = 0; i < rigid_.mounts.size(); ++i) {
      const Mount& mount = rigid_.mounts[i];
      setPose(rigid_.model.images[i], rigid_.sensors[mount.sensor] * rigid_.moments[mount.moment]);
    }
    storePoints();
  }

  void storePoints() {
    std::vector<double> errors(tracks_.size());
    eachObservation([&](size_t image, const Observation& seen) { errors[seen.point] += errorOf(image, seen); });
    gs::colmap::Points& points = rigid_.model.points;
    gs::colmap::Points kept;
    std::vector<size_t> places(tracks_.size());
    std::vector<double> positions;
    std::vector<size_t> tracks;
    for (size_t p = 0; p < tracks_.size(); ++p) {
      if (tracks_[p] == 0) continue;
      places[p] = kept.count();
      for (size_t k = 3 * p; k < 3 * p + 3; ++k) {
        kept.positions.push_back(static_cast<float>(points_[k]));
        kept.colors.push_back(points.colors[k]);
        positions.push_back(points_[k]);
      }
      kept.errors.push_back(static_cast<float>(errors[p] / static_cast<double>(tracks_[p])));
      tracks.push_back(tracks_[p]);
    }
    eachObservation([&](size_t, Observation& seen) { seen.point = places[seen.point]; });
    points = std::move(kept);
    points_ = std::move(positions);
    tracks_ = std::move(tracks);
  }

  RigidModel& rigid_;
  const std::function<bool()>& cancelled_;
  std::vector<PoseBlock> moments_, sensors_;
  std::vector<double> points_;  // 3 a point
  std::vector<size_t> tracks_;  // observations of each point
  bool adjusted_ = false;
  ceres::SoftLOneLoss loss_{kLossScale};
  ceres::EigenQuaternionManifold turn_;
};

}  // namespace

bool canAdjust(const gs::colmap::Model& model) {
  return std::ranges::all_of(model.cameras, [](const auto& entry) {
    bool fits = false;
    return visitCamera(entry.second.model,
                       [&]<typename Camera>(Camera) { fits = entry.second.params.size() == Camera::kParameters; }) &&
           fits;
  });
}

AdjustmentSummary adjust(RigidModel& rigid, const std::function<bool()>& cancelled) {
  return Adjuster(rigid, cancelled).run();
}

}  // namespace quor::refine
