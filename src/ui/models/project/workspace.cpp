#include "ui/models/project/workspace.h"

#include <chrono>
#include <thread>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/process/tool_finder.h"
#include "pipeline/intake.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

constexpr const char* kBusy = "Finish or cancel the running stage before opening something else.";

std::string nameOf(const fs::path& path) {
  return toUtf8(path.has_filename() ? path.filename() : path);
}

// What the form asks for, as a project that is there.
Opened makeProject(const NewMedia::Request& request) {
  std::vector<InputSource> inputs;
  for (const MediaSource& source : request.sources) {
    inputs.insert(inputs.end(), source.inputs.begin(), source.inputs.end());
  }
  const auto configure = [&](Project& project) { project.takeSettings(request.settings); };
  const Project project =
      createProject(inputs, request.destination, configure, "Choose another place for the project.");
  Opened opened;
  opened.project = project;
  opened.facts = readProjectFacts(project);
  std::vector<std::string> lines = foundLines(request.origins, request.sources);
  lines.push_back("Project folder: " + toUtf8(project.root));
  opened.notice = Notice{"Created project", std::move(lines), false};
  return opened;
}

}  // namespace

Workspace::Workspace(Parts parts)
    : parts_(std::move(parts)),
      newMedia_({[this](const NewMedia::Request& request) { create(request); },
                 [this](const fs::path& folder) { open({folder}); }}),
      results_({parts_.log, [this](Notice notice) { say(std::move(notice)); }, parts_.openFolder}) {
  findTools();
}

