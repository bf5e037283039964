// What is open in the window and what is done with it: a project with its stages, or a scene by itself. Everything that
// reads or writes the user's files runs in the background and is taken over by update(); the stages run on the
// Pipeline's own thread. All else belongs to the interface's thread.
#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/pipeline.h"
#include "project/preferences.h"
#include "ui/models/background.h"
#include "ui/models/button.h"
#include "ui/models/notice.h"
#include "ui/models/project/new_media.h"
#include "ui/models/project/opening.h"
#include "ui/models/project/results.h"

namespace quor::ui {

inline constexpr const char* kNoColmap =
    "COLMAP was not found. Sparse reconstruction needs it: set its folder in Preferences.";

// What the viewport is to show while nothing trains.
struct ViewSource {
  std::filesystem::path scene;    // .ply or .quor; empty: none
  std::filesystem::path dataset;  // folder with images/ and a COLMAP model; empty: none
  uint64_t generation = 0;        // rises whenever either is another or has been written anew
};

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

class Workspace {
 public:
  struct Parts {
    LogStore& log;
    gs::TrainingService& trainer;
    Preferences& preferences;                                 // recent projects are kept here
    std::function<std::unique_ptr<Pipeline>()> makePipeline;  // with the tools found now; called before each run
    std::function<bool()> occupied;                           // true while a batch uses the trainer
    std::function<void()> savePreferences;                    // they have changed
    std::function<void(const std::filesystem::path&)> openFolder;
    // By what the preferences say; called from another thread.
    std::function<std::optional<ToolLocation>(const std::string& configured)> findColmap = &quor::findColmap;
  };
  explicit Workspace(Parts parts);
  ~Workspace();  // cancels what runs, waits for it, and saves what is not saved yet
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  // Dropped, chosen or named: looked at in the background; media go to the form, all else is opened.
  void open(std::vector<std::filesystem::path> paths);
  // `outDir` empty: the project comes to lie beside the dataset.
  void importDataset(std::filesystem::path dataset, std::filesystem::path outDir);
  void closeProject();

  void update();  // once a frame

  // Something is opened or created: a spinner with this text.
  bool loading() const { return !taskText().empty(); }
  const std::string& taskText() const { return work_.text(); }
  bool busy() const { return pipeline_ && pipeline_->busy(); }  // a stage runs

  const std::optional<Project>& project() const { return project_; }
  const std::vector<std::string>& recentProjects() const { return parts_.preferences.recentProjects; }
  // Changes its settings; they are saved in the background. A run that is under way goes on with those it began with.
  void editProject(const std::function<void(Project&)>& change);
  // What the user should know before changing settings now; empty when there is nothing.
  std::string settingsNote() const;

  // Both do nothing when the button for it cannot be pressed.
  void start(Stage from, Stage to);
  void continueTraining(int upToStep);
  void cancel();        // ends what runs without its result
  void stopTraining();  // ends training after the current step; the scene is written

  // The large button: everything from the first stage that a project of its kind needs.
  Button buildButton() const;
  void build() { start(firstStage(), Stage::Train); }
  // Training on from the checkpoint, where there is one.
  bool hasCheckpoint() const;
  Button continueButton(int upToStep) const;
  // The step to go on to: what the user has set since the checkpoint was written, else a sensible one.
  int continuationTarget() const;
  void setContinuationTarget(int step) { continueTo_ = step; }
  Button stopButton() const;
  Button cancelButton() const;
  std::array<StageRow, kStageCount> stages() const;

  gs::TrainStatus training() const { return parts_.trainer.status(); }
  const ViewSource& view() const { return view_; }
  std::vector<Notice>& notices() { return notices_; }
  NewMedia& newMedia() { return newMedia_; }
  Results& results() { return results_; }
  const Results& results() const { return results_; }

  // Preferences may have changed where COLMAP is: looked for again in the background. Known soon after the start.
  void findTools();
  bool colmapMissing() const { return colmapKnown_ && !colmapFound_; }

  // Whether the window can close without asking; if not, the question to ask with.
  bool mayClose() const { return closeQuestion().empty(); }
  std::string closeQuestion() const;

 private:
  bool refuseOpening();
  void takeOver(Opened opened);
  void setProject(Project project);
  void takeFacts(ProjectFacts facts);
  void create(const NewMedia::Request& request);
  void say(Notice notice);
  void fail(const std::string& title, const std::string& sentence);

  Stage firstStage() const;
  // Why no stage can be started now; empty when one can.
  std::string obstacle() const;
  std::string obstacleTo(Stage from, Stage to) const;
  void begin(Stage from, Stage to, bool resume);
  void launch(Stage from, Stage to, bool resume);
  void followRun();
  void endRun();
  void explainFailure(Stage stage, const RunResult& result, const std::optional<CheckpointFacts>& before);
  void refreshFacts(std::function<void()> then = {});
  void takeExtraction();
  bool framesRun() const;
  void save();
  StageRow stageRow(Stage stage) const;

  const Parts parts_;
  std::optional<Project> project_;
  ProjectFacts facts_;
  ViewSource view_;
  std::vector<Notice> notices_;
  bool colmapKnown_ = false;
  bool colmapFound_ = false;

  int continueTo_ = 0;  // 0: not set
  bool unsaved_ = false;
  bool saving_ = false;
  std::shared_ptr<PipelineRun> run_;  // under way, or ended and not yet looked at
  std::array<StageState, kStageCount> seen_ = {};
  std::optional<CheckpointFacts> checkpointBefore_;
  std::unique_ptr<Pipeline> pipeline_;

  NewMedia newMedia_;
  Results results_;
  Background tools_;
  Background reader_;  // facts about the open project
  Background work_;    // opening, creating and saving, in the order in which they were asked for
};

}  // namespace quor::ui
