#include "ui/models/project/project_session.h"

#include <utility>

#include "base/files/paths.h"
#include "pipeline/intake.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

constexpr const char* kBusy = "Finish or cancel the running stage before opening something else.";

std::string nameOf(const fs::path& path) {
  return toUtf8(path.has_filename() ? path.filename() : path);
}

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
  opened.notice = Notice{"Created project", std::move(lines)};
  return opened;
}

}  // namespace

ProjectSession::ProjectSession(Parts parts) : parts_(std::move(parts)) {}

void ProjectSession::fail(const std::string& title, const std::string& sentence) {
  parts_.log.error(title + ": " + sentence);
  parts_.notify({title, {sentence}, true});
}

bool ProjectSession::refuseOpening() {
  if (!parts_.busy() && !parts_.occupied()) return false;
  parts_.notify({"Something is running", {kBusy}, true});
  return true;
}

void ProjectSession::open(std::vector<fs::path> paths) {
  if (paths.empty() || refuseOpening()) return;
  saveRest();  // what is opened may be the same project
  std::string text = "Opening " + (paths.size() == 1 ? nameOf(paths.front()) : std::to_string(paths.size()) + " items");
  work_.run(
      std::move(text), [paths = std::move(paths)] { return openPaths(paths); },
      [this](Opened opened) { takeOver(std::move(opened)); },
      [this](const std::string& sentence) { fail("Could not open this", sentence); });
}

void ProjectSession::importDataset(fs::path dataset, fs::path outDir) {
  if (refuseOpening()) return;
  saveRest();
  import_.visible = false;
  std::string text = "Importing " + nameOf(dataset);
  work_.run(
      std::move(text),
      [dataset = std::move(dataset), outDir = std::move(outDir)] {
        return openDataset(absolutePath(toUtf8(dataset)), outDir);
      },
      [this](Opened opened) { takeOver(std::move(opened)); },
      [this](const std::string& sentence) { fail("The dataset was not imported", sentence); });
}

void ProjectSession::create(const NewMedia::Request& request, std::function<void()> created,
                            std::function<void()> failed) {
  if (refuseOpening()) return failed();
  saveRest();
  work_.run(
      "Creating the project", [request] { return makeProject(request); },
      [this, created = std::move(created)](Opened opened) {
        takeOver(std::move(opened));
        created();
      },
      [this, failed = std::move(failed)](const std::string& sentence) {
        failed();
        fail("The project was not created", sentence);
      });
}

void ProjectSession::takeOver(Opened opened) {
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
    close();
    takeFacts(std::move(opened.facts));
  } else if (!opened.media.sources.empty() || !opened.media.problems.empty()) {
    parts_.takeMedia(std::move(opened.media));
  } else if (opened.import) {
    import_ = std::move(*opened.import);
  }
  if (opened.notice) parts_.notify(std::move(*opened.notice));
}

void ProjectSession::setProject(Project project) {
  if (project_ && project_->root == project.root) unsaved_ = false;  // the new one takes its place
  close();
  parts_.log.info("Project: " + toUtf8(project.root));
  parts_.preferences.addRecent(toUtf8(project.root));
  if (parts_.savePreferences) parts_.savePreferences();
  import_ = {};
  project_ = std::move(project);
  parts_.opened();
}

void ProjectSession::close() {
  if (parts_.busy()) return parts_.notify({"Something is running", {kBusy}, true});
  saveRest();
  project_.reset();
  parts_.opened();
  takeFacts({});
}

// The viewport reads its files again only when they are others, or newer.
void ProjectSession::takeFacts(ProjectFacts facts) {
  const auto written = [](const ProjectFacts& of) { return of.scene ? of.scene->written : fs::file_time_type(); };
  const bool same = (facts.scene ? facts.scene->path : fs::path()) == view_.scene && facts.dataset == view_.dataset &&
                    written(facts) == written(facts_) && facts.solved == facts_.solved;
  if (!same) {
    view_.scene = facts.scene ? facts.scene->path : fs::path();
    view_.dataset = facts.dataset;
    ++view_.generation;
  }
  facts_ = std::move(facts);
  parts_.factsChanged();
}

void ProjectSession::refreshFacts(std::function<void()> then) {
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

void ProjectSession::edit(const std::function<void(Project&)>& change) {
  if (!project_) return;
  change(*project_);
  unsaved_ = true;
}

void ProjectSession::takeExtraction() {
  if (!project_) return;
  if (std::optional<Project> ran = parts_.running()) {
    project_->extraction = std::move(ran->extraction);
    project_->knownIntrinsics = ran->knownIntrinsics;
  }
}

void ProjectSession::save() {
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

void ProjectSession::saveRest() {
  if (unsaved_) save();
}

void ProjectSession::whenSaved(std::function<void()> then) {
  saveRest();
  work_.run(
      "Starting", [] { return true; },
      [this, then = std::move(then)](bool) {
        if (unsaved_ || saving_) return whenSaved(then);  // edited meanwhile
        then();
      },
      [this](const std::string& sentence) { fail("Could not start", sentence); });
}

void ProjectSession::update() {
  work_.update();
  reader_.update();
  // The frame stage records in project.json what it learns of the cameras: an older record must not be put over that.
  if (unsaved_ && !saving_ && !parts_.framesRun()) save();
}

}  // namespace quor::ui
