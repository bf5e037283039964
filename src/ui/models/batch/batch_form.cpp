#include "ui/models/batch/batch_form.h"

#include <algorithm>
#include <utility>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "pipeline/intake.h"
#include "project/classify.h"
#include "ui/models/number_text.h"
#include "ui/models/settings/presets.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFileName = "batch.json";
constexpr std::chrono::milliseconds kShowEvery{250};

std::string refusal(const fs::path& path) {
  const std::string text = toUtf8(path);
  switch (classifyPath(path).type) {
    case PathClass::Missing:
      return "There is nothing at " + text + " any more.";
    case PathClass::Project:
      return text + " is a project already. Open it in the main window to go on with it.";
    case PathClass::Scene:
    case PathClass::Checkpoint:
      return text + " is trained already. Open it in the main window.";
    default:
      return "There are no videos, photographs or COLMAP dataset in " + text + ".";
  }
}

BatchItem photographs(const std::vector<fs::path>& files) {
  BatchItem item;
  for (const fs::path& file : files) item.sources.push_back({toUtf8(absolutePath(toUtf8(file))), InputKind::Images});
  item.selection = toUtf8(files.size() == 1 ? files.front().filename() : files.front().parent_path().filename());
  item.sparse = suggestedSettings(item.sources);
  return item;
}

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

Project projectOf(const BatchItem& item) {
  Project project;
  project.inputs = item.sources;
  project.takeSettings(item);
  return project;
}

std::vector<BatchForm::Preset> presetsForItems() {
  std::vector<BatchForm::Preset> presets;
  presets.reserve(kPresets.size());
  for (const Preset preset : kPresets) {
    presets.push_back({presetName(preset), presetMeaning(preset), [preset](BatchItem& item) {
                         Project project = projectOf(item);
                         applyPreset(preset, project);
                         item.takeSettings(project);
                       }});
  }
  return presets;
}

}  // namespace

BatchForm::BatchForm(Parts parts) : parts_(std::move(parts)), presets_(presetsForItems()) {}

void BatchForm::update() {
  working_.update();
  if (!run_) return;
  if (!run_->running()) return endRun();
  showProgress();
}

