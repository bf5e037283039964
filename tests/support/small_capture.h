// A COLMAP dataset small enough to load and train on within seconds.
#pragma once

#include "sample_capture/options.h"

namespace quor::test {

inline void writeSmallCapture(const std::filesystem::path& folder) {
  sample::Options options;
  options.out = folder;
  options.orbit = {10, {64, 48}, 1};
  options.points = 300;
  options.textModel = true;
  sample::writeCapture(options);
}

}  // namespace quor::test
