#include "ui/models/project/project_run.h"

#include <algorithm>
#include <utility>

#include "base/failures.h"
#include "base/files/paths.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

// Advice on failures whose own sentence gives none.
std::string adviceAfter(Stage stage, Outcome outcome) {
  if (stage != Stage::Train) return {};
  switch (outcome) {
    case Outcome::DeviceLost:
      return "The GPU cannot be used until Ombrelux is started again. If this happens repeatedly, lower the "
             "resolution, and close other programs that use the GPU.";
    case Outcome::OutOfGpuMemory:
      return "Lower the training resolution or the number of splats, or close other programs that use the GPU, and "
             "train again.";
    default:
      return {};
  }
}

bool isNewer(const std::optional<CheckpointFacts>& now, const std::optional<CheckpointFacts>& before) {
  return now && (!before || now->step != before->step || now->written != before->written);
}

}  // namespace

ProjectRun::ProjectRun(Parts parts, ProjectSession& session) : parts_(std::move(parts)), session_(session) {}

void ProjectRun::start(Stage from, Stage to) {
  if (obstacleTo(from, to).empty()) begin(from, to, false);
}

void ProjectRun::continueTraining(int upToStep) {
  if (!continueButton(upToStep).enabled) return;
  if (session_.project()->training.iterations != upToStep) {
    session_.edit([&](Project& project) { project.training.iterations = upToStep; });
  }
  begin(Stage::Train, Stage::Train, true);
}

// The stages begin when project.json has been written: the frame stage is going to write it, too.
void ProjectRun::begin(Stage from, Stage to, bool resume) {
  session_.whenSaved([this, from, to, resume] { launch(from, to, resume); });
}

// Each run gets a new pipeline: the tools may have been set meanwhile.
void ProjectRun::launch(Stage from, Stage to, bool resume) {
  if (!session_.project() || busy()) return;
  try {
    Project project = *session_.project();
    project.training.continueFromCheckpoint = resume;
    checkpointBefore_ = session_.facts().checkpoint;
    pipeline_ = parts_.makePipeline();
    pipeline_->open(project);
    std::shared_ptr<PipelineRun> run = pipeline_->start(from, to);
    if (!run) throw std::runtime_error("The stage could not be started. Open the project again.");
    run_ = std::move(run);
    seen_ = {};
  } catch (const std::exception& error) {
    parts_.log.error("Could not start: " + failureText(error));
    parts_.notify({"Could not start", {failureText(error)}, true});
  }
}

void ProjectRun::cancel() {
  if (pipeline_) pipeline_->cancel();
}

void ProjectRun::stop() {
  if (busy()) pipeline_->requestStop();
}

void ProjectRun::endNow() {
  pipeline_.reset();
}

void ProjectRun::forget() {
  if (busy()) return;
  pipeline_.reset();
  run_.reset();
  seen_ = {};
  continueTo_ = 0;
}

std::optional<Project> ProjectRun::runningProject() const {
  return pipeline_ ? pipeline_->project() : std::nullopt;
}

void ProjectRun::update() {
  tools_.update();
  followRun();
}

void ProjectRun::findTools() {
  tools_.run(
      {},
      [find = parts_.findColmap, configured = parts_.preferences.colmapPath] { return find(configured).has_value(); },
      [this](bool found) {
        colmapKnown_ = true;
        colmapFound_ = found;
      },
      [this](const std::string& sentence) { parts_.log.warning(sentence); });
}

void ProjectRun::followRun() {
  if (!run_) return;
  const bool ended = run_->ended();  // asked first, so that everything read below is final
  bool changed = false;
  for (size_t i = 0; i < kStageCount; ++i) {
    const StageState state = pipeline_->status(static_cast<Stage>(i)).state;
    changed = changed || (state != seen_[i] && state == StageState::Done);
    seen_[i] = state;
  }
  if (ended) {
    endRun();
  } else if (changed) {
    session_.refreshFacts();
  }
}

void ProjectRun::endRun() {
  const RunResult result = run_->waitFor({}).value();
  run_.reset();
  session_.takeExtraction();
  if (result.success()) announceScene(result);
  if (result.success() || result.outcome == Outcome::Cancelled) return session_.refreshFacts();
  const Stage stage = pipeline_->currentStage();
  session_.refreshFacts([this, stage, result, before = checkpointBefore_] { explainFailure(stage, result, before); });
}

// Builds take long enough for the user to have gone elsewhere.
void ProjectRun::announceScene(const RunResult& result) {
  if (pipeline_->currentStage() != Stage::Train || !result.training || result.training->stopped) return;
  const Project& project = *session_.project();
  parts_.notify({"The scene is ready",
                 {project.name + ": " + pipeline_->status(Stage::Train).message},
                 false,
                 project.outputFolder()});
}

void ProjectRun::explainFailure(Stage stage, const RunResult& result, const std::optional<CheckpointFacts>& before) {
  Notice notice{std::string(stageName(stage)) + " failed", {result.text}, true};
  if (stage == Stage::Train && isNewer(session_.facts().checkpoint, before)) {
    notice.lines.push_back("A checkpoint was saved at step " + withThousands(session_.facts().checkpoint->step) +
                           ": press Continue training to go on from there.");
  }
  if (std::string advice = adviceAfter(stage, result.outcome); !advice.empty()) {
    notice.lines.push_back(std::move(advice));
  }
  if (const fs::path& log = session_.facts().colmapLog; stage == Stage::Sparse && !log.empty()) {
    notice.lines.insert(notice.lines.end(), {"All that COLMAP printed is here:", toUtf8(log)});
    notice.folder = log.parent_path();
  }
  parts_.notify(std::move(notice));
}

}  // namespace quor::ui
