#include "ui/models/settings/presets.h"

#include <algorithm>

#include "base/text/text.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace {

struct Numbers {
  int frames, frameEdge, trainingEdge, steps;
  uint64_t splats;
  gs::Technique technique;

  bool operator==(const Numbers&) const = default;
};

// Growing in all of them: the fixed budget ends at fewer splats than a large scene can use.
Numbers numbersOf(Preset preset) {
  const Settings fresh;
  switch (preset) {
    case Preset::Quick:
      return {100, 1280, 800, 2000, 300000, gs::Technique::Vanilla};
    case Preset::Best:
      return {300, 2560, 0, 30000, 0, gs::Technique::Vanilla};
    default:
      return {fresh.ingest.targetFrameCount, fresh.ingest.maxDimension,  1600,
              fresh.training.iterations,     fresh.training.splatBudget, gs::Technique::Vanilla};
  }
}

Numbers numbersIn(const Project& settings) {
  return {settings.ingest.targetFrameCount, settings.ingest.maxDimension,  settings.training.trainingResolution,
          settings.training.iterations,     settings.training.splatBudget, settings.training.technique};
}

}  // namespace

const char* presetName(Preset preset) {
  switch (preset) {
    case Preset::Quick:
      return "Quick look";
    case Preset::Standard:
      return "Standard";
    case Preset::Best:
      return "Best";
    case Preset::Custom:
      break;
  }
  return "Custom";
}

// Training's work is about the steps times the pixels of a picture: 1 to 14 to 150.
const char* presetMeaning(Preset preset) {
  switch (preset) {
    case Preset::Quick:
      return "To see whether the capture works: training takes about a tenth of the time of Standard.";
    case Preset::Standard:
      return "A good scene to look at and to show.";
    case Preset::Best:
      return "For the final result: training takes about ten times as long as Standard, and needs more GPU memory.";
    case Preset::Custom:
      break;
  }
  return "Your own numbers, from the settings below.";
}

std::string presetNumbers(const Project& settings) {
  const int frameEdge = settings.ingest.maxDimension;
  const int edge =
      settings.training.trainingResolution > 0 ? std::min(settings.training.trainingResolution, frameEdge) : frameEdge;
  const uint64_t splats = settings.training.splatBudget;
  const auto isVideo = [](const InputSource& input) { return input.kind != InputKind::Images; };
  const bool video = std::ranges::any_of(settings.inputs, isVideo);
  return (video ? std::to_string(settings.ingest.targetFrameCount) + " frames from each video, p" : std::string("P")) +
         formatText("ictures of up to %d pixels, %s training steps, ", edge,
                    withThousands(static_cast<uint64_t>(std::max(settings.training.iterations, 0))).c_str()) +
         (splats > 0 ? "at most " + withThousands(splats) + " splats" : std::string("as many splats as needed"));
}

void applyPreset(Preset preset, Project& settings) {
  if (preset == Preset::Custom) return;
  const Numbers numbers = numbersOf(preset);
  settings.ingest.targetFrameCount = numbers.frames;
  settings.ingest.maxDimension = numbers.frameEdge;
  settings.training.trainingResolution = numbers.trainingEdge;
  settings.training.iterations = numbers.steps;
  settings.training.splatBudget = numbers.splats;
  settings.training.technique = numbers.technique;
}

Preset presetOf(const Project& settings) {
  for (const Preset preset : kPresets) {
    if (numbersIn(settings) == numbersOf(preset)) return preset;
  }
  return Preset::Custom;
}

}  // namespace quor::ui
