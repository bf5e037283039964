#include "app/options/options.h"

#include <algorithm>

#include "app/options/option_table.h"
#include "base/text/text.h"
#include "settings/settings.h"

namespace quor {

namespace {

const OptionSpec* findOption(const std::string& name) {
  for (const OptionGroup& group : optionGroups()) {
    for (const OptionSpec& option : group.options) {
      if (name == option.name) return &option;
    }
  }
  return nullptr;
}

// Of `train`, the fewest words that tell its five places apart.
const char* trainPlace(Places places) {
  switch (places & kOnTrain) {
    case kOnTrain:
      return "train";
    case kOnTrainProject:
      return "train of a project";
    case kOnTrainMedia:
      return "train of a project made from media";
    case kOnTrainFromFrames:
      return "train --from frames";
    case kOnTrainFromCameras:
      return "train --from sparse";
    case kOnTrainOnly:
      return "train without --from";
    case kOnTrainImported:
      return "train of an imported project";
    default:
      return "train of a dataset";
  }
}

std::string placesText(Places places) {
  struct Name {
    Places place;
    const char* text;
  };
  std::vector<std::string> names;
  for (const auto& [place, text] :
       {Name{kOnRun, "run"}, Name{kOnTrain, trainPlace(places)}, Name{kOnImport, "import"}, Name{kOnBatch, "batch"},
        Name{kOnMcp, "mcp"}, Name{kOnDevices, "devices"}, Name{kOnInstructions, "instructions"}}) {
    if ((places & place) != 0) names.emplace_back(text);
  }
  std::string list;
  for (size_t i = 0; i < names.size(); ++i) {
    list += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  }
  return list;
}

}  // namespace

void Options::applyTo(Settings& target) const {
  fromJson(settings, target.ingest, target.sparse, target.training);
}

Options parseOptions(std::span<const std::string> arguments) {
  Options options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (const OptionSpec* option = findOption(argument)) {
      const bool takesValue = !option->value.empty();
      if (takesValue && i + 1 == arguments.size()) throw UsageError(argument + " needs a value");
      option->apply(options, takesValue ? arguments[++i] : std::string());
      options.given.push_back({option->name, option->places, option->setting});
    } else if (argument.starts_with("--")) {
      throw UsageError("unknown option " + argument);
    } else {
      options.paths.push_back(argument);
    }
  }
  return options;
}

void refuseMisplaced(const Options& options, Places here, const char* advice) {
  for (const auto& [name, places, setting] : options.given) {
    if ((places & here) != 0) continue;
    // An option of no project at all is not one of a project with or without --from.
    const bool anyProject = (here & kOnTrainProject) != 0 && (places & kOnTrainProject) == 0;
    throw UsageError(name + " is an option of " + placesText(places) + ", not of " +
                     placesText(anyProject ? kOnTrainProject : here) + advice);
  }
}

std::string optionsHelp() {
  const auto left = [](const OptionSpec& option) {
    return option.value.empty() ? option.name : option.name + " " + option.value;
  };
  size_t width = 0;
  for (const OptionGroup& group : optionGroups()) {
    for (const OptionSpec& option : group.options) width = std::max(width, left(option).size());
  }
  std::string help;
  for (const OptionGroup& group : optionGroups()) {
    help += formatText("%s%s:\n", help.empty() ? "" : "\n", group.title);
    for (const OptionSpec& option : group.options) {
      help += formatText("  %-*s  ", static_cast<int>(width), left(option).c_str());
      for (const char c : option.help) {
        help += c;
        if (c == '\n') help += std::string(width + 4, ' ');
      }
      help += '\n';
    }
  }
  return help;
}

}  // namespace quor
