// The stages of the open project: which can be started and why the others cannot, what is under way, and what it came
// to. The stages run on the Pipeline's own thread; this class belongs to the interface's thread.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/pipeline.h"
#include "project/preferences.h"
#include "ui/models/background.h"
#include "ui/models/button.h"
#include "ui/models/notice.h"
#include "ui/models/project/project_session.h"

namespace quor::ui {

inline constexpr const char* kNoColmap =
    "COLMAP was not found. Sparse reconstruction needs it: set its folder in Preferences.";

struct StageRow {
  Stage stage = Stage::Frames;
  std::string name;
  StageState state = StageState::NotRun;
  std::string text;
  float fraction = -1;   // 0..1, -1 when unknown
  std::string timeLeft;  // in words, empty while unknown
  Button runFrom;        // this stage and those after it
  Button runOnly;
};

class ProjectRun {
 public:
  struct Parts {
    LogStore& log;
    gs::TrainingService& trainer;
    const Preferences& preferences;                           // say where COLMAP is
    std::function<std::unique_ptr<Pipeline>()> makePipeline;  // with the tools found now; called before each run
    std::function<bool()> occupied;                           // true while a batch uses the trainer; may be empty
    std::function<void(Notice)> notify;
    // By what the preferences say; called from another thread.
    std::function<std::optional<ToolLocation>(const std::string& configured)> findColmap;
  };
  ProjectRun(Parts parts, ProjectSession& session);
  ProjectRun(const ProjectRun&) = delete;
  ProjectRun& operator=(const ProjectRun&) = delete;

  void update();  // once a frame
  bool busy() const { return pipeline_ && pipeline_->busy(); }
  bool framesRun() const { return busy() && pipeline_->currentStage() == Stage::Frames; }
  // As the last run has it, with what its frame stage recorded; nothing before any run.
  std::optional<Project> runningProject() const;
  void forget();  // the open project is another one

  // Both do nothing when the button for it cannot be pressed.
  void start(Stage from, Stage to);
  void continueTraining(int upToStep);
  // Everything from the first stage that a project of its kind needs.
  void build() { start(firstStage(), Stage::Train); }
  // Ends training after its step, with its scene; any other stage at once.
  void stop();
  void cancel();  // ends any stage at once, without its result
  void endNow();  // cancels and waits

  Button buildButton() const;
  // What building again would replace, as a question to ask before; empty when there is nothing to lose.
  std::string rebuildQuestion() const;
  // Training on from the checkpoint, where there is one.
  bool hasCheckpoint() const;
  Button continueButton(int upToStep) const;
  // The step to go on to: what the user has set since the checkpoint was written, else a sensible one.
  int continuationTarget() const;
  void setContinuationTarget(int step);
  Button stopButton() const;
  Button cancelButton() const;
  std::array<StageRow, kStageCount> stages() const;
  // What the user should know before changing settings now; empty when there is nothing.
  std::string settingsNote() const;
  // What closing the window would lose, as a question to ask first; empty when nothing runs.
  std::string closeQuestion() const;

  // Preferences may have changed where COLMAP is: looks for it again in the background. Known soon after the start.
  void findTools();
  bool colmapMissing() const { return colmapKnown_ && !colmapFound_; }

  // Why no stage can be started now; empty when one can.
  std::string obstacle() const;

 private:
  Stage firstStage() const;
  std::string obstacleTo(Stage from, Stage to) const;
  void begin(Stage from, Stage to, bool resume);
  void launch(Stage from, Stage to, bool resume);
  void followRun();
  void endRun();
  void announceScene(const RunResult& result);
  void explainFailure(Stage stage, const RunResult& result, const std::optional<CheckpointFacts>& before);
  StageRow stageRow(Stage stage) const;

  const Parts parts_;
  ProjectSession& session_;
  bool colmapKnown_ = false;
  bool colmapFound_ = false;
  int continueTo_ = 0;                // 0: not set
  uint32_t continueFrom_ = 0;         // step of the checkpoint that it was set for
  std::shared_ptr<PipelineRun> run_;  // under way, or ended and not yet looked at
  std::array<StageState, kStageCount> seen_ = {};
  std::optional<CheckpointFacts> checkpointBefore_;
  std::unique_ptr<Pipeline> pipeline_;
  Background tools_;
};

}  // namespace quor::ui
