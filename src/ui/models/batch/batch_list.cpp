#include "ui/models/batch/batch_list.h"

#include <algorithm>
#include <utility>

#include "base/files/paths.h"
#include "pipeline/intake.h"
#include "project/classify.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFileName = "batch.json";

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

}  // namespace

void BatchList::touch() {
  ++revision_;
  changed_ = true;
  if (parts_.changed) parts_.changed();
}

void BatchList::replace(Batch batch) {
  batch_ = std::move(batch);
  touch();
  changed_ = false;
}

void BatchList::setDestination(const std::string& folder) {
  if (locked_ || folder == destination_) return;
  destination_ = folder;
  ++revision_;
  changed_ = true;
}

void BatchList::addFolder(const fs::path& folder) {
  if (locked_) return;
  const auto look = [folder] {
    Batch batch = Batch::compose(folder, {});
    return Found{std::move(batch.items), {}, batch.destination};
  };
  working_.run(
      "Looking for captures in " + toUtf8(folder), look, [this](Found found) { takeOver(std::move(found)); },
      parts_.complain);
}

void BatchList::add(const std::vector<fs::path>& paths) {
  if (locked_ || paths.empty()) return;
  working_.run(
      "Looking at what was chosen", [paths] { return lookAt(paths); },
      [this](Found found) { takeOver(std::move(found)); }, parts_.complain);
}

BatchList::Found BatchList::lookAt(const std::vector<fs::path>& paths) {
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

bool BatchList::isQueued(const BatchItem& item) const {
  const auto same = [](const InputSource& a, const InputSource& b) { return a.path == b.path; };
  return std::ranges::any_of(batch_.items, [&](const BatchItem& other) {
    return other.colmapImport == item.colmapImport && std::ranges::equal(other.sources, item.sources, same);
  });
}

void BatchList::takeOver(Found found) {
  for (const std::string& message : found.messages) parts_.complain(message);
  if (locked_) return;
  for (BatchItem& item : found.items) {
    if (isQueued(item)) {
      parts_.complain(item.name() + " is in the queue already.");
      continue;
    }
    if (parts_.configure) parts_.configure(item);
    batch_.items.push_back(std::move(item));
  }
  if (destination_.empty() && !batch_.items.empty()) destination_ = toUtf8(found.destination);
  touch();
}

void BatchList::remove(size_t index) {
  if (locked_ || index >= batch_.items.size()) return;
  batch_.items.erase(batch_.items.begin() + static_cast<std::ptrdiff_t>(index));
  touch();
}

void BatchList::move(size_t index, size_t to) {
  if (locked_ || index >= batch_.items.size() || to >= batch_.items.size()) return;
  BatchItem item = std::move(batch_.items[index]);
  batch_.items.erase(batch_.items.begin() + static_cast<std::ptrdiff_t>(index));
  batch_.items.insert(batch_.items.begin() + static_cast<std::ptrdiff_t>(to), std::move(item));
  touch();
}

void BatchList::change(const std::function<void(BatchItem&)>& edit, std::optional<size_t> index) {
  if (locked_) return;
  for (size_t i = 0; i < batch_.items.size(); ++i) {
    const bool wanted = index ? *index == i : batch_.items[i].state != ItemState::Finished;
    if (wanted) edit(batch_.items[i]);
  }
  touch();
}

void BatchList::reset(size_t index) {
  const auto wait = [](BatchItem& item) {
    item.state = ItemState::Waiting;
    item.note.clear();
  };
  change(wait, index);
}

void BatchList::resetFailed() {
  for (size_t i = 0; i < batch_.items.size(); ++i) {
    if (batch_.items[i].state == ItemState::Failed) reset(i);
  }
}

void BatchList::load(const fs::path& fileOrFolder) {
  if (locked_) return;
  const auto done = [this](Batch batch) {
    if (locked_) return;
    batch_ = std::move(batch);
    destination_ = toUtf8(batch_.destination);
    ownFile_ = batch_.file;
    touch();
    changed_ = false;
  };
  working_.run(
      "Reading " + toUtf8(fileOrFolder), [fileOrFolder] { return Batch::load(fileOrFolder); }, done, parts_.complain);
}

Batch BatchList::written() const {
  Batch batch = batch_;
  batch.destination = absolutePath(destination_);
  // A file that lies in its destination goes with it; one that was named by itself stays where it is.
  const bool follows = batch_.file.empty() || batch_.file == batch_.destination / kFileName;
  if (follows) batch.file = batch.destination / kFileName;
  return batch;
}

std::string BatchList::whyNotSave() const {
  if (locked_) return "The batch is running; it saves its file by itself.";
  if (busy()) return "Wait a moment: " + busyText() + ".";
  if (batch_.items.empty()) return "Add a capture first.";
  if (destination_.empty()) return "Choose the folder for the projects first.";
  return {};
}

void BatchList::save(std::function<void(const Batch&)> then) {
  if (whyNotSave().empty()) write(std::move(then), false);
}

void BatchList::write(std::function<void(const Batch&)> then, bool replace) {
  const Batch batch = written();
  const auto work = [batch, replace, own = ownFile_] {
    std::error_code ignored;
    if (!replace && batch.file != own && fs::exists(batch.file, ignored)) return false;
    batch.save();
    return true;
  };
  const auto done = [this, batch, then = std::move(then), revision = revision_](bool wrote) {
    if (!wrote) {
      question_ = "There is another batch at " + toUtf8(batch.file) + ". Replace it?";
      afterQuestion_ = then;
      return;
    }
    ownFile_ = batch_.file = batch.file;
    batch_.destination = batch.destination;
    changed_ = changed_ && revision != revision_;
    if (then) then(batch);
  };
  working_.run("Saving " + toUtf8(batch.file), work, done, parts_.complain);
}

void BatchList::answer(bool yes) {
  if (std::exchange(question_, {}).empty() || !yes) return;
  if (whyNotSave().empty()) write(std::exchange(afterQuestion_, {}), true);
}

}  // namespace quor::ui
