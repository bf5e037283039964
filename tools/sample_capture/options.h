// The command line of the sample_capture program.
#pragma once

#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>

#include "sample_capture/capture.h"
#include "sample_capture/path.h"

namespace quor::sample {

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class Kind { Photos, Video, Video360, DualFisheye };

struct Options {
  std::filesystem::path out;
  Kind kind = Kind::Photos;
  SceneKind scene = SceneKind::Room;
  Path path = Path::Orbit;
  Orbit orbit;
  int framesPerSecond = 10;
  size_t points = 6000;
  bool binaryModel = false;
  bool textModel = false;
  bool help = false;
};

// The shape of a picture by its kind, from its longer edge.
ImageSize pictureSize(Kind kind, int edge);

// Throws UsageError with a sentence.
Options parseOptions(std::span<const char* const> arguments);

const char* usageText();

// The file of a capture's kind, within its folder; "images" for photographs.
std::filesystem::path mediaOf(Kind kind);

// Renders the photographs or the video and writes the parts of the truth that were asked for: the model of photographs
// and of a video to out/sparse/0, the cameras of every frame of a video of any kind to out/cameras.csv. What is there
// already is refused. Throws std::runtime_error with a sentence.
void writeCapture(const Options& options);

}  // namespace quor::sample