void BatchForm::touch() {
  ++revision_;
  changed_ = true;
  showRows(batch_);
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

void BatchForm::setDestination(const std::string& folder) {
  if (running() || folder == destination_) return;
  destination_ = folder;
  ++revision_;
  changed_ = true;
}

Background::Failed BatchForm::complain() {
  return [this](const std::string& sentence) { messages_.push_back(sentence); };
}

void BatchForm::addFolder(const fs::path& folder) {
  if (running()) return;
  const auto look = [folder] {
    Batch batch = Batch::compose(folder, {});
    return Found{std::move(batch.items), {}, batch.destination};
  };
  working_.run(
      "Looking for captures in " + toUtf8(folder), look, [this](Found found) { takeOver(std::move(found)); },
      complain());
}

void BatchForm::add(const std::vector<fs::path>& paths) {
  if (running() || paths.empty()) return;
  working_.run(
      "Looking at what was chosen", [paths] { return lookAt(paths); },
      [this](Found found) { takeOver(std::move(found)); }, complain());
}

BatchForm::Found BatchForm::lookAt(const std::vector<fs::path>& paths) {
  Found found;
  std::vector<fs::path> photos;
  std::error_code ignored;
  for (const fs::path& path : paths) {
    if (isImageFile(path) && fs::is_regular_file(path, ignored)) {
      photos.push_back(path);
    } else if (std::optional<BatchItem> item = captureAt(absolutePath(toUtf8(path)))) {
      found.items.push_back(std::move(*item));
    } else {
      found.messages.push_back(refusal(path));
    }
  }
  if (!photos.empty()) found.items.push_back(photographs(photos));
  found.destination = absolutePath(toUtf8(paths.front())).parent_path();
  return found;
}

bool BatchForm::isQueued(const BatchItem& item) const {
  const auto same = [](const InputSource& a, const InputSource& b) { return a.path == b.path; };
  return std::ranges::any_of(batch_.items, [&](const BatchItem& other) {
    return other.colmapImport == item.colmapImport && std::ranges::equal(other.sources, item.sources, same);
  });
}

void BatchForm::takeOver(Found found) {
  messages_.insert(messages_.end(), found.messages.begin(), found.messages.end());
  if (running()) return;
  for (BatchItem& item : found.items) {
    if (isQueued(item)) {
      messages_.push_back(item.name() + " is in the queue already.");
      continue;
    }
    if (parts_.configure) parts_.configure(item);
    batch_.items.push_back(std::move(item));
  }
  if (destination_.empty() && !batch_.items.empty()) destination_ = toUtf8(found.destination);
  touch();
}

void BatchForm::remove(size_t index) {
  if (running() || index >= batch_.items.size()) return;
  batch_.items.erase(batch_.items.begin() + static_cast<std::ptrdiff_t>(index));
  selected_.reset();
  touch();
}

void BatchForm::move(size_t index, size_t to) {
  if (running() || index >= batch_.items.size() || to >= batch_.items.size()) return;
  BatchItem item = std::move(batch_.items[index]);
  batch_.items.erase(batch_.items.begin() + static_cast<std::ptrdiff_t>(index));
  batch_.items.insert(batch_.items.begin() + static_cast<std::ptrdiff_t>(to), std::move(item));
  if (selected_) selected_ = to;
  touch();
}

void BatchForm::change(const std::function<void(BatchItem&)>& edit, std::optional<size_t> index) {
  if (running()) return;
  for (size_t i = 0; i < batch_.items.size(); ++i) {
    const bool wanted = index ? *index == i : batch_.items[i].state != ItemState::Finished;
    if (wanted) edit(batch_.items[i]);
  }
  touch();
}

Project BatchForm::shownSettings() const {
  const auto open =
      std::ranges::find_if(batch_.items, [](const BatchItem& i) { return i.state != ItemState::Finished; });
  const auto item = selected_ ? batch_.items.begin() + static_cast<std::ptrdiff_t>(*selected_) : open;
  return item == batch_.items.end() ? Project() : projectOf(*item);
}

void BatchForm::setSettings(const Project& edited) {
  const auto json = [](const auto& settings) {
    nlohmann::ordered_json object;
    toJson(object, settings.ingest, settings.sparse, settings.training);
    return object;
  };
  const auto difference = nlohmann::ordered_json::diff(json(shownSettings()), json(edited));
  const auto edit = [&](BatchItem& item) {
    fromJson(json(item).patch(difference), item.ingest, item.sparse, item.training);
  };
  change(edit, selected_);
}

void BatchForm::reset(size_t index) {
  const auto wait = [](BatchItem& item) {
    item.state = ItemState::Waiting;
    item.note.clear();
  };
  change(wait, index);
}

void BatchForm::resetFailed() {
  for (size_t i = 0; i < batch_.items.size(); ++i) {
    if (batch_.items[i].state == ItemState::Failed) reset(i);
  }
}

void BatchForm::openProject(size_t index) const {
  const Batch now = run_ ? run_->batch() : batch_;
  if (index < now.items.size() && !now.items[index].projectRoot.empty()) {
    parts_.openProject(now.items[index].projectRoot);
  }
}

void BatchForm::load(const fs::path& fileOrFolder) {
  if (running()) return;
  const auto done = [this](Batch batch) {
    if (running()) return;
    batch_ = std::move(batch);
    destination_ = toUtf8(batch_.destination);
    ownFile_ = batch_.file;
    selected_.reset();
    touch();
    changed_ = false;
  };
  working_.run(
      "Reading " + toUtf8(fileOrFolder), [fileOrFolder] { return Batch::load(fileOrFolder); }, done, complain());
}

Batch BatchForm::written() const {
  Batch batch = batch_;
  batch.destination = absolutePath(destination_);
  // A file that lies in its destination goes with it; one that was named by itself stays where it is.
  const bool follows = batch_.file.empty() || batch_.file == batch_.destination / kFileName;
  if (follows) batch.file = batch.destination / kFileName;
  return batch;
}

std::string BatchForm::whyNotSave() const {
  if (running()) return "The batch is running; it saves its file by itself.";
  if (busy()) return "Wait a moment: " + busyText() + ".";
  if (batch_.items.empty()) return "Add a capture first.";
  if (destination_.empty()) return "Choose the folder for the projects first.";
  return {};
}

void BatchForm::save() {
  if (whyNotSave().empty()) write(false, false);
}

// Nothing is run that could not be saved.
void BatchForm::write(bool thenRun, bool replace) {
  const Batch batch = written();
  const auto work = [batch, replace, own = ownFile_] {
    std::error_code ignored;
    if (!replace && batch.file != own && fs::exists(batch.file, ignored)) return false;
    batch.save();
    return true;
  };
  const auto done = [this, file = batch.file, destination = batch.destination, thenRun,
                     revision = revision_](bool wrote) {
    if (!wrote) {
      question_ = "There is another batch at " + toUtf8(file) + ". Replace it?";
      runAfterQuestion_ = thenRun;
      return;
    }
    ownFile_ = batch_.file = file;
    batch_.destination = destination;
    changed_ = changed_ && revision != revision_;
    if (thenRun) beginRun();
  };
  working_.run("Saving " + toUtf8(batch.file), work, done, complain());
}

void BatchForm::answer(bool yes) {
  if (std::exchange(question_, {}).empty() || !yes) return;
  if (whyNotSave().empty()) write(runAfterQuestion_, true);
}

std::string BatchForm::whyNotStart() const {
  if (running()) return "The batch is running.";
  if (std::string reason = whyNotSave(); !reason.empty()) return reason;
  if (batch_.count(ItemState::Finished) == batch_.items.size())
    return "Every capture is finished. Add another one first.";
  if ((parts_.occupied && parts_.occupied()) || parts_.trainer.running()) {
    return "A project is being worked on. Wait until it is finished, or stop it in the main window.";
  }
  return {};
}

void BatchForm::start() {
  if (whyNotStart().empty()) write(true, false);
}

void BatchForm::beginRun() {
  try {
    if (const std::string reason = whyNotStart(); !reason.empty()) throw std::runtime_error(reason);
    shown_ = {};
    atWork_.reset();
    run_ = std::make_unique<BatchRun>(written(), parts_.makePipeline(), parts_.trainer, parts_.log);
  } catch (const std::exception& error) {
    messages_.push_back(failureText(error));
  }
}

void BatchForm::endRun() {
  batch_ = run_->batch();
  if (!run_->failure().empty()) messages_.push_back(run_->failure());
  run_.reset();
  touch();
  changed_ = false;  // the run has saved it
}

void BatchForm::stop() {
  if (run_) run_->stop();
}

void BatchForm::cancel() {
  if (run_) run_->cancel();
}

}  // namespace quor::ui