Workspace::~Workspace() {
  if (pipeline_) {
    pipeline_->cancel();
    while (pipeline_->busy()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (unsaved_) save();
}

void Workspace::say(Notice notice) {
  if (notices_.empty() || notices_.back() != notice) notices_.push_back(std::move(notice));
}

void Workspace::fail(const std::string& title, const std::string& sentence) {
  parts_.log.error(title + ": " + sentence);
  say({title, {sentence}, true});
}

bool Workspace::refuseOpening() {
  if (!busy() && !(parts_.occupied && parts_.occupied())) return false;
  say({"Something is running", {kBusy}, true});
  return true;
}

void Workspace::open(std::vector<fs::path> paths) {
  if (paths.empty() || refuseOpening()) return;
  if (unsaved_) save();  // what is opened may be the same project
  std::string text = "Opening " + (paths.size() == 1 ? nameOf(paths.front()) : std::to_string(paths.size()) + " items");
  work_.run(
      std::move(text), [paths = std::move(paths)] { return openPaths(paths); },
      [this](Opened opened) { takeOver(std::move(opened)); },
      [this](const std::string& sentence) { fail("Could not open this", sentence); });
}

void Workspace::importDataset(fs::path dataset, fs::path outDir) {
  if (refuseOpening()) return;
  if (unsaved_) save();
  std::string text = "Importing " + nameOf(dataset);
  work_.run(
      std::move(text),
      [dataset = std::move(dataset), outDir = std::move(outDir)] {
        return openDataset(absolutePath(toUtf8(dataset)), outDir);
      },
      [this](Opened opened) { takeOver(std::move(opened)); },
      [this](const std::string& sentence) { fail("The dataset was not imported", sentence); });
}

void Workspace::create(const NewMedia::Request& request) {
  if (refuseOpening()) return newMedia_.failed();
  if (unsaved_) save();
  work_.run(
      "Creating the project", [request] { return makeProject(request); },
      [this, build = request.build](Opened opened) {
        newMedia_.created();
        takeOver(std::move(opened));
        if (build) this->build();
      },
      [this](const std::string& sentence) {
        newMedia_.failed();
        fail("The project was not created", sentence);
      });
}

void Workspace::takeOver(Opened opened) {
  // A run may have begun while this was looked at.
  if ((opened.project || !opened.scene.empty()) && refuseOpening()) return;
  if (!opened.gone.empty()) {
    std::erase(parts_.preferences.recentProjects, toUtf8(opened.gone));
    if (parts_.savePreferences) parts_.savePreferences();
  }
  if (opened.project) {
    setProject(std::move(*opened.project));
    takeFacts(std::move(opened.facts));
  } else if (!opened.scene.empty()) {
    closeProject();
    takeFacts(std::move(opened.facts));
  } else if (!opened.media.sources.empty() || !opened.media.problems.empty()) {
    newMedia_.add(std::move(opened.media));
  }
  if (opened.notice) say(std::move(*opened.notice));
}

void Workspace::setProject(Project project) {
  if (project_ && project_->root == project.root) unsaved_ = false;  // the new one takes its place
  closeProject();
  parts_.log.info("Project: " + toUtf8(project.root));
  parts_.preferences.addRecent(toUtf8(project.root));
  if (parts_.savePreferences) parts_.savePreferences();
  project_ = std::move(project);
  findTools();
}

void Workspace::closeProject() {
  if (busy()) return say({"Something is running", {kBusy}, true});
  if (unsaved_) save();
  pipeline_.reset();
  seen_ = {};
  project_.reset();
  takeFacts({});
  results_.clear();
}

// The viewport reads files again only when they are others, or newer.
void Workspace::takeFacts(ProjectFacts facts) {
  const auto written = [](const ProjectFacts& of) { return of.scene ? of.scene->written : fs::file_time_type(); };
  const bool same = (facts.scene ? facts.scene->path : fs::path()) == view_.scene && facts.dataset == view_.dataset &&
                    written(facts) == written(facts_) && facts.solved == facts_.solved;
  const auto step = [](const ProjectFacts& of) { return of.checkpoint ? of.checkpoint->step : 0; };
  if (step(facts) != step(facts_)) continueTo_ = 0;
  if (!same) {
    view_.scene = facts.scene ? facts.scene->path : fs::path();
    view_.dataset = facts.dataset;
    ++view_.generation;
  }
  results_.show(facts);
  facts_ = std::move(facts);
}

void Workspace::findTools() {
  tools_.run(
      {},
      [find = parts_.findColmap, configured = parts_.preferences.colmapPath] { return find(configured).has_value(); },
      [this](bool found) {
        colmapKnown_ = true;
        colmapFound_ = found;
      },
      [this](const std::string& sentence) { parts_.log.warning(sentence); });
}

void Workspace::refreshFacts(std::function<void()> then) {
  if (!project_) return;
  reader_.run(
      {}, [project = *project_] { return readProjectFacts(project); },
      [this, then = std::move(then)](ProjectFacts facts) {
        if (!project_ || project_->root != facts.folder) return;
        takeFacts(std::move(facts));
        if (then) then();
      },
      [this](const std::string& sentence) { parts_.log.warning(sentence); });
}

void Workspace::editProject(const std::function<void(Project&)>& change) {
  if (!project_) return;
  change(*project_);
  unsaved_ = true;
}

// The frame stage writes project.json itself, with what it knows of the cameras: until it has ended, an older record
// must not be put over that.
bool Workspace::framesRun() const {
  return busy() && pipeline_->currentStage() == Stage::Frames;
}

void Workspace::takeExtraction() {
  if (!project_ || !pipeline_) return;
  if (std::optional<Project> ran = pipeline_->project()) {
    project_->extraction = std::move(ran->extraction);
    project_->knownIntrinsics = ran->knownIntrinsics;
  }
}

void Workspace::save() {
  takeExtraction();
  unsaved_ = false;
  saving_ = true;
  work_.run(
      {}, [project = *project_] { return project.save(), true; }, [this](bool) { saving_ = false; },
      [this](const std::string& sentence) {
        saving_ = false;
        fail("The project's settings were not saved",
             sentence + ". Check that its folder is still there and that the disk is not full.");
      },
      Background::AtTheEnd::MustRun);
}

void Workspace::update() {
  tools_.update();
  work_.update();
  reader_.update();
  results_.update();
  followRun();
  if (unsaved_ && !saving_ && !framesRun()) save();
  const std::string obstacleNow = loading() ? taskText() + "..." : obstacle();
  newMedia_.setObstacles(obstacleNow, obstacleNow.empty() && colmapMissing() ? kNoColmap : obstacleNow);
  newMedia_.update();
}

std::string Workspace::closeQuestion() const {
  if (busy()) {
    const Stage stage = pipeline_->currentStage();
    if (stage != Stage::Train) {
      return std::string(stageName(stage)) +
             " is under way. Closing cancels it; the stages that have finished are kept.";
    }
    const gs::TrainStatus status = training();
    if (status.state == gs::TrainState::Training && status.step > 0) {
      return "Training is at step " + std::to_string(status.step) + " of " + std::to_string(status.iterations) +
             ". Closing now loses what was trained since the last checkpoint; Stop and export keeps it.";
    }
    return "Training is under way. Closing now ends it without a new scene.";
  }
  if (results_.exporting()) return results_.exportText() + " has not finished. Closing now waits for it.";
  return {};
}

}  // namespace quor::ui
