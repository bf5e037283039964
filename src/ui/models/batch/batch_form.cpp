#include "ui/models/batch/batch_form.h"

#include <algorithm>
#include <utility>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "project/classify.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace {

constexpr std::chrono::milliseconds kShowEvery{250};

std::string mediaText(const BatchItem& item) {
  if (!item.colmapImport.empty()) return "COLMAP dataset: " + item.colmapImport;
  if (item.sources.empty()) return "No media";
  const InputSource& first = item.sources.front();
  const bool photograph = isImageFile(fromUtf8(first.path));
  std::string text = std::string(photograph ? "Photographs" : kindLabel(first.kind)) + ": " + first.path;
  if (item.sources.size() > 1) text += formatText(" and %zu more", item.sources.size() - 1);
  return text;
}

BatchForm::RowState rowState(ItemState state) {
  switch (state) {
    case ItemState::Finished:
      return BatchForm::RowState::Finished;
    case ItemState::Failed:
      return BatchForm::RowState::Failed;
    case ItemState::Waiting:
      break;
  }
  return BatchForm::RowState::Waiting;
}

}  // namespace

BatchForm::BatchForm(Parts parts)
    : parts_(std::move(parts)),
      list_({parts_.configure, [this](const std::string& sentence) { messages_.push_back(sentence); },
             [this] { takeItems(); }}),
      editor_(list_) {}

void BatchForm::update() {
  list_.update();
  if (!run_) return;
  if (!run_->running()) return endRun();
  showProgress();
}

void BatchForm::takeItems() {
  const std::optional<size_t> selected = editor_.selected();
  if (selected && *selected >= list_.batch().items.size()) editor_.select({});
  showRows(list_.batch());
}

void BatchForm::showRows(const Batch& batch) {
  rows_.clear();
  for (const BatchItem& item : batch.items) {
    rows_.push_back({item.name(), mediaText(item), rowState(item.state), item.note, -1, !item.projectRoot.empty()});
  }
}

void BatchForm::showProgress() {
  const std::optional<BatchRun::Progress> progress = run_->progress();
  const std::optional<size_t> item = progress ? std::optional(progress->item) : std::nullopt;
  const auto now = std::chrono::steady_clock::now();
  if (now - shown_ > kShowEvery || item != atWork_) {
    showRows(run_->batch());
    shown_ = now;
    atWork_ = item;
  }
  if (!item || *item >= rows_.size()) return;
  Row& row = rows_[*item];
  row.state = RowState::Running;
  row.fraction = progress->status.fraction;
  row.text = std::string(stageName(progress->stage)) + ": " + progress->status.message;
  if (const std::string left = timeLeftText(progress->status.secondsLeft); !left.empty()) row.text += ", " + left;
}

std::string BatchForm::summary() const {
  const auto count = [&](RowState state) { return std::ranges::count(rows_, state, &Row::state); };
  std::string text = formatText("%zu of %zu finished", static_cast<size_t>(count(RowState::Finished)), rows_.size());
  if (count(RowState::Failed) > 0) text += formatText(", %zu failed", static_cast<size_t>(count(RowState::Failed)));
  return text;
}

std::string BatchForm::whyNotEdit() const {
  return running() ? "The batch is running. Stop it first." : "";
}

void BatchForm::remove(size_t index) {
  if (!whyNotEdit().empty()) return;
  editor_.select({});
  list_.remove(index);
}

void BatchForm::move(size_t index, size_t to) {
  if (!whyNotEdit().empty()) return;
  if (editor_.selected()) editor_.select(to);
  list_.move(index, to);
}

void BatchForm::openProject(size_t index) const {
  const Batch now = run_ ? run_->batch() : list_.batch();
  if (index < now.items.size() && !now.items[index].projectRoot.empty()) {
    parts_.openProject(now.items[index].projectRoot);
  }
}

std::string BatchForm::whyNotStart() const {
  if (running()) return "The batch is running.";
  if (std::string reason = list_.whyNotSave(); !reason.empty()) return reason;
  if (list_.batch().count(ItemState::Finished) == list_.batch().items.size())
    return "Every capture is finished. Add another one first.";
  if ((parts_.occupied && parts_.occupied()) || parts_.trainer.running()) {
    return "A project is being worked on. Wait until it is finished, or stop it in the main window.";
  }
  return {};
}

void BatchForm::start() {
  if (!whyNotStart().empty()) return;
  list_.save([this](const Batch& batch) { beginRun(batch); });
}

void BatchForm::beginRun(const Batch& batch) {
  try {
    if (const std::string reason = whyNotStart(); !reason.empty()) throw std::runtime_error(reason);
    shown_ = {};
    atWork_.reset();
    run_ = std::make_unique<BatchRun>(batch, parts_.makePipeline(), parts_.trainer, parts_.log);
    list_.setLocked(true);
  } catch (const std::exception& error) {
    messages_.push_back(failureText(error));
  }
}

void BatchForm::endRun() {
  const Batch batch = run_->batch();
  if (!run_->failure().empty()) messages_.push_back(run_->failure());
  run_.reset();
  list_.setLocked(false);
  list_.replace(batch);
}

void BatchForm::stop() {
  if (run_) run_->stop();
}

void BatchForm::cancel() {
  if (run_) run_->cancel();
}

}  // namespace quor::ui
