// The models behind the main window, put together: the open project, the stages that run on it, their results, the form
// for new media, and notices for the user. Belongs to the interface's thread.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ui/models/project/new_media.h"
#include "ui/models/project/project_run.h"
#include "ui/models/project/project_session.h"
#include "ui/models/project/results.h"

namespace quor::ui {

class Workspace {
 public:
  struct Parts {
    LogStore& log;
    gs::TrainingService& trainer;
    Preferences& preferences;
    std::function<std::unique_ptr<Pipeline>()> makePipeline;
    std::function<bool()> occupied;         // true while a batch uses the trainer
    std::function<void()> savePreferences;  // they have changed
    // Shows a folder in the desktop's file manager, false when that fails; called from another thread.
    std::function<bool(const std::filesystem::path&)> openFolder;
    std::function<std::optional<ToolLocation>(const std::string& configured)> findColmap = &quor::findColmap;
  };
  explicit Workspace(Parts parts);
  ~Workspace();  // cancels what runs, waits for it, and saves what is not saved yet
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  void update();  // once a frame

  ProjectSession& session() { return session_; }
  const ProjectSession& session() const { return session_; }
  ProjectRun& run() { return run_; }
  const ProjectRun& run() const { return run_; }
  NewMedia& newMedia() { return newMedia_; }
  Results& results() { return results_; }
  const Results& results() const { return results_; }

  void notify(Notice notice);
  std::vector<Notice>& notices() { return notices_; }
  // The last one that came up since this was asked before.
  std::optional<Notice> takeNews() { return std::exchange(news_, std::nullopt); }
  // Says so when that fails.
  void openFolder(const std::filesystem::path& folder);

  // Whether the window can close without asking; if not, the question to ask with.
  bool mayClose() const { return closeQuestion().empty(); }
  std::string closeQuestion() const;

  // Of the session and the run, for the many who need them.
  void open(std::vector<std::filesystem::path> paths) { session_.open(std::move(paths)); }
  const std::optional<Project>& project() const { return session_.project(); }
  void editProject(const std::function<void(Project&)>& change) { session_.edit(change); }
  const ViewSource& view() const { return session_.view(); }
  bool loading() const { return session_.loading(); }
  bool busy() const { return run_.busy(); }
  std::string settingsNote() const { return run_.settingsNote(); }

 private:
  ProjectSession::Parts sessionParts();
  ProjectRun::Parts runParts();
  void create(const NewMedia::Request& request);

  const Parts parts_;
  std::vector<Notice> notices_;
  std::optional<Notice> news_;
  ProjectSession session_;
  ProjectRun run_;
  NewMedia newMedia_;
  Results results_;
  Background folders_;
};

}  // namespace quor::ui
