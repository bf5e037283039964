// The command line of the sample_capture program.
#pragma once

#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>

#include "sample_capture/capture.h"

namespace quor::sample {

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::filesystem::path out;
  Orbit orbit;
  size_t points = 6000;
  bool binaryModel = false;
  bool textModel = false;
  bool help = false;
};

// Throws UsageError with a sentence.
Options parseOptions(std::span<const char* const> arguments);

const char* usageText();

// Renders the photographs into out/images and writes the model, if any is asked for, to out/sparse/0. A folder that
// already holds photographs or a model is refused. Throws std::runtime_error with a sentence.
void writeCapture(const Options& options);

}  // namespace quor::sample
