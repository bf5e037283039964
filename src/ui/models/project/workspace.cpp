#include "ui/models/project/workspace.h"

#include <utility>

#include "base/files/paths.h"

namespace quor::ui {

namespace fs = std::filesystem;

Workspace::Workspace(Parts parts)
    : parts_(std::move(parts)),
      session_(sessionParts()),
      run_(runParts(), session_),
      newMedia_({[this](const NewMedia::Request& request) { create(request); },
                 [this](const fs::path& folder) { open({folder}); }}),
      results_({parts_.log, [this](Notice notice) { notify(std::move(notice)); },
                [this](const fs::path& folder) { openFolder(folder); }}) {
  run_.findTools();
}

Workspace::~Workspace() {
  run_.endNow();
  session_.saveRest();
}

ProjectSession::Parts Workspace::sessionParts() {
  return {.log = parts_.log,
          .preferences = parts_.preferences,
          .savePreferences = parts_.savePreferences,
          .notify = [this](Notice notice) { notify(std::move(notice)); },
          .busy = [this] { return run_.busy(); },
          .occupied = [this] { return parts_.occupied && parts_.occupied(); },
          .framesRun = [this] { return run_.framesRun(); },
          .running = [this] { return run_.runningProject(); },
          .takeMedia = [this](FoundMedia media) { newMedia_.add(std::move(media)); },
          .opened =
              [this] {
                run_.forget();
                if (session_.project()) run_.findTools();
              },
          .factsChanged =
              [this] {
                const bool open = session_.project() || session_.facts().scene;
                open ? results_.show(session_.facts()) : results_.clear();
              }};
}

ProjectRun::Parts Workspace::runParts() {
  return {.log = parts_.log,
          .trainer = parts_.trainer,
          .preferences = parts_.preferences,
          .makePipeline = parts_.makePipeline,
          .occupied = parts_.occupied,
          .notify = [this](Notice notice) { notify(std::move(notice)); },
          .findColmap = parts_.findColmap};
}

void Workspace::create(const NewMedia::Request& request) {
  session_.create(
      request,
      [this, build = request.build] {
        newMedia_.created();
        if (build) run_.build();
      },
      [this] { newMedia_.failed(); });
}

void Workspace::notify(Notice notice) {
  news_ = notice;
  if (notices_.empty() || notices_.back() != notice) notices_.push_back(std::move(notice));
}

void Workspace::openFolder(const fs::path& folder) {
  if (!parts_.openFolder) return;
  const auto failed = [this, folder](const std::string&) {
    notify({"The folder could not be opened",
            {"No file manager could be started, or the folder is gone. Open it by hand:", toUtf8(folder)},
            true});
  };
  folders_.run(
      {}, [open = parts_.openFolder, folder] { return open(folder); },
      [failed](bool opened) {
        if (!opened) failed({});
      },
      failed);
}

void Workspace::update() {
  session_.update();
  run_.update();
  results_.update();
  folders_.update();
  const std::string obstacle = loading() ? session_.taskText() + "..." : run_.obstacle();
  newMedia_.setObstacles(obstacle, obstacle.empty() && run_.colmapMissing() ? kNoColmap : obstacle);
  newMedia_.update();
}

std::string Workspace::closeQuestion() const {
  if (std::string question = run_.closeQuestion(); !question.empty()) return question;
  if (results_.exporting()) return results_.exportText() + " has not finished. Closing now waits for it.";
  return {};
}

}  // namespace quor::ui
