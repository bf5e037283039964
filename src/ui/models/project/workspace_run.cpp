// The stages of the open project: what can be started, what is under way, and what it came to.
#include <algorithm>
#include <limits>

#include "base/failures.h"
#include "base/text/text.h"
#include "ui/models/number_text.h"
#include "ui/models/project/workspace.h"

namespace quor::ui {

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
  if (stage == Stage::Sparse) return "The log has all that COLMAP said.";
  if (stage == Stage::Frames) return {};
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

Stage Workspace::firstStage() const {
  return project_ && !project_->externalDataset.empty() ? Stage::Train : Stage::Frames;
}

std::string Workspace::obstacle() const {
  if (busy()) return kRunning;
  if (parts_.occupied && parts_.occupied()) return "A batch is running. Wait for it, or end it in the Batch window.";
  return {};
}

std::string Workspace::obstacleTo(Stage from, Stage to) const {
  if (!project_) return "Open a project first, or drop photographs or a video onto the window.";
  if (loading()) return taskText() + "...";
  if (std::string why = obstacle(); !why.empty()) return why;
  if (!project_->externalDataset.empty()) {
    return from == Stage::Train ? std::string() : "This project uses an existing reconstruction, which stays as it is.";
  }
  if (from == Stage::Frames && project_->inputs.empty()) return "The project has no input media.";
  if (from == Stage::Sparse && facts_.frames == 0) return "There are no frames yet: prepare them first.";
  if (from <= Stage::Sparse && to >= Stage::Sparse && colmapMissing()) return kNoColmap;
  if (from == Stage::Train && facts_.cameras == 0) {
    return "There is no camera solve to train from. Run Camera solve first.";
  }
  return {};
}

Button Workspace::buildButton() const {
  const bool again = facts_.scene.has_value();
  Button button{again ? "Build again" : "Build the scene", {}, true};
  const std::string why = obstacleTo(firstStage(), Stage::Train);
  if (!why.empty()) return {button.label, why, false};
  button.hint = firstStage() == Stage::Train ? "Trains the scene." : "Prepares frames, solves the cameras and trains.";
  if (again) button.hint += " The scene there is now stays until there is a new one.";
  return button;
}

bool Workspace::hasCheckpoint() const {
  return project_ && facts_.checkpoint;
}

int Workspace::continuationTarget() const {
  if (!hasCheckpoint()) return 0;
  if (continueTo_ > 0) return continueTo_;
  const auto step = static_cast<int>(std::min<uint32_t>(facts_.checkpoint->step, 100000000));
  if (project_->training.iterations > step) return project_->training.iterations;
  // About as long again, in round numbers.
  return step + std::max(1000, (step + 500) / 1000 * 1000);
}

Button Workspace::continueButton(int upToStep) const {
  Button button{"Continue training", {}, true};
  std::string why = obstacleTo(Stage::Train, Stage::Train);
  if (why.empty() && !hasCheckpoint()) why = "There is no checkpoint yet: train first.";
  if (why.empty()) {
    const CheckpointFacts& checkpoint = *facts_.checkpoint;
    if (checkpoint.technique != project_->training.technique) {
      why = std::string("The checkpoint was trained with ") + gs::techniqueWord(checkpoint.technique) +
            "; continue it with the same technique, or train from the start.";
    } else if (project_->externalDataset.empty() && facts_.solved > checkpoint.written) {
      why = "The cameras were solved again after this checkpoint was written: train from the start.";
    } else if (int64_t{upToStep} <= int64_t{checkpoint.step}) {
      why = formatText("The checkpoint is already at step %u. Set more iterations than that to continue training it.",
                       checkpoint.step);
    }
  }
  if (!why.empty()) return {button.label, why, false};
  button.label += " from step " + withThousands(facts_.checkpoint->step);
  button.hint = "Goes on from the checkpoint to step " + withThousands(static_cast<uint64_t>(upToStep)) +
                ". What was trained is kept.";
  return button;
}

Button Workspace::stopButton() const {
  Button button{"Stop and export", "Ends training after this step, and writes and scores the scene as it is.", true};
  const bool trains = busy() && pipeline_->currentStage() == Stage::Train;
  const gs::TrainState state = training().state;
  if (!trains) return {button.label, "Nothing is training.", false};
  if (state == gs::TrainState::Exporting || state == gs::TrainState::Evaluating) {
    return {button.label, "Training is over; the scene is being written and scored.", false};
  }
  if (state == gs::TrainState::Loading) return {button.label, "Training has not begun yet.", false};
  return button;
}

Button Workspace::cancelButton() const {
  if (!busy()) return {"Cancel", "Nothing is running.", false};
  return {"Cancel", "Ends what runs without its result. What was there before stays.", true};
}

void Workspace::start(Stage from, Stage to) {
  if (obstacleTo(from, to).empty()) begin(from, to, false);
}

void Workspace::continueTraining(int upToStep) {
  if (!continueButton(upToStep).enabled) return;
  if (project_->training.iterations != upToStep) {
    editProject([&](Project& project) { project.training.iterations = upToStep; });
  }
  begin(Stage::Train, Stage::Train, true);
}

// The stages begin when project.json has been written: the frame stage is going to write it, too.
void Workspace::begin(Stage from, Stage to, bool resume) {
  if (unsaved_) save();
  work_.run(
      "Starting", [] { return true; }, [this, from, to, resume](bool) { launch(from, to, resume); },
      [this](const std::string& sentence) { fail("Could not start", sentence); });
}

// A pipeline of its own for each run: the tools may have been set meanwhile.
void Workspace::launch(Stage from, Stage to, bool resume) {
  if (!project_ || busy()) return;
  if (unsaved_ || saving_) return begin(from, to, resume);  // edited meanwhile
  try {
    Project project = *project_;
    project.training.continueFromCheckpoint = resume;
    checkpointBefore_ = facts_.checkpoint;
    pipeline_ = parts_.makePipeline();
    pipeline_->open(project);
    std::shared_ptr<PipelineRun> run = pipeline_->start(from, to);
    if (!run) throw std::runtime_error("The stage could not be started. Open the project again.");
    run_ = std::move(run);
    seen_ = {};
  } catch (const std::exception& error) {
    fail("Could not start", failureText(error));
  }
}

void Workspace::cancel() {
  if (pipeline_) pipeline_->cancel();
}

void Workspace::stopTraining() {
  if (stopButton().enabled) pipeline_->requestStop();
}

void Workspace::followRun() {
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
    refreshFacts();
  }
}

