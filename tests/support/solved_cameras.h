// How far the cameras of a solved model lie from the ones that took the pictures. A solve knows neither where the world
// begins nor how large it is, so the two are brought together by a similarity first.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/text/text.h"
#include "colmap/model.h"
#include "sample_capture/pose.h"

namespace quor::test {

struct TruePose {
  std::string name;  // of the image in the solved model, without folders
  sample::Pose pose;
};

struct CameraErrors {
  size_t compared = 0;  // images that are both in the model and in the truth
  double rotation = 0;  // median, degrees
  double position = 0;  // median, as a fraction of the orbit's radius
};

inline sample::Pose poseOf(const std::array<double, 4>& wxyz, sample::Vec3 centre) {
  const double norm = std::sqrt(wxyz[0] * wxyz[0] + wxyz[1] * wxyz[1] + wxyz[2] * wxyz[2] + wxyz[3] * wxyz[3]);
  const double w = wxyz[0] / norm, x = wxyz[1] / norm, y = wxyz[2] / norm, z = wxyz[3] / norm;
  sample::Pose pose{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y),  //
                     2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x),  //
                     2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)},
                    {0, 0, 0}};
  const auto [tx, ty, tz] = pose.toCamera(centre * -1.0);
  pose.translation = {tx, ty, tz};
  return pose;
}

// The cameras.csv of a sample capture.
struct TrueVideo {
  std::vector<std::vector<sample::Pose>> lenses;  // frame by frame
  double rate = 1;                                // frames a second
};

inline TrueVideo readTrueVideo(const std::filesystem::path& csv) {
  std::ifstream file(csv);
  std::string line;
  std::getline(file, line);
  TrueVideo video;
  while (std::getline(file, line)) {
    size_t frame = 0, lens = 0;
    double time = 0;
    std::array<double, 4> q{};
    sample::Vec3 centre;
    if (std::sscanf(line.c_str(), "%zu,%lf,%zu,%lf,%lf,%lf,%lf,%lf,%lf,%lf", &frame, &time, &lens, &q[0], &q[1], &q[2],
                    &q[3], &centre.x, &centre.y, &centre.z) != 10) {
      throw std::runtime_error("Not a table of true cameras: " + csv.string());
    }
    video.lenses.resize(std::max(video.lenses.size(), lens));
    video.lenses[lens - 1].push_back(poseOf(q, centre));
    if (frame == 2) video.rate = 1 / time;
  }
  if (video.lenses.empty()) throw std::runtime_error("No true cameras in " + csv.string());
  return video;
}

// The frame of the source that FFmpeg's fps filter gives as its sampled one (both counted from 0): the last whose time,
// rounded to the sampling grid, is not later.
inline size_t sourceFrame(size_t sampled, double sourceRate, double samplingRate) {
  size_t frame = 0;
  while (std::llround(static_cast<double>(frame + 1) * samplingRate / sourceRate) <= static_cast<long long>(sampled)) {
    ++frame;
  }
  return frame;
}

using Turn = std::array<double, 9>;  // row-major, from one camera's frame to another's
constexpr Turn kNoTurn = {1, 0, 0, 0, 1, 0, 0, 0, 1};

inline sample::Pose turned(const sample::Pose& camera, const Turn& turn) {
  sample::Pose pose{{}, {}};
  for (size_t row = 0; row < 3; ++row) {
    for (size_t k = 0; k < 3; ++k) {
      const double share = turn[3 * row + k];
      for (size_t column = 0; column < 3; ++column) {
        pose.rotation[3 * row + column] += share * camera.rotation[3 * k + column];
      }
      pose.translation[row] += share * camera.translation[k];
    }
  }
  return pose;
}

// What is true of every image that is extracted from a video at a sampling rate. `label` names the image's part after
// the frame's number, "_lens1" for example; `turn` leads from the camera of the table to that of the image.
inline void appendSampled(std::vector<TruePose>& truth, const TrueVideo& video, size_t lens, double samplingRate,
                          const std::string& label, const Turn& turn = kNoTurn) {
  const std::vector<sample::Pose>& frames = video.lenses[lens];
  for (size_t i = 0;; ++i) {
    const size_t source = sourceFrame(i, video.rate, samplingRate);
    if (source >= frames.size()) return;
    truth.push_back({formatText("f%05zu%s.jpg", i + 1, label.c_str()), turned(frames[source], turn)});
  }
}

// The turn from a sphere's camera to that of a flat view cut from it, in degrees to the right and up.
inline Turn viewTurn(double yaw, double pitch) {
  const double y = yaw * std::numbers::pi / 180, p = pitch * std::numbers::pi / 180;
  return {std::cos(y),
          0,
          -std::sin(y),  //
          std::sin(p) * std::sin(y),
          std::cos(p),
          std::sin(p) * std::cos(y),  //
          std::cos(p) * std::sin(y),
          -std::sin(p),
          std::cos(p) * std::cos(y)};
}

// Maps solved places to true ones: true = scale * turn * solved + shift.
struct Similarity {
  double scale = 1;
  std::array<double, 4> turn = {1, 0, 0, 0};  // w x y z
  sample::Vec3 shift;

  sample::Vec3 operator()(sample::Vec3 solved) const { return poseOf(turn, {}).toCamera(solved) * scale + shift; }
};

