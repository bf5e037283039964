#include "pipeline/batch/batch_queue.h"

#include <chrono>
#include <memory>
#include <thread>

#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor {

namespace {

constexpr std::chrono::milliseconds kPoll{30};
constexpr const char* kBusy = "the pipeline was busy";

struct Ended {
  bool success = false;
  std::string result;
};

std::string splatCount(uint64_t splats) {
  return std::to_string(splats) + " splats";
}

std::string describe(const gs::TrainResult& result) {
  if (result.stopped) return formatText("Stopped at step %d, exported", result.steps);
  std::string note = splatCount(result.splats);
  if (result.evaluation.views > 0) note += formatText(" - PSNR %.2f dB", static_cast<double>(result.evaluation.psnr));
  return note;
}

}  // namespace

void BatchQueue::run(Pipeline& pipeline, gs::TrainingService& engine, LogStore& log) {
  struct NoneAtWork {
    BatchQueue& queue;
    ~NoneAtWork() { queue.setCurrent({}); }
  } const noneAtWork{*this};

  const size_t count = snapshot().items.size();
  bool stopped = false;
  for (size_t i = 0; i < count && !stopped; ++i) {
    if (item(i).state == ItemState::Finished) {
      notify(i, BatchEvent::Skipped);
      continue;
    }
    if (request_.load() != Request::None) break;
    const std::string name = item(i).name();
    setCurrent(i);
    log.info("Batch: building " + name + formatText(" (%zu of %zu)", i + 1, count));
    notify(i, BatchEvent::Begun);
    const Ending ending = work(i, {pipeline, engine, log});
    if (ending.state == ItemState::Failed) log.error("Batch: " + name + " failed: " + ending.note);
    record(i, [&](BatchItem& item) {
      item.state = ending.state;
      item.note = ending.note;
    });
    notify(i, BatchEvent::Ended);
    setCurrent({});
    stopped = ending.state == ItemState::Waiting;
  }
  const size_t finished = snapshot().count(ItemState::Finished);
  stopped = stopped || request_.load() != Request::None;
  log.info(formatText(stopped ? "Batch stopped: %zu of %zu" : "Batch finished: %zu of %zu", finished, count));
}

BatchQueue::Ending BatchQueue::work(size_t index, const Work& on) {
  if (on.pipeline.busy()) return {ItemState::Failed, kBusy};
  std::optional<BatchPlan> plan;
  try {
    plan = planItem(snapshot(), index);
  } catch (const std::exception& error) {
    return {ItemState::Failed, error.what()};
  }
  // Before there is anything in the folder: whatever happens next, it is known whose it is.
  record(index, [&](BatchItem& item) {
    item.state = ItemState::Waiting;
    item.note.clear();
    item.projectRoot = plan->project.root;
  });
  try {
    if (!plan->found.empty()) on.log.info("Batch: " + item(index).name() + ": " + plan->found);
    return build(index, *plan, on);
  } catch (const std::exception& error) {
    return {ItemState::Failed, error.what()};
  }
}

BatchQueue::Ending BatchQueue::build(size_t index, const BatchPlan& plan, const Work& on) {
  if (plan.finishedSplats) return {ItemState::Finished, splatCount(*plan.finishedSplats)};
  preparePlan(plan);
  // Only this run continues: a project whose own settings said so could not be trained again when it is complete.
  Project project = plan.project;
  project.training.continueFromCheckpoint |= plan.resume;
  Ending ending = runStages(index, project, plan.from, on.pipeline);
  const bool refused = plan.resume && ending.state == ItemState::Failed && on.engine.status().step == 0;
  if (refused) ending.note += " To train from the start, remove " + toUtf8(project.checkpointFile()) + ".";
  return ending;
}

BatchQueue::Ending BatchQueue::runStages(size_t index, const Project& project, Stage from, Pipeline& pipeline) {
  // Shared with the worker, which may outlive this function when an observer throws.
  const auto outcome = std::make_shared<Ended>();
  pipeline.open(project);
  const bool started = pipeline.start(from, Stage::Train, [outcome](bool success, const std::string& result) {
    *outcome = {success, result};
  });
  if (!started) return {ItemState::Failed, kBusy};
  Request passedOn = Request::None;
  while (pipeline.busy()) {
    const Request request = request_;
    if (request > passedOn) request == Request::Stop ? pipeline.requestStop() : pipeline.cancel();
    passedOn = request;
    notify(index, BatchEvent::Working);
    std::this_thread::sleep_for(kPoll);
  }
  if (!outcome->success) {
    return {outcome->result == Cancelled().what() ? ItemState::Waiting : ItemState::Failed, outcome->result};
  }
  const gs::TrainResult result = pipeline.trainResult().value_or(gs::TrainResult{});
  return {result.stopped ? ItemState::Waiting : ItemState::Finished, describe(result)};
}

void BatchQueue::cancel() {
  Request none = Request::None;
  request_.compare_exchange_strong(none, Request::Stop);
}

void BatchQueue::cancelAtOnce() {
  request_ = Request::CancelAtOnce;
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

void BatchQueue::reset() {
  setCurrent({});
  request_ = Request::None;
}

void BatchQueue::setCurrent(std::optional<size_t> index) {
  const std::lock_guard lock(mutex_);
  current_ = index;
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
