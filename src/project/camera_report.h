// What a camera solve is worth: written beside the solve as colmap/report.json, read by every front end.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

// Whether to train on the cameras: yes; yes, but look at the advice; no, two parts of the capture lie over each other.
enum class CameraTrust { Sound, Doubtful, Folded };
const char* trustName(CameraTrust trust);  // "sound", "doubtful", "folded"

struct CameraReport {
  // Neighbouring images that share matches and were placed apart.
  struct Jump {
    std::string first, second;
    size_t matches = 0;
    double degrees = 0;  // between the two cameras, as placed
  };
  struct NotPlaced {
    std::string image;
    std::string reason;
  };
  // The fewest points that hold two parts of the model together.
  struct Link {
    std::string first, second;
    size_t points = 0;
  };
  // No image was taken from the side between these two, seen from the scene.
  struct Gap {
    std::string first, second;
    double degrees = 0;
  };
  // A way in which the cameras were placed.
  struct Attempt {
    std::string name;
    size_t registered = 0;
    double foldScore = 0;
    double reprojectionError = 0;
    double seconds = 0;
    bool kept = false;
  };
  // What the steps of the solve took.
  struct Seconds {
    double features = 0, matching = 0;
    double placing = 0;  // all attempts
    double undistorting = 0;
  };

  CameraTrust trust = CameraTrust::Sound;
  std::string summary;              // one line: whether to train
  std::vector<std::string> advice;  // sentences: what is wrong and what to do next
  size_t images = 0, registered = 0, points = 0;
  std::vector<size_t> modelSizes;  // registered images of every model COLMAP made, largest first
  double reprojectionError = 0;    // mean, pixels
  double trackLength = 0;          // mean number of images that see a point
  size_t neighbours = 0;           // pairs of neighbouring images that were compared
  std::vector<Jump> jumps;         // those among them that contradict the solve
  std::vector<NotPlaced> notPlaced;
  std::optional<Link> weakestLink;
  double turningShare = 0;                // of the steps: turned without moving
  std::optional<double> coverageDegrees;  // around the scene, where the cameras look inwards
  std::vector<Gap> gaps;                  // in that
  std::vector<Attempt> attempts;
  double checkSeconds = 0;  // what this report took
  Seconds seconds;

  double foldScore() const {
    return neighbours == 0 ? 0 : static_cast<double>(jumps.size()) / static_cast<double>(neighbours);
  }

  // Throws std::runtime_error "Cannot write PATH".
  void save(const Project& project) const;
  // Nothing where there is no report or a damaged one.
  static std::optional<CameraReport> load(const Project& project);
};

// The report as JSON, as it is saved.
std::string cameraReportText(const CameraReport& report);

}  // namespace quor
