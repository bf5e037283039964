#include "pipeline/batch/batch_queue.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "base/files/file_lock.h"
#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor {

namespace {

constexpr std::chrono::milliseconds kObserve{30};
constexpr const char* kBusy = "the pipeline was busy";

std::string splatCount(uint64_t splats) {
  return std::to_string(splats) + " splats";
}

std::string describe(const gs::TrainResult& result) {
  if (result.stopped) return formatText("Stopped at step %d, exported", result.steps);
  std::string note = splatCount(result.splats);
  if (result.evaluation.views > 0) note += formatText(" - PSNR %.2f dB", static_cast<double>(result.evaluation.psnr));
  return note;
}

FileLock lockBatch(const std::filesystem::path& file) {
  std::filesystem::path lockFile = file;
  lockFile += ".lock";
  if (std::optional<FileLock> lock = FileLock::tryAcquire(lockFile)) return *std::move(lock);
  throw std::runtime_error("Another Ombrelux is working through " + toUtf8(file) +
                           ". Wait until it has finished, or end it there.");
}

}  // namespace

void BatchQueue::run(Pipeline& pipeline, gs::TrainingService& engine, LogStore& log, const Renew& renew) {
  struct NoneAtWork {
    BatchQueue& queue;
    ~NoneAtWork() { queue.setCurrent({}); }
  } const noneAtWork{*this};
  const FileLock lock = lockBatch(snapshot().file);
  Work work{{&pipeline, &engine}, log, renew};
  const bool stopped = workThrough(work);
  const Batch batch = snapshot();
  log.info(formatText(stopped ? "Batch stopped: %zu of %zu" : "Batch finished: %zu of %zu",
                      batch.count(ItemState::Finished), batch.items.size()));
}

// Whether it was stopped before its end.
bool BatchQueue::workThrough(Work& work) {
  const size_t count = snapshot().items.size();
  for (size_t i = 0; i < count; ++i) {
    if (item(i).state == ItemState::Finished) {
      notify(i, BatchEvent::Skipped);
      continue;
    }
    if (request() != Request::None) return true;
    const std::string name = item(i).name();
    setCurrent(i);
    work.log.info("Batch: building " + name + formatText(" (%zu of %zu)", i + 1, count));
    notify(i, BatchEvent::Begun);
    Ending ending = attempt(i, work);
    if (ending.outcome == Outcome::DeviceLost && work.renew && request() == Request::None) {
      work.log.warning("Batch: the GPU was lost while " + name + " was built; it is opened again for another try.");
      ending = attempt(i, work);
    }
    if (ending.state == ItemState::Failed) work.log.runFailure("Batch: " + name + " failed: " + ending.note);
    record(i, [&](BatchItem& item) {
      item.state = ending.state;
      item.note = ending.note;
    });
    notify(i, BatchEvent::Ended);
    setCurrent({});
    if (ending.state == ItemState::Waiting) return true;
  }
  return request() != Request::None;
}

BatchQueue::Ending BatchQueue::attempt(size_t index, Work& work) {
  if (work.deviceLost && work.renew) {
    try {
      work.on = work.renew();
    } catch (const std::exception& error) {
      return {ItemState::Failed, "The GPU was lost and cannot be opened again: " + failureText(error)};
    }
  }
  Ending ending = this->work(index, work);
  work.deviceLost = ending.outcome == Outcome::DeviceLost;
  return ending;
}

BatchQueue::Ending BatchQueue::work(size_t index, const Work& on) {
  if (on.on.pipeline->busy()) return {ItemState::Failed, kBusy};
  std::optional<BatchPlan> plan;
  try {
    plan = planItem(snapshot(), index);
  } catch (const std::exception& error) {
    return {ItemState::Failed, failureText(error)};
  }
  // Before there is anything in the folder, so that its owner is known whatever happens next.
  record(index, [&](BatchItem& item) {
    item.state = ItemState::Waiting;
    item.note.clear();
    item.projectRoot = plan->project.root;
  });
  try {
    if (!plan->found.empty()) on.log.info("Batch: " + item(index).name() + ": " + plan->found);
    return build(index, *plan, on);
  } catch (const std::exception& error) {
    return {ItemState::Failed, failureText(error)};
  }
}

BatchQueue::Ending BatchQueue::build(size_t index, const BatchPlan& plan, const Work& on) {
  if (plan.finishedSplats) return {ItemState::Finished, splatCount(*plan.finishedSplats)};
  Ending ending = runStages(index, plan, on);
  const bool refused = plan.resume && ending.state == ItemState::Failed && on.on.engine->status().step == 0 &&
                       ending.outcome != Outcome::DeviceLost;
  if (refused) ending.note += " To train from the start, remove " + toUtf8(plan.project.checkpointFile()) + ".";
  return ending;
}

BatchQueue::Ending BatchQueue::runStages(size_t index, const BatchPlan& plan, const Work& on) {
  std::error_code ignored;  // preparePlan() says what is wrong with the folder
  std::filesystem::create_directories(plan.project.root, ignored);
  ProjectLock lock(plan.project);
  preparePlan(plan);
  // Only this run continues: a project whose own settings said so could not be trained again when it is complete.
  Project project = plan.project;
  project.training.continueFromCheckpoint |= plan.resume;
  Pipeline& pipeline = *on.on.pipeline;
  pipeline.open(project);
  const std::shared_ptr<PipelineRun> run = pipeline.start(plan.from, Stage::Train, {}, std::move(lock));
  if (!run) return {ItemState::Failed, kBusy};
  {
    const std::lock_guard guard(mutex_);
    run_ = run;
    if (request_ == Request::Stop) run->requestStop();
    if (request_ == Request::Cancel) run->cancel();
  }
  const RunResult result = run->follow([&] { notify(index, BatchEvent::Working); }, kObserve);
  if (result.outcome == Outcome::Cancelled) return {ItemState::Waiting, result.text, result.outcome};
  if (!result.success()) return {ItemState::Failed, result.text, result.outcome};
  const gs::TrainResult training = result.training.value_or(gs::TrainResult{});
  return {training.stopped ? ItemState::Waiting : ItemState::Finished, describe(training), result.outcome};
}

void BatchQueue::cancel() {
  const std::lock_guard lock(mutex_);
  if (request_ == Request::None) request_ = Request::Stop;
  if (run_) run_->requestStop();
}

void BatchQueue::cancelAtOnce() {
  const std::lock_guard lock(mutex_);
  request_ = Request::Cancel;
  if (run_) run_->cancel();
}

BatchQueue::Request BatchQueue::request() const {
  const std::lock_guard lock(mutex_);
  return request_;
}

Batch BatchQueue::snapshot() const {
  const std::lock_guard lock(mutex_);
  return batch_;
}

BatchItem BatchQueue::item(size_t index) const {
  const std::lock_guard lock(mutex_);
  return batch_.items.at(index);
}

std::optional<size_t> BatchQueue::current() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

void BatchQueue::setCurrent(std::optional<size_t> index) {
  const std::lock_guard lock(mutex_);
  current_ = index;
  run_.reset();
}

void BatchQueue::record(size_t index, const std::function<void(BatchItem&)>& change) {
  {
    const std::lock_guard lock(mutex_);
    change(batch_.items[index]);
  }
  snapshot().save();
}

void BatchQueue::notify(size_t index, BatchEvent event) const {
  if (observer_) observer_(index, event);
}

}  // namespace quor
