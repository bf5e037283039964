#include "app/batch_command.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "app/output/progress_printer.h"
#include "app/run_project.h"
#include "app/session.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "gs/train/engine.h"
#include "pipeline/batch/batch_queue.h"
#include "pipeline/intake.h"

namespace quor {

namespace {

// A batch at work, its progress on the console.
class BatchRun {
 public:
  BatchRun(Session& session, Batch batch, bool json)
      : session_(session),
        console_(session.console()),
        queue_(std::move(batch), [this](size_t item, BatchEvent event) { show(item, event); }),
        interrupts_([this] { announce(); }, [this] { queue_.cancel(); }, [this] { queue_.cancelAtOnce(); }),
        json_(json) {
    makeEquipment();
  }

  void run() {
    queue_.run(*pipeline_, *engine_, session_.log(), [this] { return renewEquipment(); });
    console_.printLog();
  }

  Batch batch() const { return queue_.snapshot(); }
  const std::set<size_t>& skipped() const { return skipped_; }
  bool wrote() const { return wrote_; }

 private:
  void makeEquipment() {
    engine_.emplace(session_.device(), session_.log());
    pipeline_.emplace(*engine_, session_.log(), session_.tools(), &session_.device());
  }

  // Leaves nothing to work on when the device cannot be opened again; the queue then asks anew for the next item.
  BatchQueue::Equipment renewEquipment() {
    printer_.reset();
    pipeline_.reset();
    engine_.reset();
    session_.openDevice();
    makeEquipment();
    printer_.emplace(*pipeline_, *engine_, console_);
    return {&*pipeline_, &*engine_};
  }

  void show(size_t index, BatchEvent event) {
    switch (event) {
      case BatchEvent::Skipped:
        skipped_.insert(index);
        console_.message("skipped: " + queue_.item(index).name());
        break;
      case BatchEvent::Begun:
        console_.printLog();
        console_.message("running: " + queue_.item(index).name());
        if (pipeline_) printer_.emplace(*pipeline_, *engine_, console_);
        announced_ = false;
        break;
      case BatchEvent::Working:
        announceFolder(queue_.item(index));
        printer_->update();
        break;
      case BatchEvent::Ended:
        showEnd(queue_.item(index));
        break;
    }
    interrupts_.update();
  }

  void announce() {
    if (pipeline_) announceStop(*pipeline_, *engine_, console_);
  }

  void announceFolder(const BatchItem& item) {
    if (!announced_) console_.message("Project: " + toUtf8(item.projectRoot));
    announced_ = true;
  }

  void showEnd(const BatchItem& item) {
    if (announced_ && printer_) {  // else the pipeline still tells of the item before
      printer_->update();
      printer_->finish();
    }
    const bool failed = item.state == ItemState::Failed;
    console_.printLog();
    const std::string line = std::string(itemStateName(item.state)) + ": " + item.name() + " — " + item.note;
    failed ? console_.notice(line) : console_.message(line);
    if (item.state != ItemState::Finished || json_ || !item.training.exportPLY) return;
    Project project;
    project.root = item.projectRoot;
    wrote_ = writeStandardOutput(toUtf8(project.sceneFile()) + "\n") && wrote_;
  }

  Session& session_;
  Console& console_;
  std::optional<gs::Engine> engine_;
  std::optional<Pipeline> pipeline_;
  BatchQueue queue_;
  Interrupts interrupts_;
  const bool json_;
  std::optional<ProgressPrinter> printer_;
  std::set<size_t> skipped_;
  bool announced_ = false;  // the folder of the item at work
  bool wrote_ = true;
};

std::string document(const Batch& batch, const std::set<size_t>& skipped) {
  nlohmann::ordered_json document;
  document["batch"] = toUtf8(batch.file);
  document["destination"] = toUtf8(batch.destination);
  document["projects"] = batch.items.size();
  document["finished"] = batch.count(ItemState::Finished);
  document["failed"] = batch.count(ItemState::Failed);
  auto& items = document["items"] = nlohmann::ordered_json::array();
  for (size_t i = 0; i < batch.items.size(); ++i) {
    const BatchItem& item = batch.items[i];
    nlohmann::ordered_json entry;
    entry["name"] = item.name();
    entry["state"] = skipped.contains(i) ? "skipped" : itemStateName(item.state);
    entry["note"] = item.note;
    if (!item.projectRoot.empty()) entry["project"] = toUtf8(item.projectRoot);
    Project project;
    project.root = item.projectRoot;
    std::error_code ignored;
    const bool scene = item.state == ItemState::Finished && std::filesystem::exists(project.sceneFile(), ignored);
    if (scene) entry["ply"] = toUtf8(project.sceneFile());
    items.push_back(std::move(entry));
  }
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

int conclude(const BatchRun& run, const Options& options, Console& console) {
  const Batch batch = run.batch();
  const size_t failed = batch.count(ItemState::Failed);
  std::string summary =
      formatText("%zu of %zu projects finished", batch.count(ItemState::Finished), batch.items.size());
  if (failed > 0) summary += formatText(", %zu failed", failed);
  console.message(summary);
  const bool wrote = run.wrote() && (!options.json || writeStandardOutput(document(batch, run.skipped())));
  if (!wrote) console.error("The result could not be written to standard output.");
  if (batch.count(ItemState::Waiting) > 0) {
    console.error("Cancelled. The same command goes on where it stopped.");
    return kExitCancelled;
  }
  return failed > 0 || !wrote ? kExitFailure : kExitSuccess;
}

}  // namespace

int batchCommand(const Options& options) {
  Batch batch = Batch::load(fromUtf8(options.paths[0]));
  Session session(options);
  session.say(formatText("Batch: %zu projects, writing to ", batch.items.size()) + toUtf8(batch.destination));
  if (batch.items.empty()) session.warn(toUtf8(batch.file) + " lists no captures.");
  session.openDevice();
  const auto solves = [](const BatchItem& item) {
    return item.state != ItemState::Finished && item.colmapImport.empty();
  };
  if (std::ranges::any_of(batch.items, solves)) session.warnOfMissingColmap();
  BatchRun run(session, std::move(batch), options.json);
  run.run();
  return conclude(run, options, session.console());
}

}  // namespace quor