void Workspace::endRun() {
  const RunResult result = run_->waitFor({}).value();
  run_.reset();
  takeExtraction();
  if (result.success() || result.outcome == Outcome::Cancelled) return refreshFacts();
  const Stage stage = pipeline_->currentStage();
  refreshFacts([this, stage, result, before = checkpointBefore_] { explainFailure(stage, result, before); });
}

void Workspace::explainFailure(Stage stage, const RunResult& result, const std::optional<CheckpointFacts>& before) {
  Notice notice{std::string(stageName(stage)) + " failed", {result.text}, true};
  if (stage == Stage::Train && isNewer(facts_.checkpoint, before)) {
    notice.lines.push_back("A checkpoint was saved at step " + withThousands(facts_.checkpoint->step) +
                           ": press Continue training to go on from there.");
  }
  if (std::string advice = adviceAfter(stage, result.outcome); !advice.empty())
    notice.lines.push_back(std::move(advice));
  say(std::move(notice));
}

StageRow Workspace::stageRow(Stage stage) const {
  StageRow row;
  row.stage = stage;
  row.name = stageName(stage);
  const size_t index = indexOf(stage);
  const StageStatus status = pipeline_ ? pipeline_->status(stage) : StageStatus();
  row.state = status.state;
  row.text = status.message;
  row.fraction = status.fraction;
  if (status.state == StageState::Running) {
    const gs::TrainStatus trainer = training();
    row.timeLeft = timeLeftText(status.secondsLeft);
    if (stage == Stage::Train && trainer.state == gs::TrainState::Training && trainer.step > 0) {
      row.text = trainingText(trainer);
    }
  } else if (status.state == StageState::NotRun) {
    row.text = index < facts_.summary.size() ? facts_.summary[index] : "Not run";
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

std::array<StageRow, kStageCount> Workspace::stages() const {
  return {stageRow(Stage::Frames), stageRow(Stage::Sparse), stageRow(Stage::Train)};
}

std::string Workspace::settingsNote() const {
  if (!project_) return {};
  if (busy()) return "What runs now goes on with the settings it began with; changes count from the next run.";
  if (facts_.frames > 0 || facts_.scene) return "Changes count from the next run of the stage that they belong to.";
  return {};
}

}  // namespace quor::ui
