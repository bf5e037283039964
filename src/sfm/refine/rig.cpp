#include "sfm/refine/rig.h"

#include <algorithm>
#include <numbers>
#include <numeric>

namespace quor::refine {
namespace {

constexpr double kAgreedRotation = 5 * std::numbers::pi / 180;
constexpr double kAgreedSpread = 3;  // times the usual distance between the centres of one moment

struct Vote {
  size_t image = 0;  // of the model
  Pose pose;
  double weight = 0;
};
using Votes = std::vector<Vote>;

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

bool agree(const Pose& a, const Pose& b, double distance) {
  return a.rotation.angularDistance(b.rotation) < kAgreedRotation && (a.centre() - b.centre()).norm() <= distance;
}

// The weighted mean of poses that are close together.
Pose mean(const Votes& votes) {
  Eigen::Vector4d rotation = Eigen::Vector4d::Zero();
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  double weights = 0;
  for (const Vote& vote : votes) {
    const Eigen::Vector4d q = vote.pose.rotation.coeffs();
    const double sign = q.dot(votes.front().pose.rotation.coeffs()) < 0 ? -1 : 1;
    rotation += vote.weight * sign * q;
    centre += vote.weight * vote.pose.centre();
    weights += vote.weight;
  }
  const Eigen::Quaterniond turned(rotation.normalized());
  return {turned, -(turned * (centre / weights))};
}

// The votes that agree with the one which most of the weight agrees with.
Votes majority(const Votes& votes, double distance) {
  Votes best;
  double most = -1;
  for (const Vote& centre : votes) {
    Votes with;
    double weight = 0;
    for (const Vote& vote : votes) {
      if (!agree(centre.pose, vote.pose, distance)) continue;
      with.push_back(vote);
      weight += vote.weight;
    }
    if (weight > most) {
      most = weight;
      best = std::move(with);
    }
  }
  return best;
}

double usualDistance(const std::vector<Votes>& moments) {
  std::vector<double> distances;
  for (const Votes& votes : moments) {
    for (size_t i = 0; i < votes.size(); ++i) {
      for (size_t k = i + 1; k < votes.size(); ++k) {
        if (votes[i].pose.rotation.angularDistance(votes[k].pose.rotation) > kAgreedRotation) continue;
        distances.push_back((votes[i].pose.centre() - votes[k].pose.centre()).norm());
      }
    }
  }
  return median(std::move(distances));
}

class Fusion {
 public:
  Fusion(const gs::colmap::Model& model, const std::vector<double>& weights, const RigLayout& layout)
      : model_(model), weights_(weights), layout_(layout) {
    fused_.sensors.resize(layout.sensors().size());
    fused_.known.resize(layout.sensors().size());
    fused_.estimated.resize(layout.sensors().size());
    fused_.moments.resize(layout.moments());
    images_.resize(layout.moments());
    for (size_t i = 0; i < model.images.size(); ++i) {
      if (const Mount* mount = layout.find(model.images[i].name)) images_[mount->moment].push_back({i, mount->sensor});
    }
  }

  FusedRig run() {
    for (size_t s = 0; s < fused_.sensors.size(); ++s) placeSensor(s);
    fuse();
    return std::move(fused_);
  }

 private:
  struct Seen {
    size_t image, sensor;
  };

  // Sensors come in the order of their groups: the first of a rig, which others are measured against, is its frame.
  void placeSensor(size_t sensor) {
    if (const auto& rotation = layout_.sensors()[sensor].rotation) {
      fused_.sensors[sensor].rotation = *rotation;
      fused_.known[sensor] = true;
      return;
    }
    bool alone = true;
    Votes votes;
    for (const std::vector<Seen>& moment : images_) {
      const auto own = std::ranges::find(moment, sensor, &Seen::sensor);
      if (own == moment.end()) continue;
      for (const Seen& other : moment) {
        if (other.sensor >= sensor || !fused_.known[other.sensor]) continue;
        alone = false;
        const Pose rig = fused_.sensors[other.sensor].inverse() * poseOf(model_.images[other.image]);
        votes.push_back({own->image, poseOf(model_.images[own->image]) * rig.inverse(),
                         std::min(weights_[own->image], weights_[other.image])});
      }
    }
    fused_.known[sensor] = alone || votes.size() >= kMinMoments;
    if (alone || votes.size() < kMinMoments) return;
    fused_.estimated[sensor] = true;
    std::vector<double> lengths;
    for (const Vote& vote : votes) lengths.push_back(vote.pose.centre().norm());
    fused_.sensors[sensor] = mean(majority(votes, kAgreedSpread * median(std::move(lengths))));
  }

  void fuse() {
    std::vector<Votes> moments(images_.size());
    for (size_t m = 0; m < images_.size(); ++m) {
      for (const Seen& seen : images_[m]) {
        if (!fused_.known[seen.sensor]) continue;
        const Pose rig = fused_.sensors[seen.sensor].inverse() * poseOf(model_.images[seen.image]);
        moments[m].push_back({seen.image, rig, std::max(weights_[seen.image], 1.0)});
      }
    }
    const double distance = kAgreedSpread * usualDistance(moments);
    for (size_t m = 0; m < moments.size(); ++m) {
      if (moments[m].empty()) continue;
      const Votes agreed = majority(moments[m], distance);
      fused_.moments[m] = mean(agreed);
      for (const Vote& vote : moments[m]) {
        if (std::ranges::find(agreed, vote.image, &Vote::image) == agreed.end()) {
          fused_.contradicting.push_back(model_.images[vote.image].name);
        }
      }
    }
  }

  static constexpr size_t kMinMoments = 3;

  const gs::colmap::Model& model_;
  const std::vector<double>& weights_;
  const RigLayout& layout_;
  std::vector<std::vector<Seen>> images_;  // by moment
  FusedRig fused_;
};

}  // namespace

RigLayout::RigLayout(const std::vector<ImageGroup>& groups) {
  for (size_t g = 0; g < groups.size(); ++g) {
    for (const RigView& view : groups[g].rig) {
      Sensor& sensor = sensors_.emplace_back(Sensor{g, {}});
      if (view.rotation) {
        const auto& q = *view.rotation;
        sensor.rotation = Eigen::Quaterniond(q[0], q[1], q[2], q[3]).normalized();
      }
      for (const std::string& image : groups[g].images) {
        const std::string stem = image.substr(0, image.rfind('.'));
        if (!stem.ends_with(view.suffix)) continue;
        const std::string moment = stem.substr(0, stem.size() - view.suffix.size());
        const size_t number = moments_.try_emplace(moment, moments_.size()).first->second;
        mounts_[image] = {number, sensors_.size() - 1};
      }
    }
  }
}

const Mount* RigLayout::find(const std::string& image) const {
  const auto found = mounts_.find(image);
  return found == mounts_.end() ? nullptr : &found->second;
}

FusedRig fuseMoments(const gs::colmap::Model& model, const std::vector<double>& weights, const RigLayout& layout) {
  return Fusion(model, weights, layout).run();
}

}  // namespace quor::refine
