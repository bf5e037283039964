#include "ui/models/project/project_run.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRunning = "Finish or cancel the running stage first.";

size_t indexOf(Stage stage) {
  return static_cast<size_t>(stage);
}

std::string trainingText(const gs::TrainStatus& status) {
  return "Step " + withThousands(static_cast<uint64_t>(status.step)) + " of " +
         withThousands(static_cast<uint64_t>(std::max(status.iterations, 0))) + ", " + withThousands(status.splats) +
         " splats";
}

// Advice on a failure whose sentence gives none; empty where it does.
std::string adviceAfter(Stage stage, Outcome outcome) {
  if (stage != Stage::Train) return {};
  switch (outcome) {
    case Outcome::DeviceLost:
      return "The GPU cannot be used until Ombrelux is started again. If this happens repeatedly, lower the "
             "resolution, "
             "and close other programs that use the GPU.";
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

Stage ProjectRun::firstStage() const {
  return session_.project() && !session_.project()->externalDataset.empty() ? Stage::Train : Stage::Frames;
}

std::string ProjectRun::obstacle() const {
  if (busy()) return kRunning;
  if (parts_.occupied && parts_.occupied()) return "A batch is running. Wait for it, or end it in the Batch window.";
  return {};
}

std::string ProjectRun::obstacleTo(Stage from, Stage to) const {
  if (!session_.project()) return "Open a project first, or drop photographs or a video onto the window.";
  if (session_.loading()) return session_.taskText() + "...";
  if (std::string why = obstacle(); !why.empty()) return why;
  if (!session_.project()->externalDataset.empty()) {
    return from == Stage::Train ? std::string() : "This project uses an existing reconstruction, which stays as it is.";
  }
  if (from == Stage::Frames && session_.project()->inputs.empty()) return "The project has no input media.";
  if (from == Stage::Sparse && session_.facts().frames == 0) return "There are no frames yet: prepare them first.";
  if (from <= Stage::Sparse && to >= Stage::Sparse && colmapMissing()) return kNoColmap;
  if (from == Stage::Train && session_.facts().cameras == 0) {
    return "There is no camera solve to train from. Run Camera solve first.";
  }
  return {};
}

Button ProjectRun::buildButton() const {
  const bool again = session_.facts().scene.has_value();
  Button button{again ? "Build again" : "Build the scene", {}, true};
  const std::string why = obstacleTo(firstStage(), Stage::Train);
  if (!why.empty()) return {button.label, why, false};
  button.hint = firstStage() == Stage::Train ? "Trains the scene." : "Prepares frames, solves the cameras and trains.";
  if (again) button.hint += " The scene there is now stays until there is a new one.";
  return button;
}

std::string ProjectRun::rebuildQuestion() const {
  const ProjectFacts& facts = session_.facts();
  if (!buildButton().enabled) return {};
  const bool media = firstStage() == Stage::Frames;
  const bool solved = media && (facts.frames > 0 || facts.cameras > 0);
  if (!facts.scene && !facts.checkpoint && !solved) return {};
  std::string question =
      media ? "Frames, cameras and the scene are all made anew" : "The scene is trained from the start";
  if (hasCheckpoint()) question += "; Continue training would go on from the checkpoint instead";
  return question + (facts.scene ? ". The scene there is now stays until there is a new one." : ".");
}

bool ProjectRun::hasCheckpoint() const {
  return session_.project() && session_.facts().checkpoint;
}

int ProjectRun::continuationTarget() const {
  if (!hasCheckpoint()) return 0;
  if (continueTo_ > 0 && continueFrom_ == session_.facts().checkpoint->step) return continueTo_;
  const auto step = static_cast<int>(std::min<uint32_t>(session_.facts().checkpoint->step, 100000000));
  if (session_.project()->training.iterations > step) return session_.project()->training.iterations;
  // About as long again, in round numbers.
  return step + std::max(1000, (step + 500) / 1000 * 1000);
}

void ProjectRun::setContinuationTarget(int step) {
  if (!hasCheckpoint()) return;
  continueTo_ = step;
  continueFrom_ = session_.facts().checkpoint->step;
}

Button ProjectRun::continueButton(int upToStep) const {
  Button button{"Continue training", {}, true};
  std::string why = obstacleTo(Stage::Train, Stage::Train);
  if (why.empty() && !hasCheckpoint()) why = "There is no checkpoint yet: train first.";
  if (why.empty()) {
    const CheckpointFacts& checkpoint = *session_.facts().checkpoint;
    if (checkpoint.technique != session_.project()->training.technique) {
      why = std::string("The checkpoint was trained with ") + gs::techniqueWord(checkpoint.technique) +
            "; continue it with the same technique, or train from the start.";
    } else if (session_.project()->externalDataset.empty() && session_.facts().solved > checkpoint.written) {
      why = "The cameras were solved again after this checkpoint was written: train from the start.";
    } else if (int64_t{upToStep} <= int64_t{checkpoint.step}) {
      why = formatText("The checkpoint is already at step %u. Set more iterations than that to continue training it.",
                       checkpoint.step);
    }
  }
  if (!why.empty()) return {button.label, why, false};
  button.label += " from step " + withThousands(session_.facts().checkpoint->step);
  button.hint = "Goes on from the checkpoint to step " + withThousands(static_cast<uint64_t>(upToStep)) +
                ". What was trained is kept.";
  return button;
}

Button ProjectRun::stopButton() const {
  Button button{"Stop and export", "Ends training after this step, and writes and scores the scene as it is.", true};
  const bool trains = busy() && pipeline_->currentStage() == Stage::Train;
  const gs::TrainState state = parts_.trainer.status().state;
  if (!trains) return {button.label, "Nothing is training.", false};
  if (state == gs::TrainState::Exporting || state == gs::TrainState::Evaluating) {
    return {button.label, "Training is over; the scene is being written and scored.", false};
  }
  if (state == gs::TrainState::Loading) return {button.label, "Training has not begun yet.", false};
  return button;
}

Button ProjectRun::cancelButton() const {
  if (!busy()) return {"Cancel", "Nothing is running.", false};
  return {"Cancel", "Ends what runs without its result. What was there before stays.", true};
}

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

// A pipeline of its own for each run: the tools may have been set meanwhile.
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

void ProjectRun::stopTraining() {
  if (stopButton().enabled) pipeline_->requestStop();
}

void ProjectRun::stopSoon() {
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
  const bool ended = run_->ended();  // asked first: the records that are read after it are final then
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
    notice.lines.push_back("All that COLMAP printed is in " + toUtf8(log) + ".");
    notice.folder = log.parent_path();
  }
  parts_.notify(std::move(notice));
}

StageRow ProjectRun::stageRow(Stage stage) const {
  StageRow row;
  row.stage = stage;
  row.name = stageName(stage);
  const size_t index = indexOf(stage);
  const StageStatus status = pipeline_ ? pipeline_->status(stage) : StageStatus();
  row.state = status.state;
  row.text = status.message;
  row.fraction = status.fraction;
  if (status.state == StageState::Running) {
    const gs::TrainStatus trainer = parts_.trainer.status();
    row.timeLeft = timeLeftText(status.secondsLeft);
    if (stage == Stage::Train && trainer.state == gs::TrainState::Training && trainer.step > 0) {
      row.text = trainingText(trainer);
    }
  } else if (status.state == StageState::NotRun) {
    row.text = index < session_.facts().summary.size() ? session_.facts().summary[index] : "Not run";
    if (row.text != "Not run") row.state = StageState::Done;
  }
  const auto button = [&](const char* label, const char* hint, Stage to) {
    const std::string why = obstacleTo(stage, to);
    return Button{label, why.empty() ? hint : why, why.empty()};
  };
  row.runFrom = stage == Stage::Train ? button("Train", "Trains from the start.", Stage::Train)
                                      : button("Run from here", "This stage and those after it.", Stage::Train);
  row.runOnly = button("Only this", "This stage and no other.", stage);
  return row;
}

std::array<StageRow, kStageCount> ProjectRun::stages() const {
  return {stageRow(Stage::Frames), stageRow(Stage::Sparse), stageRow(Stage::Train)};
}

std::string ProjectRun::settingsNote() const {
  if (!session_.project()) return {};
  if (busy()) return "What runs now goes on with the settings it began with; changes count from the next run.";
  if (session_.facts().frames > 0 || session_.facts().scene)
    return "Changes count from the next run of the stage that they belong to.";
  return {};
}

std::string ProjectRun::closeQuestion() const {
  if (!busy()) return {};
  const Stage stage = pipeline_->currentStage();
  if (stage != Stage::Train) {
    return std::string(stageName(stage)) + " is under way. Closing cancels it; the stages that have finished are kept.";
  }
  const gs::TrainStatus status = parts_.trainer.status();
  if (status.state == gs::TrainState::Training && status.step > 0) {
    return "Training is at step " + std::to_string(status.step) + " of " + std::to_string(status.iterations) +
           ". Closing at once loses what was trained since the last checkpoint; Stop, save and close keeps it.";
  }
  return "Training is under way. Closing now ends it without a new scene.";
}

}  // namespace quor::ui