// The unit quaternion whose rotation leads from one set of directions to another: the eigenvector of the largest
// eigenvalue of `n`, found by squaring a multiple of n + c until nothing else is left.
inline std::array<double, 4> largestEigenvector(std::array<std::array<double, 4>, 4> n) {
  const auto size = [&] {
    double sum = 0;
    for (const auto& row : n) {
      for (const double value : row) sum += value * value;
    }
    return std::sqrt(sum);
  };
  const double shift = size();
  for (size_t i = 0; i < 4; ++i) n[i][i] += shift;
  for (int doubling = 0; doubling < 40; ++doubling) {
    std::array<std::array<double, 4>, 4> square{};
    for (size_t i = 0; i < 4; ++i) {
      for (size_t j = 0; j < 4; ++j) {
        for (size_t k = 0; k < 4; ++k) square[i][j] += n[i][k] * n[k][j];
      }
    }
    n = square;
    const double scale = 1 / size();
    for (auto& row : n) {
      for (double& value : row) value *= scale;
    }
  }
  // Every column is a multiple of the vector; the longest is the most exact.
  size_t best = 0;
  for (size_t i = 1; i < 4; ++i) {
    if (n[i][i] > n[best][best]) best = i;
  }
  return {n[0][best], n[1][best], n[2][best], n[3][best]};
}

// Least squares over the places (Horn 1987, "Closed-form solution of absolute orientation using unit quaternions"),
// which holds for places in one plane, too.
inline Similarity alignPlaces(const std::vector<sample::Vec3>& solved, const std::vector<sample::Vec3>& truth) {
  const auto mean = [](const std::vector<sample::Vec3>& places) {
    sample::Vec3 sum;
    for (const sample::Vec3& place : places) sum = sum + place;
    return sum * (1.0 / static_cast<double>(places.size()));
  };
  const sample::Vec3 solvedMean = mean(solved), trueMean = mean(truth);
  double xx = 0, xy = 0, xz = 0, yx = 0, yy = 0, yz = 0, zx = 0, zy = 0, zz = 0, spread = 0;
  for (size_t i = 0; i < solved.size(); ++i) {
    const sample::Vec3 a = solved[i] - solvedMean, b = truth[i] - trueMean;
    xx += a.x * b.x, xy += a.x * b.y, xz += a.x * b.z;
    yx += a.y * b.x, yy += a.y * b.y, yz += a.y * b.z;
    zx += a.z * b.x, zy += a.z * b.y, zz += a.z * b.z;
    spread += dot(a, a);
  }
  Similarity similarity;
  similarity.turn = largestEigenvector({{{xx + yy + zz, yz - zy, zx - xz, xy - yx},
                                         {yz - zy, xx - yy - zz, xy + yx, zx + xz},
                                         {zx - xz, xy + yx, yy - xx - zz, yz + zy},
                                         {xy - yx, zx + xz, yz + zy, zz - xx - yy}}});
  const sample::Pose turn = poseOf(similarity.turn, {});
  double along = 0;
  for (size_t i = 0; i < solved.size(); ++i) along += dot(turn.toCamera(solved[i] - solvedMean), truth[i] - trueMean);
  similarity.scale = along / spread;
  similarity.shift = trueMean - turn.toCamera(solvedMean) * similarity.scale;
  return similarity;
}

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Degrees between the ways in which two cameras look.
inline double angleBetween(const std::array<double, 9>& a, const std::array<double, 9>& b) {
  double squares = 0;  // of the difference, 8 sin^2(angle / 2): exact for small angles, unlike the trace
  for (size_t i = 0; i < 9; ++i) squares += (a[i] - b[i]) * (a[i] - b[i]);
  return 2 * std::asin(std::min(1.0, std::sqrt(squares / 8))) * 180 / std::numbers::pi;
}

// A camera whose world is moved along by the similarity.
inline sample::Pose moved(const sample::Pose& solved, const Similarity& similarity) {
  const sample::Pose turn = poseOf(similarity.turn, {});
  sample::Pose pose;
  for (size_t row = 0; row < 9; row += 3) {
    const auto [x, y, z] = turn.toCamera({solved.rotation[row], solved.rotation[row + 1], solved.rotation[row + 2]});
    pose.rotation[row] = x;
    pose.rotation[row + 1] = y;
    pose.rotation[row + 2] = z;
  }
  const auto [tx, ty, tz] = pose.toCamera(similarity(solved.centre()) * -1.0);
  pose.translation = {tx, ty, tz};
  return pose;
}

// Compares the images that have a name in `truth`. The radius of the orbit is the true cameras' mean distance from the
// world's z axis. Throws std::runtime_error for fewer than three.
inline CameraErrors compareWithTruth(const gs::colmap::Model& solved, const std::vector<TruePose>& truth) {
  std::map<std::string, const sample::Pose*> byName;
  for (const TruePose& pose : truth) byName[pose.name] = &pose.pose;
  std::vector<sample::Pose> found;
  std::vector<const sample::Pose*> meant;
  std::vector<sample::Vec3> foundPlaces, meantPlaces;
  double radius = 0;
  for (const gs::colmap::Image& image : solved.images) {
    const auto match = byName.find(image.name.substr(image.name.rfind('/') + 1));
    if (match == byName.end()) continue;
    found.push_back({poseOf(image.qvec, {}).rotation, image.tvec});
    meant.push_back(match->second);
    foundPlaces.push_back(found.back().centre());
    meantPlaces.push_back(match->second->centre());
    radius += std::hypot(meantPlaces.back().x, meantPlaces.back().y);
  }
  if (found.size() < 3) throw std::runtime_error("Too few solved cameras have a true one to compare them with.");
  radius /= static_cast<double>(found.size());

  const Similarity similarity = alignPlaces(foundPlaces, meantPlaces);
  std::vector<double> rotations, positions;
  for (size_t i = 0; i < found.size(); ++i) {
    const sample::Pose aligned = moved(found[i], similarity);
    rotations.push_back(angleBetween(aligned.rotation, meant[i]->rotation));
    positions.push_back(length(aligned.centre() - meantPlaces[i]) / radius);
  }
  return {found.size(), median(rotations), median(positions)};
}

}  // namespace quor::test
