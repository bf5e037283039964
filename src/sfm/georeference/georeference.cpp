#include "sfm/georeference/georeference.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <utility>

#include "base/text/text.h"
#include "colmap/rewrite_model.h"
#include "sfm/georeference/up_axis.h"
#include "sfm/georeference/wgs84.h"

namespace quor {
namespace {

constexpr size_t kFewestPositions = 4;
constexpr double kFewestAgreeing = 0.5;  // of the positions
constexpr double kNarrow = 0.05;         // lesser width of a line, of its length
constexpr double kBestReceiver = 0.05;   // metres; closer agreement proves nothing
// Largest median residual of the lesser width: beyond it, direction and scale are those of the errors.
constexpr double kMostError = 0.25;
// From this share of the lesser width on, errors of 90 % of the positions tilt the scene by more than people hold their
// cameras off level.
constexpr double kTiltingError = 0.05;

struct Correspondences {
  Places solved, measured;  // camera centres; metres about the origin
  GeoPosition origin;
};

double medianOf(const std::vector<GeoPosition>& positions, double GeoPosition::*part) {
  std::vector<double> values;
  values.reserve(positions.size());
  for (const GeoPosition& position : positions) values.push_back(position.*part);
  return quantile(values, 0.5);
}

Correspondences correspondencesOf(const std::vector<gs::colmap::Image>& images,
                                  const std::map<std::string, GeoPosition>& positions) {
  Correspondences pairs;
  std::vector<GeoPosition> known;
  for (const gs::colmap::Image& image : images) {
    const auto found = positions.find(image.name);
    if (found == positions.end()) continue;
    known.push_back(found->second);
    pairs.solved.push_back(CameraPose(image).centre);
  }
  if (known.empty()) return pairs;
  // The median stays near most of the positions, whatever a wrong one says.
  pairs.origin = {medianOf(known, &GeoPosition::latitude), medianOf(known, &GeoPosition::longitude),
                  medianOf(known, &GeoPosition::altitude)};
  const LocalFrame frame(pairs.origin);
  for (const GeoPosition& position : known) pairs.measured.push_back(frame.place(position));
  return pairs;
}

Similarity turned(const Eigen::Vector3d& up) {
  Similarity similarity;
  similarity.rotation = Eigen::Quaterniond::FromTwoVectors(up, Eigen::Vector3d::UnitZ()).toRotationMatrix();
  return similarity;
}

std::vector<double> agreeingResiduals(const RobustSimilarity& fit) {
  std::vector<double> residuals;
  for (size_t i = 0; i < fit.residuals.size(); ++i) {
    if (fit.weights[i] > 0) residuals.push_back(fit.residuals[i]);
  }
  return residuals;
}

// Why the positions cannot place the scene; empty when they can.
std::string refusalOf(const Correspondences& pairs, const RobustSimilarity& fit) {
  const size_t count = pairs.solved.size();
  const std::vector<double> residuals = agreeingResiduals(fit);
  if (residuals.size() < kFewestPositions ||
      static_cast<double>(residuals.size()) < kFewestAgreeing * static_cast<double>(count)) {
    return formatText("Only %zu of %zu GPS positions agree with the solved cameras", residuals.size(), count);
  }
  const Eigen::Vector3d measured = principalSpreads(pairs.measured, fit.weights);
  const Eigen::Vector3d solved = principalSpreads(pairs.solved, fit.weights);
  if (!(measured[1] > kNarrow * measured[0] && solved[1] > kNarrow * solved[0])) {
    return "The photographs' GPS positions lie on one line or in one place";
  }
  // A fit of seven unknowns comes closer to few positions than they are to the truth.
  const double equations = 3 * static_cast<double>(residuals.size());
  const double median = quantile(residuals, 0.5) * std::sqrt(equations / (equations - 7));
  if (median <= kMostError * measured[1]) return {};
  return formatText(
      "The photographs' GPS positions are off by %.1f m in the median, too much for a capture whose "
      "cameras are spread over %.1f m",
      median, 2 * measured[1]);
}

// The photographs' own up decides the tilt, and their positions the rest: the horizontal ones direction and scale, the
// heights nothing but the height. Nothing when they cannot.
std::optional<RobustSimilarity> fitUpright(const Correspondences& pairs, const Eigen::Vector3d& up) {
  const Eigen::Matrix3d upright = turned(up).rotation;
  Places solved, measured;
  for (size_t i = 0; i < pairs.solved.size(); ++i) {
    solved.push_back((upright * pairs.solved[i]).cwiseProduct(Eigen::Vector3d(1, 1, 0)));
    measured.push_back(pairs.measured[i].cwiseProduct(Eigen::Vector3d(1, 1, 0)));
  }
  auto fit = fitRobustly(solved, measured, fitLevelSimilarity, 2, kBestReceiver);
  if (!fit || !refusalOf(pairs, *fit).empty()) return std::nullopt;
  fit->similarity.rotation = fit->similarity.rotation * upright;
  std::vector<double> heights;
  for (size_t i = 0; i < solved.size(); ++i) {
    if (fit->weights[i] > 0) heights.push_back((pairs.measured[i] - fit->similarity(pairs.solved[i])).z());
  }
  fit->similarity.shift.z() += quantile(heights, 0.5);
  for (size_t i = 0; i < solved.size(); ++i) {
    fit->residuals[i] = (fit->similarity(pairs.solved[i]) - pairs.measured[i]).norm();
  }
  return fit;
}

std::string describe(const Georeference& found) {
  return formatText(
      "%zu of %zu GPS positions agree with the solved cameras, to %.2f m in the median and %.2f m for 90%%: "
      "one unit of the solve is %.4g m. The scene is now in metres, x to the east, y to the north, z up, "
      "about latitude %.7f, longitude %.7f, altitude %.1f m.",
      found.agreeing, found.positions, found.medianResidual, found.residual90, found.metresPerUnit,
      found.origin.latitude, found.origin.longitude, found.origin.altitude);
}

// Fills the frame from the positions, or returns why not; empty without positions too.
std::string placeOnEarth(const Correspondences& pairs, const std::optional<UpAxis>& up, WorldFrame& frame) {
  const size_t count = pairs.solved.size();
  if (count == 0) return {};
  if (count < kFewestPositions) {
    return formatText("Only %zu of the solved photographs know their GPS position, and %zu are needed", count,
                      kFewestPositions);
  }
  std::optional<RobustSimilarity> fit = fitRobustly(pairs.solved, pairs.measured, fitSimilarity, 3, kBestReceiver);
  if (!fit) return "The photographs' GPS positions lie on one line or in one place";
  if (std::string refusal = refusalOf(pairs, *fit); !refusal.empty()) return refusal;

  const double width = principalSpreads(pairs.measured, fit->weights)[1];
  if (up && !up->looksDown && quantile(agreeingResiduals(*fit), 0.9) > kTiltingError * width) {
    if (const auto upright = fitUpright(pairs, up->up)) fit = upright;
  }
  const std::vector<double> residuals = agreeingResiduals(*fit);
  frame.worldFromSolve = fit->similarity;
  frame.georeference = {pairs.origin,     fit->similarity.scale,    count,
                        residuals.size(), quantile(residuals, 0.5), quantile(residuals, 0.9)};
  frame.messages = {describe(*frame.georeference)};
  return {};
}

}  // namespace

WorldFrame findWorldFrame(const std::vector<gs::colmap::Image>& images,
                          const std::map<std::string, GeoPosition>& positions) {
  const std::vector<CameraPose> cameras(images.begin(), images.end());
  const std::optional<UpAxis> up = upAxis(cameras);
  WorldFrame frame;
  const std::string refusal = placeOnEarth(correspondencesOf(images, positions), up, frame);
  if (frame.georeference) return frame;
  if (!refusal.empty()) frame.messages.push_back(refusal + ": the scene keeps COLMAP's scale.");
  if (!up) {
    frame.messages.push_back("The photographs do not agree on where up is: the scene keeps COLMAP's axes.");
    return frame;
  }
  frame.worldFromSolve = turned(up->up);
  frame.messages.push_back(
      up->looksDown ? "The cameras look straight down from one height: the scene now stands upright, z up."
                    : formatText("%zu of %zu photographs agree on where up is: the scene now stands upright, "
                                 "z up.",
                                 up->agreeing, cameras.size()));
  return frame;
}

void moveModel(const std::filesystem::path& dir, const Similarity& world) {
  const auto movePose = [&](gs::colmap::Image& image) {
    const Eigen::Matrix3d rotation = CameraPose(image).cameraFromWorld * world.rotation.transpose();
    const Eigen::Vector3d old(image.tvec[0], image.tvec[1], image.tvec[2]);
    const Eigen::Vector3d shift = world.scale * old - rotation * world.shift;
    const Eigen::Quaterniond q(rotation);
    image.qvec = {q.w(), q.x(), q.y(), q.z()};
    image.tvec = {shift.x(), shift.y(), shift.z()};
  };
  const auto movePoint = [&](std::array<double, 3>& point) {
    const Eigen::Vector3d moved = world({point[0], point[1], point[2]});
    point = {moved.x(), moved.y(), moved.z()};
  };
  gs::colmap::rewriteBinaryModel(dir, movePose, movePoint);
}

}  // namespace quor
