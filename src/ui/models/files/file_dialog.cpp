#include "ui/models/files/file_dialog.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <utility>

#include "ui/models/background.h"
#include "ui/models/files/file_browser.h"
#include "ui/models/files/folder_listing.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

using Paths = std::vector<fs::path>;

// The desktop has asked whether the file that was named may be replaced, and no other.
fs::path withExtension(const fs::path& path, const DialogRequest& request) {
  if (hasExtension(path, request.extensions)) return path;
  fs::path extended = path;
  extended += "." + request.extensions.front();
  std::error_code ignored;
  return fs::exists(extended, ignored) ? path : extended;
}

std::optional<Paths> askWith(const DialogRequest& request, const std::atomic<bool>& cancelled) {
  std::optional<Paths> paths = askDesktop(request, [&cancelled] { return cancelled.load(); });
  if (!paths || request.kind != DialogKind::SaveFile) return paths;
  for (fs::path& path : *paths) path = withExtension(path, request);
  return paths;
}

}  // namespace

struct FileDialog::State {
  fs::path folder;
  bool useDesktop = true;
  DialogRequest request;
  Answer answer;  // while a question is open
  std::unique_ptr<FileBrowser> browser;
  std::atomic<bool> cancelled = false;
  Background desktop;  // last: its destructor joins a thread that reads the members above

  void askTheDesktop() {
    const auto failed = [this](const std::string&) { browse(); };
    const auto done = [this](const std::optional<Paths>& paths) { paths ? finish(*paths) : browse(); };
    desktop.run(
        "", [request = request, this] { return askWith(request, cancelled); }, done, failed);
  }
  void browse() {
    useDesktop = false;  // it will not do better the next time
    browser = std::make_unique<FileBrowser>(request);
  }
  void finish(const Paths& paths) {
    browser.reset();
    if (!paths.empty()) {
      folder = request.kind == DialogKind::OpenFolder ? paths.front() : paths.front().parent_path();
    }
    const Answer given = std::exchange(answer, {});  // it may ask the next question
    if (given) given(paths);
  }
};

FileDialog::FileDialog(fs::path startFolder, bool useDesktop) : state_(std::make_unique<State>()) {
  state_->folder = std::move(startFolder);
  state_->useDesktop = useDesktop;
}

FileDialog::~FileDialog() {
  state_->cancelled = true;
}

void FileDialog::ask(const Request& request, Answer answer) {
  if (open()) return;
  state_->request = request;
  if (request.startFolder.empty()) state_->request.startFolder = state_->folder;
  state_->answer = answer ? std::move(answer) : [](const Paths&) {};
  state_->useDesktop ? state_->askTheDesktop() : state_->browse();
}

bool FileDialog::open() const {
  return static_cast<bool>(state_->answer);
}

void FileDialog::update() {
  state_->desktop.update();
  if (!state_->browser) return;
  state_->browser->update();
  if (const auto paths = state_->browser->answer()) state_->finish(Paths(*paths));
}

FileBrowser* FileDialog::browser() {
  return state_->browser.get();
}

const fs::path& FileDialog::folder() const {
  return state_->folder;
}

}  // namespace quor::ui
