// Which actions the open project allows now and why the others are blocked, for buttons, menus and rows.
#include <algorithm>
#include <limits>

#include "base/text/text.h"
#include "ui/models/number_text.h"
#include "ui/models/project/project_run.h"

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

}  // namespace

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
