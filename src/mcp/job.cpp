#include "mcp/job.h"

#include <cmath>
#include <stdexcept>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "pipeline/result_document.h"

namespace quor::mcp {

namespace {

const char* stagePrefix(Stage stage) {
  switch (stage) {
    case Stage::Frames:
      return "frames · ";
    case Stage::Sparse:
      return "sparse · ";
    case Stage::Train:
      break;
  }
  return "training · ";
}

std::string timeLeft(double seconds) {
  if (!(seconds >= 0 && seconds < 360000)) return {};
  if (seconds < 90) return formatText(", about %.0f seconds left", std::ceil(seconds));
  return formatText(", about %.0f minutes left", std::ceil(seconds / 60));
}

std::string describe(const gs::TrainResult& result) {
  std::string text = std::to_string(result.splats) + " splats after " + std::to_string(result.steps) + " steps";
  if (result.evaluation.views > 0) {
    text += formatText(", held-out PSNR %.2f dB", static_cast<double>(result.evaluation.psnr));
  }
  return text + (result.stopped ? "; stopped early." : ".");
}

std::string describe(const Batch& batch) {
  std::string text = formatText("%zu of %zu projects finished", batch.count(ItemState::Finished), batch.items.size());
  const size_t failed = batch.count(ItemState::Failed);
  return text + (failed > 0 ? formatText(", %zu failed.", failed) : ".");
}

std::unique_ptr<Pipeline> makePipeline(const Equipment& equipment, LogStore& log) {
  return std::make_unique<Pipeline>(*equipment.trainer, log, equipment.tools, equipment.gpu.get());
}

}  // namespace

Job::Job(std::string id, const char* kind, ProjectWork work, Equipment equipment, LogStore& log)
    : id_(std::move(id)), kind_(kind), log_(log), work_(std::move(work)), equipment_(std::move(equipment)) {
  pipeline_ = makePipeline(equipment_, log_);
}

Job::Job(std::string id, Batch batch, Equipment equipment, LogStore& log, OpenEquipment reopen)
    : id_(std::move(id)), kind_("batch"), log_(log), reopen_(std::move(reopen)), equipment_(std::move(equipment)) {
  pipeline_ = makePipeline(equipment_, log_);
  queue_ = std::make_unique<BatchQueue>(std::move(batch), [this](size_t, BatchEvent) { tick_(); });
}

void Job::run(const std::function<void()>& tick) {
  tick_ = tick;
  try {
    queue_ ? runBatch() : runProject(tick);
  } catch (const std::exception& error) {
    end(State::Failed, failureText(error), failureText(error));
  }
  tick();
}

void Job::runProject(const std::function<void()>& tick) {
  std::shared_ptr<PipelineRun> run;
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) throw Cancelled();
    pipeline_->open(work_.project);
    run = pipeline_->start(work_.from, Stage::Train);
    if (!run) throw std::runtime_error("the pipeline could not start");
  }
  const RunResult ended = run->follow(tick);
  if (!ended.success()) return end(State::Failed, ended.text, ended.text);
  const gs::TrainResult result = ended.training.value_or(gs::TrainResult{});
  std::string detail = describe(result);
  try {
    if (work_.saveAtEnd) work_.project.save();
  } catch (const std::exception& error) {
    detail += std::string(" The settings of this run were not kept: ") + error.what();
  }
  end(State::Finished, detail, resultDocument(work_.project, result));
}

void Job::runBatch() {
  queue_->run(*pipeline_, *equipment_.trainer, log_, [this] { return reopen(); });
  const Batch batch = queue_->snapshot();
  const bool all = batch.count(ItemState::Finished) == batch.items.size();
  end(all ? State::Finished : State::Failed, describe(batch), batchResult(batch));
}

BatchQueue::Equipment Job::reopen() {
  giveBack();
  Equipment fresh = reopen_();
  std::unique_ptr<Pipeline> pipeline = makePipeline(fresh, log_);
  const std::lock_guard lock(mutex_);
  equipment_ = std::move(fresh);
  pipeline_ = std::move(pipeline);
  return {pipeline_.get(), equipment_.trainer.get()};
}

