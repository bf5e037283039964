// The form that makes a project from photographs or video: the media, the project's place, the quality of
// the scene. It inspects media in the background and creates nothing itself; its outcome is a Request.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "project/project.h"
#include "ui/models/background.h"
#include "ui/models/button.h"
#include "ui/models/project/media_source.h"
#include "ui/models/settings/presets.h"

namespace quor::ui {

class NewMedia {
 public:
  struct Request {
    std::vector<std::filesystem::path> origins;
    std::vector<MediaSource> sources;
    std::filesystem::path destination;  // empty: beside the first source
    Project settings;                   // its three records count
    bool build = false;                 // start at once
  };
  struct Actions {
    std::function<void(Request)> create;
    std::function<void(std::filesystem::path)> openProject;
  };

  explicit NewMedia(Actions actions);

  bool visible = false;

  // Dropped or chosen: files and folders, in any mixture. Shows the form.
  void add(std::vector<std::filesystem::path> paths);
  void add(FoundMedia found);
  void remove(size_t source);
  void setKind(size_t source, InputKind kind);  // of a video
  void clear();                                 // back to an empty form with the settings as they are
  const std::vector<MediaSource>& sources() const { return sources_; }
  const std::vector<std::string>& problems() const { return problems_; }
  // While media are looked at.
  bool loading() const { return finder_.busy(); }
  const std::string& taskText() const { return finder_.text(); }

  // Empty: beside the first source.
  void setDestination(std::filesystem::path folder);
  const std::filesystem::path& destination() const { return destination_; }
  // The project to be made; nothing without sources and for a moment after each change.
  const std::optional<Project>& described() const { return described_; }
  // What the user should know about the folder; empty when there is nothing.
  const std::string& destinationNote() const { return destinationNote_; }
  bool projectExists() const { return projectExists_; }
  void openExisting();

  Preset preset() const { return presetOf(settings_); }
  void choose(Preset preset) { applyPreset(preset, settings_); }
  bool hasVideo() const;
  // For the settings' widgets; inputs tell which of them matter.
  const Project& settings() const { return settings_; }
  void setSettings(const Project& edited);

  Button buildButton() const;
  Button createButton() const;
  void create(bool build);
  // The request of create() has become a project: the form is emptied and closed. A failed one stays as it is.
  void created();
  void failed() { creating_ = false; }

  // Why nothing can be created now, and why nothing can be built; empty when it can.
  void setObstacles(std::string toCreate, std::string toBuild);

  void update();

 private:
  void describe();

  Actions actions_;
  std::vector<std::filesystem::path> origins_;
  std::vector<MediaSource> sources_;
  std::vector<std::string> problems_;
  std::filesystem::path destination_;
  std::optional<Project> described_;
  std::string destinationNote_;
  bool projectExists_ = false;
  bool creating_ = false;
  Project settings_;
  SparseSettings suggested_;  // by the sources, until the user changes them
  std::string noCreate_, noBuild_;
  size_t descriptions_ = 0;
  size_t round_ = 0;  // rises when the form is emptied: results of earlier searches are dropped
  Background finder_;
  Background describer_;
};

}  // namespace quor::ui
