#include "sample_capture/options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

#include "base/files/paths.h"

namespace quor::sample {
namespace {

constexpr int kLargestEdge = 16384;
constexpr int kMaxPictures = 9999;  // four digits keep the names in order
constexpr size_t kMaxPoints = 1000000;

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

ImageSize sizeOf(Kind kind, std::string_view text) {
  const size_t cross = text.find('x');
  if (cross == std::string_view::npos) return pictureSize(kind, wholeNumber("--size", text, 1, kLargestEdge));
  const ImageSize size{wholeNumber("--size", text.substr(0, cross), 1, kLargestEdge),
                       wholeNumber("--size", text.substr(cross + 1), 1, kLargestEdge)};
  const ImageSize shape = pictureSize(kind, size.width);
  const bool free = kind == Kind::Photos || kind == Kind::Video;
  if (!free && (size.width != shape.width || size.height != shape.height)) {
    throw UsageError("A picture of this kind is " + std::to_string(shape.width) + "x" + std::to_string(shape.height) +
                     " when it is " + std::to_string(size.width) + " wide, not " + std::string(text) + ".");
  }
  return size;
}

template <typename T, size_t N>
using Names = std::array<std::pair<std::string_view, T>, N>;

constexpr Names<Kind, 4> kKinds = {{{"photos", Kind::Photos},
                                    {"video", Kind::Video},
                                    {"video360", Kind::Video360},
                                    {"dualfisheye", Kind::DualFisheye}}};
constexpr Names<SceneKind, 5> kScenes = {{{"room", SceneKind::Room},
                                          {"symmetric", SceneKind::Symmetric},
                                          {"corridor", SceneKind::Corridor},
                                          {"turntable", SceneKind::Turntable},
                                          {"turntable-textured", SceneKind::TexturedTurntable}}};
constexpr Names<Path, 4> kPaths = {
    {{"orbit", Path::Orbit}, {"walk", Path::Walk}, {"pan", Path::Pan}, {"cuts", Path::Cuts}}};

// The value that the word names; "a, b or c" in the refusal.
template <typename T, size_t N>
T named(const Names<T, N>& names, std::string_view option, std::string_view word) {
  std::string all;
  for (size_t i = 0; i < N; ++i) {
    if (names[i].first == word) return names[i].second;
    all += (i == 0 ? "" : i + 1 == N ? " or " : ", ") + std::string(names[i].first);
  }
  throw UsageError(std::string(option) + " takes " + all + ", not '" + std::string(word) + "'.");
}

void setOut(Options& options, std::string_view folder) {
  if (!options.out.empty())
    throw UsageError("Only one folder can be written, but a second one is given: " + std::string(folder) + ".");
  options.out = fromUtf8(folder);
}

// Options that depend on others are resolved once all are known.
struct Pending {
  std::optional<std::string_view> size;
  bool count = false;
};

void setValue(Options& options, Pending& pending, std::string_view option, std::string_view value) {
  if (option == "--kind") options.kind = named(kKinds, option, value);
  if (option == "--scene") options.scene = named(kScenes, option, value);
  if (option == "--path") options.path = named(kPaths, option, value);
  if (option == "--size") pending.size = value;
  if (option == "--count") {
    options.orbit.count = wholeNumber("--count", value, 1, kMaxPictures);
    pending.count = true;
  }
  if (option == "--turn") options.orbit.turn = wholeNumber("--turn", value, 1, 3600);
  if (option == "--fps") options.framesPerSecond = wholeNumber("--fps", value, 1, 240);
  if (option == "--seed") options.orbit.seed = wholeNumber<uint64_t>("--seed", value, 0, UINT64_MAX);
  if (option == "--points") options.points = wholeNumber<size_t>("--points", value, 1, kMaxPoints);
  if (option == "--out") setOut(options, value);
}

bool takesValue(std::string_view option) {
  constexpr std::array<std::string_view, 10> kOptions = {"--kind", "--scene", "--path", "--size",   "--count",
                                                         "--turn", "--fps",   "--seed", "--points", "--out"};
  return std::find(kOptions.begin(), kOptions.end(), option) != kOptions.end();
}

void refuseMisfits(const Options& options) {
  const bool orbitsRoom = options.scene == SceneKind::Room && options.path == Path::Orbit;
  if ((options.kind == Kind::Video360 || options.kind == Kind::DualFisheye) && !orbitsRoom) {
    throw UsageError("--scene and --path are for photos and video; the other kinds film an orbit of the room.");
  }
  if (options.scene != SceneKind::Room && options.path != Path::Orbit) {
    throw UsageError("--path is for the room; the other scenes have ways of their own.");
  }
  if (options.scene == SceneKind::Corridor && options.orbit.turn > 360) {
    throw UsageError("The corridor ends: --turn takes 360 at most there, which is its whole length.");
  }
}

void settle(Options& options, const Pending& pending) {
  struct Defaults {
    int count, edge;
  };
  constexpr std::array<Defaults, 4> kDefaults = {{{36, 320}, {120, 320}, {60, 1024}, {60, 480}}};
  const auto [count, edge] = kDefaults[static_cast<size_t>(options.kind)];
  if (!pending.count) options.orbit.count = count;
  ImageSize& size = options.orbit.size;
  size = pending.size ? sizeOf(options.kind, *pending.size) : pictureSize(options.kind, edge);
  if (options.kind != Kind::Photos && (size.width % 2 != 0 || size.height % 2 != 0)) {
    throw UsageError("The edges of a video are even numbers of pixels, not " + std::to_string(size.width) + "x" +
                     std::to_string(size.height) + ".");
  }
  refuseMisfits(options);
  if (options.out.empty()) throw UsageError("A folder to write to is needed.");
  if ((options.binaryModel || options.textModel) && options.orbit.count < 2) {
    throw UsageError("A model needs at least two pictures: --count 2 or more.");
  }
}

}  // namespace

ImageSize pictureSize(Kind kind, int edge) {
  switch (kind) {
    case Kind::Video:
      return {edge, 2 * std::max(1, static_cast<int>(std::lround(edge / 3.0)))};
    case Kind::Video360:
      return {edge, edge / 2};
    case Kind::DualFisheye:
      return {edge, edge};
    default:
      return {edge, std::max(1, static_cast<int>(std::lround(edge * 2.0 / 3.0)))};
  }
}

Options parseOptions(std::span<const char* const> arguments) {
  Options options;
  Pending pending;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "--help") {
      options.help = true;
      return options;
    }
    if (takesValue(argument)) {
      if (i + 1 == arguments.size()) throw UsageError(std::string(argument) + " needs a value.");
      setValue(options, pending, argument, arguments[++i]);
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
  settle(options, pending);
  return options;
}

const char* usageText() {
  return "Usage: sample_capture [options] FOLDER\n"
         "Pictures of a made-up scene, and on request where they were truly taken.\n"
         "\n"
         "  --kind KIND      photos       FOLDER/images (what is made without this option)\n"
         "                   video        FOLDER/video.mp4, along the same way\n"
         "                   video360     FOLDER/video360.mp4, equirectangular\n"
         "                   dualfisheye  FOLDER/video.insv, two square tracks of lenses back to back\n"
         "  --scene NAME     room         richly furnished, every place unlike any other (room)\n"
         "                   symmetric    an object that looks the same after half a turn, between plain walls\n"
         "                   corridor     walked through; its doors and what stands between them repeat exactly\n"
         "                   turntable    things that turn before a camera on a tripod, between plain walls; its true\n"
         "                                places are those that the things see it at\n"
         "                   turntable-textured  the same between patterned walls\n"
         "  --path NAME      the way through the room (orbit):\n"
         "                   orbit        around the middle, looking at it\n"
         "                   walk         forward all around, looking ahead\n"
         "                   pan          from side to side, between some neighbours by more than 30 degrees\n"
         "                   cuts         three stretches that begin elsewhere than where the one before ended\n"
         "  --count N        number of photographs (36) or frames (video 120, the others 60)\n"
         "  --size N | WxH   longest edge in pixels: photos and video are 3:2 (320), or both edges; video360 is 2:1\n"
         "                   (1024), dualfisheye square (480)\n"
         "  --fps N          frames of a video in a second (10)\n"
         "  --turn N         degrees of the orbit that the pictures are spread over (360); of another way, 360 is all\n"
         "  --seed N         another seed is another scene and another way (1)\n"
         "  --model          also write the true cameras and, for photos and video, surface points as a binary COLMAP\n"
         "                   model in FOLDER/sparse/0; for videos of all kinds the cameras in FOLDER/cameras.csv\n"
         "  --model-text     the same in COLMAP's text encoding\n"
         "  --points N       number of surface points in the model (6000)\n"
         "  --out FOLDER     the same as FOLDER alone\n"
         "  --help           this text\n";
}

}  // namespace quor::sample