void Job::giveBack() {
  // Destroyed without the lock, so that waiting for a GPU keeps no status waiting.
  Equipment equipment;
  std::unique_ptr<Pipeline> pipeline;
  const std::lock_guard lock(mutex_);
  equipment = std::move(equipment_);
  pipeline = std::move(pipeline_);
}

void Job::end(State state, std::string detail, std::string result) {
  {
    const std::lock_guard lock(mutex_);
    detail_ = "Finishing";
  }
  giveBack();  // before the job counts as ended, so that the next one finds the GPU free
  {
    const std::lock_guard lock(mutex_);
    state_ = state;
    detail_ = std::move(detail);
    result_ = std::move(result);
    end_ = Clock::now();
  }
  ended_.notify_all();
}

bool Job::waitFor(std::chrono::milliseconds patience) const {
  std::unique_lock lock(mutex_);
  return ended_.wait_for(lock, patience, [this] { return state_ != State::Running; });
}

std::vector<std::filesystem::path> Job::projects() const {
  const std::lock_guard lock(mutex_);
  if (!queue_) return {work_.project.root};
  std::vector<std::filesystem::path> roots;
  for (const BatchItem& item : queue_->snapshot().items) {
    if (!item.projectRoot.empty()) roots.push_back(item.projectRoot);
  }
  return roots;
}

void Job::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  if (queue_) {
    queue_->cancel();
  } else if (pipeline_) {
    pipeline_->requestStop();
  }
}

void Job::cancel() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  if (queue_) {
    queue_->cancelAtOnce();
  } else if (pipeline_) {
    pipeline_->cancel();
  }
}

bool Job::running() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::Running;
}

Job::Result Job::result() const {
  const std::lock_guard lock(mutex_);
  return {state_ == State::Finished, result_};
}

Document Job::status() const {
  const std::lock_guard lock(mutex_);
  const bool running = state_ == State::Running;
  Document document;
  document["job"] = id_;
  document["kind"] = kind_;
  document["state"] = running ? "running" : state_ == State::Finished ? "finished" : "failed";
  const std::chrono::duration<double> elapsed = (running ? Clock::now() : end_) - start_;
  document["elapsed_seconds"] = std::round(elapsed.count() * 10) / 10;
  document["detail"] = detail_;
  if (queue_) {
    addBatch(document);
  } else {
    document["project"] = toUtf8(work_.project.root);
  }
  if (running && pipeline_) addProgress(document);
  return document;
}

void Job::addProgress(Document& document) const {
  const Stage stage = pipeline_->currentStage();
  const StageStatus status = pipeline_->status(stage);
  if (status.state == StageState::NotRun) return;
  document["detail"] = stageName(stage) + timeLeft(status.secondsLeft);
  document["stage"] = stagePrefix(stage) + status.message;
  if (status.fraction >= 0) {
    document["stage_progress"] = std::round(static_cast<double>(status.fraction) * 1e3) / 1e3;
  }
  if (stage != Stage::Train) return;
  const gs::TrainStatus training = equipment_.trainer->status();
  document["iteration"] = training.step;
  document["total_iterations"] = training.iterations;
  document["splats"] = training.splats;
}

void Job::addBatch(Document& document) const {
  const Batch batch = queue_->snapshot();
  document["batch"] = toUtf8(batch.file);
  document["batch_items"] = batch.items.size();
  const std::optional<size_t> current = queue_->current();
  if (!current || *current >= batch.items.size()) return;
  document["batch_item"] = *current + 1;
  const BatchItem& item = batch.items[*current];
  document["current_project"] = item.projectRoot.empty() ? item.name() : toUtf8(item.projectRoot);
}

std::string Job::batchResult(const Batch& batch) const {
  Document document;
  document["batch"] = toUtf8(batch.file);
  document["destination"] = toUtf8(batch.destination);
  document["finished"] = batch.count(ItemState::Finished);
  document["failed"] = batch.count(ItemState::Failed);
  Document& items = document["items"] = Document::array();
  for (const BatchItem& item : batch.items) {
    Document entry = {{"name", item.name()}, {"state", itemStateName(item.state)}, {"note", item.note}};
    if (!item.projectRoot.empty()) entry["project"] = toUtf8(item.projectRoot);
    items.push_back(entry);
  }
  return toLine(document);
}

}  // namespace quor::mcp
