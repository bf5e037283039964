// The open project, or scene without a project. Opening, creating and saving read and write the user's
// files in the background and are taken over by update(); everything else belongs to the interface's thread.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "project/preferences.h"
#include "ui/models/background.h"
#include "ui/models/notice.h"
#include "ui/models/project/dataset_import.h"
#include "ui/models/project/new_media.h"
#include "ui/models/project/opening.h"

namespace quor::ui {

// The files that the viewport shows while nothing trains.
struct ViewSource {
  std::filesystem::path scene;    // .ply or .quor; empty: nothing
  std::filesystem::path dataset;  // folder with images/ and a COLMAP model; empty: nothing
  uint64_t generation = 0;        // rises whenever one of them is another file or has been written anew
};

class ProjectSession {
 public:
  struct Parts {
    LogStore& log;
    Preferences& preferences;               // recent projects are kept here
    std::function<void()> savePreferences;  // they have changed; may be empty
    std::function<void(Notice)> notify;
    std::function<bool()> busy;                       // a stage runs: what is open must stay open
    std::function<bool()> occupied;                   // a batch uses the trainer: nothing else can be opened
    std::function<bool()> framesRun;                  // the frame stage runs, which writes project.json itself
    std::function<std::optional<Project>()> running;  // the project as the stages have it; nothing before any has run
    std::function<void(FoundMedia)> takeMedia;        // media were opened: they go to the form for a new project
    std::function<void()> opened;                     // another project or scene is open, or nothing
    std::function<void()> factsChanged;
  };
  explicit ProjectSession(Parts parts);

  // Dropped, chosen or named paths are looked at in the background; media go to takeMedia, all else is opened.
  void open(std::vector<std::filesystem::path> paths);
  // Makes the project, or opens the one that wraps the dataset already; `outDir` empty: beside the dataset. Where it
  // cannot be made the form asks for another place.
  void importDataset(std::filesystem::path dataset, std::filesystem::path outDir);
  DatasetImport& datasetImport() { return import_; }
  // Calls `created` once the project is open, `failed` when it cannot be made.
  void create(const NewMedia::Request& request, std::function<void()> created, std::function<void()> failed);
  void close();

  // Something is opened or created: a spinner with this text.
  bool loading() const { return !taskText().empty(); }
  const std::string& taskText() const { return work_.text(); }

  const std::optional<Project>& project() const { return project_; }
  const ProjectFacts& facts() const { return facts_; }
  const ViewSource& view() const { return view_; }

  // Changes the project's settings; they are saved in the background. A running stage keeps those it began with.
  void edit(const std::function<void(Project&)>& change);
  // Takes over what the frame stage has found out about the cameras.
  void takeExtraction();
  // Calls `then` once every edit is on the disk.
  void whenSaved(std::function<void()> then);
  // Saves what is not saved yet; the destructor waits for it.
  void saveRest();
  // Looks at the project's files again.
  void refreshFacts(std::function<void()> then = {});

  void update();  // once a frame

 private:
  bool refuseOpening();
  void takeOver(Opened opened);
  void setProject(Project project);
  void takeFacts(ProjectFacts facts);
  void fail(const std::string& title, const std::string& sentence);
  void save();

  const Parts parts_;
  std::optional<Project> project_;
  ProjectFacts facts_;
  ViewSource view_;
  DatasetImport import_;
  bool unsaved_ = false;
  bool saving_ = false;
  Background reader_;  // facts about the open project
  Background work_;    // opening, creating and saving, in the order in which they were asked for
};

}  // namespace quor::ui
