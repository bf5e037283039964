#include "ui/models/files/file_browser.h"

#include <algorithm>
#include <utility>

#include "base/files/paths.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

// The folder itself, the nearest one above it that is there, or the user's home.
fs::path nearestFolder(fs::path folder) {
  std::error_code ignored;
  while (!folder.empty() && !fs::is_directory(folder, ignored)) {
    if (folder == folder.parent_path()) break;
    folder = folder.parent_path();
  }
  if (!folder.empty() && fs::is_directory(folder, ignored)) return folder;
  const fs::path home = homeFolder();
  return fs::is_directory(home, ignored) ? home : fs::current_path(ignored).root_path();
}

fs::path withoutFinalSlash(const fs::path& path) {
  const fs::path normal = path.lexically_normal();
  return normal.has_filename() || !normal.has_relative_path() ? normal : normal.parent_path();
}

bool isFileName(const std::string& name) {
  const fs::path path = fromUtf8(name);
  return path.filename() == path && name != "." && name != "..";
}

}  // namespace

FileBrowser::FileBrowser(DialogRequest request) : request_(std::move(request)), fileName_(request_.suggestedName) {
  read([start = request_.startFolder] {
    const fs::path folder = nearestFolder(start);
    return Reading{.folder = folder, .entries = listFolder(folder), .places = listPlaces()};
  });
}

void FileBrowser::read(std::function<Reading()> work) {
  const auto failed = [this](const std::string& sentence) {
    message_ = sentence;
    pathText_ = toUtf8(folder_);
  };
  reading_.run(
      "Reading the folder", std::move(work), [this](Reading reading) { takeOver(std::move(reading)); }, failed);
}

void FileBrowser::update() {
  reading_.update();
}

void FileBrowser::takeOver(Reading reading) {
  message_ = reading.message;
  if (!reading.places.empty()) places_ = std::move(reading.places);
  if (reading.file) {
    answer_.emplace(1, *reading.file);
    return;
  }
  if (!reading.message.empty()) return;
  folder_ = std::move(reading.folder);
  pathText_ = toUtf8(folder_);
  all_ = std::move(reading.entries);
  selected_.clear();
  if (!reading.select.empty()) selected_.insert(reading.select);
  filter();
}

void FileBrowser::filter() {
  shown_.clear();
  for (const FolderEntry& entry : all_) {
    const bool fits = showAllFiles_ || hasExtension(fromUtf8(entry.name), request_.extensions);
    const bool wanted = entry.isFolder || (request_.kind != DialogKind::OpenFolder && fits);
    if (wanted && (showHidden_ || !entry.isHidden)) shown_.push_back(entry);
  }
  std::erase_if(selected_, [&](const std::string& name) {
    return std::ranges::find(shown_, name, &FolderEntry::name) == shown_.end();
  });
  anchor_ = 0;
}

void FileBrowser::go(const fs::path& folder) {
  read([folder] { return Reading{.folder = folder, .entries = listFolder(folder)}; });
}

void FileBrowser::goUp() {
  if (canGoUp()) go(folder_.parent_path());
}

void FileBrowser::goToPathText() {
  std::string text = pathText_;
  if (text == "~" || text.starts_with("~/")) text = toUtf8(homeFolder()) + text.substr(1);
  const fs::path path = withoutFinalSlash(folder_ / fromUtf8(text));
  const bool takesFiles = request_.kind == DialogKind::OpenFiles;
  read([path, takesFiles] {
    Reading reading;
    std::error_code ignored;
    if (takesFiles && fs::is_regular_file(path, ignored)) {
      reading.file = path;
    } else if (!fs::is_directory(path, ignored)) {
      reading.message = "There is no folder " + toUtf8(path) + ".";
    } else {
      reading.folder = path;
      reading.entries = listFolder(path);
    }
    return reading;
  });
}

void FileBrowser::showHidden(bool show) {
  showHidden_ = show;
  filter();
}

