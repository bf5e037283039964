#include "app/options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "base/text/text.h"

namespace quor {

namespace {

using Apply = std::function<void(Options&, const std::string& option, const std::string& value)>;

struct OptionSpec {
  const char* name;   // nullptr: `help` is the heading of a group
  const char* value;  // nullptr: a flag
  const char* help;   // a line feed continues on a line of its own
  Apply apply;
};

constexpr int kMaxInt = std::numeric_limits<int>::max();

template <class Record>
Record& recordOf(Project& project) {
  if constexpr (std::is_same_v<Record, IngestSettings>) {
    return project.ingest;
  } else if constexpr (std::is_same_v<Record, SparseSettings>) {
    return project.sparse;
  } else {
    return project.training;
  }
}

template <class Record, class Field>
void overwrite(Options& options, Field Record::*field, Field value) {
  options.settings.emplace_back([=](Project& project) { recordOf<Record>(project).*field = value; });
}

template <class Number>
std::optional<Number> parseNumber(const std::string& text) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

[[noreturn]] void refuse(const std::string& option, const std::string& takes, const std::string& value) {
  throw UsageError(option + " takes " + takes + ", not '" + value + "'");
}

int parseInteger(const std::string& option, const std::string& value, int least, int most) {
  const std::optional<int> number = parseNumber<int>(value);
  if (number && *number >= least && *number <= most) return *number;
  refuse(option,
         most == kMaxInt ? formatText("a whole number from %d up", least)
                         : formatText("a whole number from %d to %d", least, most),
         value);
}

template <class Record>
Apply integer(int Record::*field, int least, int most = kMaxInt) {
  return [=](Options& options, const std::string& option, const std::string& value) {
    overwrite(options, field, parseInteger(option, value, least, most));
  };
}

// `takes` says in words what `valid` accepts.
Apply number(double IngestSettings::*field, const char* takes, bool (*valid)(double)) {
  return [=](Options& options, const std::string& option, const std::string& value) {
    const std::optional<double> parsed = parseNumber<double>(value);
    if (!parsed || !std::isfinite(*parsed) || !valid(*parsed)) refuse(option, takes, value);
    overwrite(options, field, *parsed);
  };
}

Apply fraction(double IngestSettings::*field) {
  return number(field, "a fraction from 0 to below 1", [](double f) { return f >= 0 && f < 1; });
}

template <class Record>
Apply set(bool Record::*field, bool value) {
  return [=](Options& options, const std::string&, const std::string&) { overwrite(options, field, value); };
}

Apply text(std::string Options::*field) {
  return [=](Options& options, const std::string& option, const std::string& value) {
    if (value.empty()) throw UsageError(option + " needs a value");
    options.*field = value;
  };
}

Apply flag(bool Options::*field) {
  return [=](Options& options, const std::string&, const std::string&) { options.*field = true; };
}

void applyTechnique(Options& options, const std::string&, const std::string& value) {
  gs::Technique technique{};
  if (!parseTechnique(value, technique)) throw UsageError("unknown technique '" + value + "' (vanilla or mcmc)");
  overwrite(options, &TrainingSettings::technique, technique);
}

void applyBudget(Options& options, const std::string& option, const std::string& value) {
  const std::optional<uint64_t> budget = parseNumber<uint64_t>(value);
  if (!budget) refuse(option, "a whole number from 0 up", value);
  overwrite(options, &TrainingSettings::splatBudget, *budget);
}

void applyMatcher(Options& options, const std::string&, const std::string& value) {
  Matcher matcher{};
  if (!parseMatcher(value, matcher)) throw UsageError("unknown matcher '" + value + "'");
  overwrite(options, &SparseSettings::matcher, matcher);
}

void applyCameraModel(Options& options, const std::string& option, const std::string& value) {
  if (value.empty()) throw UsageError(option + " needs a value");
  overwrite(options, &SparseSettings::cameraModel, value);
}

void applyMapper(Options& options, const std::string&, const std::string& value) {
  for (const MapperKind mapper : {MapperKind::Incremental, MapperKind::Global}) {
    if (value == mapperName(mapper)) return overwrite(options, &SparseSettings::mapper, mapper);
  }
  throw UsageError("--mapper takes incremental or global");
}

void applyKind(Options& options, const std::string& option, const std::string& value) {
  for (const InputKind kind : {InputKind::Images, InputKind::Video, InputKind::Video360, InputKind::DualFisheye}) {
    if (value == kindName(kind)) {
      options.kind = kind;
      return;
    }
  }
  refuse(option, "images, video, video360 or dualfisheye", value);
}

void applyFrom(Options& options, const std::string& option, const std::string& value) {
  if (value == "frames") {
    options.from = Stage::Frames;
  } else if (value == "sparse") {
    options.from = Stage::Sparse;
  } else {
    refuse(option, "frames or sparse", value);
  }
}

void applyDevice(Options& options, const std::string& option, const std::string& value) {
  options.device = parseInteger(option, value, -1, kMaxInt);
}

const std::vector<OptionSpec>& optionSpecs() {
  using Training = TrainingSettings;
  using Ingest = IngestSettings;
  using Sparse = SparseSettings;
  static const std::vector<OptionSpec> specs = {
      {nullptr, nullptr, "Project", {}},
      {"--out", "DIR", "folder in which the new project folder is made (default: beside the first input)",
       text(&Options::out)},
      {"--from", "STAGE", "train: re-run the project's pipeline from that stage, frames or sparse", applyFrom},

      {nullptr, nullptr, "Training", {}},
      {"--technique", "NAME",
       "vanilla (the default) grows splats: clone, split, prune;\nmcmc keeps a fixed budget and relocates splats",
       applyTechnique},
      {"--iterations", "N", "training steps (default 7000; 15000-30000 for a final result)",
       integer(&Training::iterations, 0)},
      {"--budget", "N", "most splats (default 0: vanilla as many as fit in GPU memory, mcmc automatic)", applyBudget},
      {"--resolution", "N", "longest edge of the training images in pixels (default 0: their own size)",
       integer(&Training::trainingResolution, 0)},
      {"--sh", "N", "spherical-harmonics degree, 0-3 (default 3)", integer(&Training::shDegree, 0, 3)},
      {"--downscales", "N", "coarse-to-fine levels, 0-8 (default 2)", integer(&Training::numDownscales, 0, 8)},
      {"--splat", nullptr, "also export scene.splat", set(&Training::exportSplat, true)},
      {"--no-eval", nullptr, "train on every view and skip the held-out evaluation", set(&Training::evalMode, false)},
      {"--resume", nullptr, "train: continue from output/checkpoint.quor (every run writes one) up to --iterations",
       set(&Training::continueFromCheckpoint, true)},
      {"--fresh", nullptr, "train: start over even if continuing was set",
       set(&Training::continueFromCheckpoint, false)},

      {nullptr, nullptr, "Frames", {}},
      {"--kind", "KIND", "kind of every input: images, video, video360 or dualfisheye (default: detected)", applyKind},
      {"--frames", "N", "target frame count for each video (default 200)", integer(&Ingest::targetFrameCount, 1)},
      {"--max-dimension", "N", "longest edge of extracted frames in pixels (default 1920)",
       integer(&Ingest::maxDimension, 1)},
      {"--fisheye-fov", "DEG", "dual-fisheye: one lens's diagonal angle (default 190)",
       number(&Ingest::fisheyeFieldOfView, "an angle above 0 and up to 360 degrees",
              [](double d) { return d > 0 && d <= 360; })},
      {"--hide-below", "DEG", "dual-fisheye: mask features that far below the horizon (default 0: off)",
       number(&Ingest::fisheyeMaskBelow, "an angle from 0 to 90 degrees", [](double d) { return d >= 0 && d <= 90; })},
      {"--crop-bottom", "F", "dual-fisheye: fraction cropped from the bottom of the frames (default 0)",
       fraction(&Ingest::fisheyeCropBottom)},
      {"--trim-edges", "F", "dual-fisheye: fraction of the lens rim masked from features (default 0)",
       fraction(&Ingest::fisheyeEdgeMargin)},
      {"--crop-edges", "F", "dual-fisheye: fraction cropped from every side of the frames (default 0)",
       fraction(&Ingest::fisheyeCropEdges)},

      {nullptr, nullptr, "Cameras", {}},
      {"--matcher", "NAME",
       "exhaustive, sequential or vocab_tree\n(default: exhaustive for photos, sequential with any video)",
       applyMatcher},
      {"--camera-model", "NAME", "COLMAP camera model (default OPENCV; PINHOLE or OPENCV_FISHEYE by kind of video)",
       applyCameraModel},
      {"--gpu-sift", nullptr, "COLMAP extracts features on the GPU", set(&Sparse::useGPU, true)},
      {"--cpu-matching", nullptr, "COLMAP's matcher instead of the Vulkan matcher", set(&Sparse::gpuMatching, false)},
      {"--mapper", "NAME", "incremental (the default) or global", applyMapper},

      {nullptr, nullptr, "Tools and output", {}},
      {"--colmap", "PATH", "COLMAP executable or folder", text(&Options::colmap)},
      {"--ffmpeg", "PATH", "ffmpeg executable or folder", text(&Options::ffmpeg)},
      {"--device", "N", "Vulkan device index, as listed by `devices` (default -1: the best one)", applyDevice},
      {"--json", nullptr, "a machine-readable result on standard output", flag(&Options::json)},
      {"--quiet", nullptr, "only warnings and errors on standard error", flag(&Options::quiet)},
  };
  return specs;
}

}  // namespace

void Options::applyTo(Project& project) const {
  for (const auto& overwriteSetting : settings) overwriteSetting(project);
}

Options parseOptions(std::span<const std::string> arguments) {
  Options options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const auto& specs = optionSpecs();
    const auto spec =
        std::find_if(specs.begin(), specs.end(), [&](const OptionSpec& s) { return s.name && argument == s.name; });
    if (spec != specs.end()) {
      const bool takesValue = spec->value != nullptr;
      if (takesValue && i + 1 == arguments.size()) throw UsageError(argument + " needs a value");
      spec->apply(options, argument, takesValue ? arguments[++i] : std::string());
    } else if (argument.starts_with("--")) {
      throw UsageError("unknown option " + argument);
    } else {
      options.paths.push_back(argument);
    }
  }
  return options;
}

std::string optionsHelp() {
  const auto left = [](const OptionSpec& spec) {
    return spec.value ? std::string(spec.name) + " " + spec.value : std::string(spec.name);
  };
  size_t width = 0;
  for (const OptionSpec& spec : optionSpecs()) {
    if (spec.name) width = std::max(width, left(spec).size());
  }
  std::string help;
  for (const OptionSpec& spec : optionSpecs()) {
    if (!spec.name) {
      help += formatText("%s%s:\n", help.empty() ? "" : "\n", spec.help);
      continue;
    }
    help += formatText("  %-*s  ", static_cast<int>(width), left(spec).c_str());
    for (const char c : std::string(spec.help)) {
      help += c;
      if (c == '\n') help += std::string(width + 4, ' ');
    }
    help += '\n';
  }
  return help;
}

}  // namespace quor
