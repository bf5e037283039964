// Images of one moment as parts of one pose. A sphere's views share their centre and know their rotations, the two
// lenses of a dual fisheye sit in one body; the solve places each image for itself, and here they come together again.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "colmap/model.h"
#include "project/project.h"
#include "sfm/refine/pose.h"

namespace quor::refine {

// Whose part an image is.
struct Mount {
  size_t moment = 0;
  size_t sensor = 0;
};

// Which images belong together, by their names.
class RigLayout {
 public:
  struct Sensor {
    size_t group = 0;                            // of images, with a camera of its own
    std::optional<Eigen::Quaterniond> rotation;  // rig to camera where it is known
  };

  explicit RigLayout(const std::vector<ImageGroup>& groups);

  bool empty() const { return mounts_.empty(); }
  const std::vector<Sensor>& sensors() const { return sensors_; }
  size_t moments() const { return moments_.size(); }
  const Mount* find(const std::string& image) const;
  const std::map<std::string, Mount>& mounts() const { return mounts_; }

 private:
  std::vector<Sensor> sensors_;
  std::map<std::string, size_t> moments_;  // by the images' name without suffix
  std::map<std::string, Mount> mounts_;    // by the image's name
};

// A model's rigs after the views of each moment have agreed on one pose.
struct FusedRig {
  std::vector<Pose> sensors;                 // rig to camera
  std::vector<bool> known;                   // whether the sensor's pose is given or could be found
  std::vector<bool> estimated;               // whether it was found, so that it is open to adjustment
  std::vector<std::optional<Pose>> moments;  // world to rig; nothing where no image was placed
  std::vector<std::string> contradicting;    // images that the solve had placed elsewhere
};
// Each image votes with its observations (`weights`, one for each of the model's images). A sensor whose rotation is
// not known is found from the moments in which it and the first sensor beside it were both placed.
FusedRig fuseMoments(const gs::colmap::Model& model, const std::vector<double>& weights, const RigLayout& layout);

}  // namespace quor::refine