void FileBrowser::showAllFiles(bool show) {
  showAllFiles_ = show;
  filter();
}

void FileBrowser::select(size_t index, bool toggle, bool extend) {
  const bool several = request_.kind == DialogKind::OpenFiles;
  const std::string& name = shown_[index].name;
  if (request_.kind == DialogKind::SaveFile && !shown_[index].isFolder) fileName_ = name;
  if (several && toggle) {
    if (selected_.erase(name) == 0) selected_.insert(name);
  } else {
    selected_.clear();
    const size_t from = several && extend ? std::min(anchor_, index) : index;
    const size_t to = several && extend ? std::max(anchor_, index) : index;
    for (size_t i = from; i <= to; ++i) selected_.insert(shown_[i].name);
  }
  if (!extend) anchor_ = index;
}

void FileBrowser::activate(size_t index) {
  if (shown_[index].isFolder) return go(folder_ / fromUtf8(shown_[index].name));
  select(index);
  accept();
}

void FileBrowser::createFolder() {
  const std::string name = std::exchange(newFolderName_, {});
  if (name.empty() || !isFileName(name)) {
    message_ = "\"" + name + "\" cannot be the name of a folder.";
    return;
  }
  read([folder = folder_, name] {
    Reading reading{.folder = folder};
    std::error_code error;
    if (!fs::create_directory(folder / fromUtf8(name), error)) {
      const std::string reason = error ? error.message() : "it is there already";
      reading.message = "Cannot make the folder " + name + ": " + reason + ".";
      return reading;
    }
    reading.entries = listFolder(folder);
    reading.select = name;
    return reading;
  });
}

std::string FileBrowser::acceptLabel() const {
  if (request_.kind == DialogKind::SaveFile) return "Save";
  if (request_.kind == DialogKind::OpenFiles) return "Open";
  return selected_.empty() ? "Choose this folder" : "Choose";
}

std::string FileBrowser::whyNotAccept() const {
  if (folder_.empty()) return "The folder is still being read.";
  if (request_.kind == DialogKind::OpenFiles && selected_.empty()) return "Select a file first.";
  if (request_.kind != DialogKind::SaveFile) return {};
  if (fileName_.empty()) return "Type a name for the file first.";
  if (!isFileName(fileName_)) return "\"" + fileName_ + "\" cannot be the name of a file.";
  const auto there = std::ranges::find(all_, toUtf8(saveTarget().filename()), &FolderEntry::name);
  if (there != all_.end() && there->isFolder) return "There is a folder of that name.";
  return {};
}

fs::path FileBrowser::saveTarget() const {
  fs::path target = folder_ / fromUtf8(fileName_);
  if (!hasExtension(target, request_.extensions)) target += "." + request_.extensions.front();
  return target;
}

void FileBrowser::accept() {
  if (!whyNotAccept().empty()) return;
  if (request_.kind == DialogKind::SaveFile) {
    const fs::path target = saveTarget();
    const bool there = std::ranges::find(all_, toUtf8(target.filename()), &FolderEntry::name) != all_.end();
    if (there) {
      toBeReplaced_ = target;
    } else {
      answer_.emplace(1, target);
    }
    return;
  }
  // Enters a folder when files are asked for; it is an answer only when folders are.
  std::vector<fs::path> chosen;
  for (const FolderEntry& entry : shown_) {
    if (!selected_.contains(entry.name)) continue;
    if (request_.kind == DialogKind::OpenFiles && entry.isFolder) return go(folder_ / fromUtf8(entry.name));
    chosen.push_back(folder_ / fromUtf8(entry.name));
  }
  if (chosen.empty()) chosen.push_back(folder_);
  answer_ = std::move(chosen);
}

void FileBrowser::giveUp() {
  answer_.emplace();
}

void FileBrowser::replace(bool allowed) {
  const auto target = std::exchange(toBeReplaced_, std::nullopt);
  if (allowed && target) answer_.emplace(1, *target);
}

}  // namespace quor::ui
