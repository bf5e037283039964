#include "sample_capture/options.h"

#include <charconv>
#include <cmath>
#include <string_view>

#include "base/paths.h"

namespace quor::sample {
namespace {

constexpr int kLargestEdge = 16384;
constexpr int kMostPhotos = 9999;  // what four digits name in order
constexpr size_t kMostPoints = 1000000;

template <typename T>
T wholeNumber(std::string_view option, std::string_view text, T least, T most) {
  T value{};
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || rest != end || value < least || value > most) {
    throw UsageError(std::string(option) + " takes a whole number from " + std::to_string(least) + " to " +
                     std::to_string(most) + ", not '" + std::string(text) + "'.");
  }
  return value;
}

ImageSize sizeOf(std::string_view text) {
  const size_t cross = text.find('x');
  if (cross == std::string_view::npos) {
    const int edge = wholeNumber("--size", text, 1, kLargestEdge);
    return {edge, std::max(1, static_cast<int>(std::lround(edge * 2.0 / 3.0)))};
  }
  return {wholeNumber("--size", text.substr(0, cross), 1, kLargestEdge),
          wholeNumber("--size", text.substr(cross + 1), 1, kLargestEdge)};
}

void checkKind(std::string_view kind) {
  if (kind == "photos") return;
  if (kind == "video" || kind == "video360" || kind == "dualfisheye") {
    throw UsageError("--kind " + std::string(kind) + " is not there yet; only photos can be made.");
  }
  throw UsageError("--kind takes photos, video, video360 or dualfisheye, not '" + std::string(kind) + "'.");
}

void setOut(Options& options, std::string_view folder) {
  if (!options.out.empty())
    throw UsageError("Only one folder can be written, but a second one is given: " + std::string(folder) + ".");
  options.out = fromUtf8(folder);
}

void setValue(Options& options, std::string_view option, std::string_view value) {
  if (option == "--kind") checkKind(value);
  if (option == "--size") options.orbit.size = sizeOf(value);
  if (option == "--count") options.orbit.count = wholeNumber("--count", value, 1, kMostPhotos);
  if (option == "--seed") options.orbit.seed = wholeNumber<uint64_t>("--seed", value, 0, UINT64_MAX);
  if (option == "--points") options.points = wholeNumber<size_t>("--points", value, 1, kMostPoints);
  if (option == "--out") setOut(options, value);
}

bool takesValue(std::string_view option) {
  return option == "--kind" || option == "--size" || option == "--count" || option == "--seed" ||
         option == "--points" || option == "--out";
}

}  // namespace

Options parseOptions(std::span<const char* const> arguments) {
  Options options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "--help") {
      options.help = true;
      return options;
    }
    if (takesValue(argument)) {
      if (i + 1 == arguments.size()) throw UsageError(std::string(argument) + " needs a value.");
      setValue(options, argument, arguments[++i]);
    } else if (argument == "--model") {
      options.binaryModel = true;
    } else if (argument == "--model-text") {
      options.textModel = true;
    } else if (argument.starts_with("--")) {
      throw UsageError("There is no option " + std::string(argument) + ".");
    } else {
      setOut(options, argument);
    }
  }
  if (options.out.empty()) throw UsageError("A folder to write to is needed.");
  if ((options.binaryModel || options.textModel) && options.orbit.count < 2) {
    throw UsageError("A model needs at least two photographs: --count 2 or more.");
  }
  return options;
}

const char* usageText() {
  return "Usage: sample_capture [options] FOLDER\n"
         "Photographs a made-up room from an orbit within it: FOLDER/images, and with --model FOLDER/sparse/0.\n"
         "\n"
         "  --kind photos    what to make; video, video360 and dualfisheye are to come\n"
         "  --count N        number of photographs (36)\n"
         "  --size N | WxH   longest edge of a 3:2 photograph, or both edges, in pixels (320)\n"
         "  --seed N         another seed is another room and another orbit (1)\n"
         "  --model          also write the true cameras and surface points as a binary COLMAP model\n"
         "  --model-text     the same in COLMAP's text encoding\n"
         "  --points N       number of surface points in the model (6000)\n"
         "  --out FOLDER     the same as FOLDER alone\n"
         "  --help           this text\n";
}

}  // namespace quor::sample
