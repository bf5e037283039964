#include "pipeline/pipeline.h"

#include <stdexcept>
#include <utility>

#include "base/crash/crash_handler.h"
#include "pipeline/project_contents.h"

namespace quor {

namespace {

size_t indexOf(Stage stage) {
  return static_cast<size_t>(stage);
}

// Whether a request that has come ends a stage without its result.
bool cancels(Stage stage, PipelineRun::Request request) {
  return request == PipelineRun::Request::Cancel || (request == PipelineRun::Request::Stop && stage != Stage::Train);
}

RunResult cancelled() {
  return {Outcome::Cancelled, Cancelled().what(), {}};
}

}  // namespace

const char* stageName(Stage stage) {
  switch (stage) {
    case Stage::Frames:
      return "Prepare frames";
    case Stage::Sparse:
      return "Sparse reconstruction";
    case Stage::Train:
      break;
  }
  return "Train Gaussians";
}

Pipeline::Pipeline(gs::TrainingService& trainer, LogStore& log, Tools tools, gs::VulkanContext* gpu, StageBodies stages)
    : trainer_(trainer), log_(log), tools_(std::move(tools)), gpu_(gpu), bodies_(std::move(stages)) {}

Pipeline::~Pipeline() {
  cancel();
  if (worker_.joinable()) worker_.join();
}

void Pipeline::requireIdle() {
  if (busy()) throw std::runtime_error("Finish or cancel the running stage first.");
  if (worker_.joinable()) worker_.join();
}

void Pipeline::resetLocked() {
  stages_ = {};
  current_ = Stage::Frames;
  run_.reset();
}

void Pipeline::open(const Project& project) {
  requireIdle();
  const std::lock_guard lock(mutex_);
  project_ = project;
  resetLocked();
}

void Pipeline::close() {
  requireIdle();
  const std::lock_guard lock(mutex_);
  project_.reset();
  resetLocked();
}

std::shared_ptr<PipelineRun> Pipeline::start(Stage from, Stage to, Completion completion,
                                             std::optional<ProjectLock> lock) {
  if (busy()) return nullptr;
  if (worker_.joinable()) worker_.join();
  const std::optional<Project> opened = project();
  if (!opened) return nullptr;
  if (!lock) lock.emplace(*opened);
  auto run = std::make_shared<PipelineRun>();
  {
    const std::lock_guard guard(mutex_);
    for (size_t i = indexOf(from); i <= indexOf(to); ++i) stages_[i] = {};
    current_ = from;
    run_ = run;
  }
  try {
    worker_ = std::thread([this, from, to, run, done = std::move(completion), held = std::move(lock)]() mutable {
      const ThreadCrashStack stack;
      RunResult result = runStages(from, to, *run);
      held.reset();
      if (done) done(result.success(), result.text);
      run->end(std::move(result));
    });
  } catch (...) {
    const std::lock_guard guard(mutex_);
    run_.reset();  // no thread to end it
    throw;
  }
  return run;
}

bool Pipeline::busy() const {
  const std::lock_guard lock(mutex_);
  return run_ && !run_->ended();
}

void Pipeline::cancel() {
  const std::lock_guard lock(mutex_);
  if (run_) run_->cancel();
}

void Pipeline::requestStop() {
  const std::lock_guard lock(mutex_);
  if (run_) run_->requestStop();
}

Stage Pipeline::currentStage() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

StageStatus Pipeline::status(Stage stage) const {
  const std::lock_guard lock(mutex_);
  return stages_[indexOf(stage)];
}

std::optional<Project> Pipeline::project() const {
  const std::lock_guard lock(mutex_);
  return project_;
}

std::vector<std::string> Pipeline::summary() const {
  const std::optional<Project> opened = project();
  return opened ? summaryLines(*opened) : std::vector<std::string>(kStageCount, "Not run");
}

void Pipeline::report(Stage stage, StageStatus status) {
  const std::lock_guard lock(mutex_);
  // Stages that do not know their time left get it from their pace so far, once that says something.
  if (status.secondsLeft != status.secondsLeft && status.fraction > 0.02f && stage != Stage::Train) {
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - stageStart_).count();
    if (elapsed > 2) status.secondsLeft = elapsed * (1.0 / double{status.fraction} - 1.0);
  }
  stages_[indexOf(stage)] = std::move(status);
}

RunResult Pipeline::runStages(Stage from, Stage to, const PipelineRun& run) {
  RunResult result;
  for (size_t i = indexOf(from); result.success() && i <= indexOf(to); ++i) {
    runStage(static_cast<Stage>(i), run, result);
  }
  return result;
}

void Pipeline::runStage(Stage stage, const PipelineRun& run, RunResult& result) {
  try {
    std::optional<Project> project = beginStage(stage, run);
    if (!project) return;
    const StageContext context{log_,     tools_, gpu_,
                               trainer_, run,    [this, stage](const StageStatus& status) { report(stage, status); }};
    StageResult done = bodies_[indexOf(stage)](*project, context);
    endStage(stage, *project, done.message);
    result.training = std::move(done.training);
    if (cancels(stage, run.request())) result = cancelled();
  } catch (const std::exception& error) {
    const Outcome outcome = outcomeOf(error);
    const bool ended = outcome == Outcome::Cancelled || cancels(stage, run.request());
    result = ended ? cancelled() : RunResult{outcome, failureText(error), {}};
    failStage(stage, result);
  }
}

// The project as it is now, or nothing when the stage is to be skipped.
std::optional<Project> Pipeline::beginStage(Stage stage, const PipelineRun& run) {
  const std::lock_guard lock(mutex_);
  if (!project_) throw std::logic_error("no project");
  // A wrapped dataset has its frames and cameras already.
  if (!project_->externalDataset.empty() && stage != Stage::Train) return std::nullopt;
  if (run.mustEnd()) throw Cancelled();
  stages_[indexOf(stage)] = {StageState::Running, "Starting"};
  stageStart_ = std::chrono::steady_clock::now();
  current_ = stage;
  return project_;
}

void Pipeline::endStage(Stage stage, const Project& project, const std::string& message) {
  const std::lock_guard lock(mutex_);
  project_ = project;
  StageStatus& status = stages_[indexOf(stage)];
  status = {StageState::Done, message, 1};
}

void Pipeline::failStage(Stage stage, const RunResult& result) {
  StageStatus status{StageState::Failed, result.text};
  status.outcome = result.outcome;
  report(stage, std::move(status));
  const std::string name = stageName(stage);
  if (result.outcome == Outcome::Cancelled) {
    log_.warning(name + " cancelled");
  } else {
    log_.runFailure(name + " failed: " + result.text);
  }
}

}  // namespace quor
