#include "ui/models/project/new_media.h"

#include <algorithm>

#include "base/files/paths.h"
#include "pipeline/intake.h"
#include "ui/models/settings/presets.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

std::vector<InputSource> inputsOf(const std::vector<MediaSource>& sources) {
  std::vector<InputSource> inputs;
  for (const MediaSource& source : sources) inputs.insert(inputs.end(), source.inputs.begin(), source.inputs.end());
  return inputs;
}

struct Description {
  Project project;
  std::string note;
  bool exists = false;
};

Description describeProject(const std::vector<InputSource>& inputs, const fs::path& destination) {
  Description described{Project::describe(inputs, destination), {}, false};
  described.exists = Project::isProject(described.project.root);
  if (!described.exists) return described;
  try {
    refuseAnothersProject(described.project, "Choose another place for the project.");
    described.note =
        "These media have a project here already. Creating it again starts it over with the settings above; its scene "
        "stays until there is a new one.";
  } catch (const std::exception& error) {
    described.note = error.what();
  }
  return described;
}

FoundMedia findAll(const std::vector<fs::path>& paths) {
  FoundMedia media;
  for (const fs::path& path : paths) {
    const fs::path whole = absolutePath(toUtf8(path));
    addMedia(media, whole, classifyPath(whole));
  }
  return media;
}

}  // namespace

NewMedia::NewMedia(Actions actions) : actions_(std::move(actions)) {
  applyPreset(Preset::Standard, settings_);
}

void NewMedia::add(std::vector<fs::path> paths) {
  visible = true;
  if (paths.empty()) return;
  std::string text = "Looking into " + (paths.size() == 1 ? toUtf8(paths.front().filename())
                                                          : std::to_string(paths.size()) + " files and folders");
  finder_.run(
      std::move(text), [paths = std::move(paths)] { return findAll(paths); },
      [this, round = round_](FoundMedia found) {
        if (round == round_) add(std::move(found));
      },
      [this](const std::string& sentence) { problems_.push_back(sentence); });
}

void NewMedia::add(FoundMedia found) {
  visible = true;
  for (fs::path& origin : found.origins) {
    if (std::ranges::find(origins_, origin) == origins_.end()) origins_.push_back(std::move(origin));
  }
  mergeMedia(sources_, found.sources);
  problems_ = std::move(found.problems);
  describe();
}

void NewMedia::remove(size_t source) {
  if (source >= sources_.size()) return;
  sources_.erase(sources_.begin() + static_cast<std::ptrdiff_t>(source));
  const auto gaveNothing = [&](const fs::path& origin) {
    return std::ranges::none_of(inputsOf(sources_), [&](const InputSource& input) {
      const fs::path relative = fromUtf8(input.path).lexically_relative(origin);
      return !relative.empty() && *relative.begin() != "..";
    });
  };
  std::erase_if(origins_, gaveNothing);
  problems_.clear();
  describe();
}

void NewMedia::setKind(size_t source, InputKind kind) {
  if (source >= sources_.size() || !sources_[source].isVideo() || kind == InputKind::Images) return;
  for (InputSource& input : sources_[source].inputs) input.kind = kind;
  describe();
}

void NewMedia::clear() {
  ++round_;
  origins_.clear();
  sources_.clear();
  problems_.clear();
  destination_.clear();
  describe();
}

void NewMedia::setDestination(fs::path folder) {
  destination_ = std::move(folder);
  describe();
}

bool NewMedia::hasVideo() const {
  return std::ranges::any_of(sources_, &MediaSource::isVideo);
}

void NewMedia::setSettings(const Project& edited) {
  settings_.takeSettings(edited);
}

// Name and place of the project depend on the disk: found in the background.
void NewMedia::describe() {
  described_.reset();
  destinationNote_.clear();
  projectExists_ = false;
  settings_.inputs = inputsOf(sources_);
  const size_t number = ++descriptions_;
  if (sources_.empty()) return;
  describer_.run(
      {}, [inputs = settings_.inputs, to = destination_] { return describeProject(inputs, to); },
      [this, number](Description description) {
        if (number != descriptions_) return;
        followSuggestion(suggested_, description.project.sparse, settings_.sparse);
        suggested_ = description.project.sparse;
        described_ = std::move(description.project);
        destinationNote_ = std::move(description.note);
        projectExists_ = description.exists;
      },
      [this](const std::string& sentence) { problems_.push_back(sentence); });
}

void NewMedia::openExisting() {
  if (!described_ || !projectExists_) return;
  const fs::path root = described_->root;
  visible = false;
  actions_.openProject(root);
}

Button NewMedia::createButton() const {
  Button button{"Create only", "Makes the project without starting it.", true};
  std::string why = noCreate_;
  if (!described_) why = "The project's folder is being looked up.";
  if (loading()) why = "The media are still being looked at.";
  if (sources_.empty() && !loading()) why = "Add photographs or videos first, or drop them onto the window.";
  if (creating_) why = "The project is being created.";
  if (!why.empty()) button = {button.label, std::move(why), false};
  return button;
}

Button NewMedia::buildButton() const {
  Button button = createButton();
  button.label = "Create and build";
  if (!button.enabled) return button;
  button.hint = "Makes the project, prepares its frames, solves the cameras and trains the scene.";
  if (!noBuild_.empty()) button = {button.label, noBuild_, false};
  return button;
}

void NewMedia::create(bool build) {
  if (!(build ? buildButton() : createButton()).enabled) return;
  creating_ = true;
  actions_.create({origins_, sources_, destination_, settings_, build});
}

void NewMedia::created() {
  creating_ = false;
  visible = false;
  clear();
}

void NewMedia::setObstacles(std::string toCreate, std::string toBuild) {
  noCreate_ = std::move(toCreate);
  noBuild_ = std::move(toBuild);
}

void NewMedia::update() {
  finder_.update();
  describer_.update();
}

}  // namespace quor::ui
