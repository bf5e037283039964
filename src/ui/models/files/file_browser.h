// The file dialog inside the window, for desktops without one of their own that could be called. Folders are read on a
// worker thread. The interface's thread only.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/desktop/desktop_dialog.h"
#include "ui/models/background.h"
#include "ui/models/files/folder_listing.h"

namespace quor::ui {

class FileBrowser {
 public:
  // Opens the request's start folder, or the nearest one above it that is there, or the user's home.
  explicit FileBrowser(DialogRequest request);

  void update();  // once a frame
  const DialogRequest& request() const { return request_; }

  // Where it is.
  const std::filesystem::path& folder() const { return folder_; }
  const std::vector<Place>& places() const { return places_; }
  bool loading() const { return reading_.busy(); }
  const std::string& message() const { return message_; }  // the last failure; empty: all is well
  void go(const std::filesystem::path& folder);
  void goUp();
  bool canGoUp() const { return folder_.has_relative_path(); }
  // The text field: a folder to go to, or a file to choose. Follows the folder until it is edited.
  std::string& pathText() { return pathText_; }
  void goToPathText();

  // The visible entries.
  const std::vector<FolderEntry>& entries() const { return shown_; }
  void showHidden(bool show);
  bool showsHidden() const { return showHidden_; }
  void showAllFiles(bool show);  // those of other extensions, too
  bool showsAllFiles() const { return showAllFiles_; }

  // Choosing. `extend`: from the entry chosen last to this one; `toggle`: this one beside the others.
  void select(size_t index, bool toggle = false, bool extend = false);
  bool isSelected(size_t index) const { return selected_.contains(shown_[index].name); }
  void activate(size_t index);                   // a double click: into the folder, or takes the file
  std::string& fileName() { return fileName_; }  // SaveFile

  std::string& newFolderName() { return newFolderName_; }
  void createFolder();  // of that name

  std::string acceptLabel() const;
  std::string whyNotAccept() const;  // a sentence; empty when accept() will do
  void accept();
  void giveUp();
  // The file that is about to be replaced, while the user is asked whether it may.
  const std::optional<std::filesystem::path>& toBeReplaced() const { return toBeReplaced_; }
  void replace(bool allowed);

  // Once the user has chosen (or, empty, given up).
  const std::optional<std::vector<std::filesystem::path>>& answer() const { return answer_; }

 private:
  struct Reading {
    std::filesystem::path folder = {};
    std::vector<FolderEntry> entries = {};
    std::vector<Place> places = {};
    std::optional<std::filesystem::path> file = {};  // a file was named instead of a folder
    std::string message = {};
    std::string select = {};  // an entry that is new
  };

  void read(std::function<Reading()> work);
  void takeOver(Reading reading);
  void filter();
  std::filesystem::path saveTarget() const;

  DialogRequest request_;
  std::filesystem::path folder_;
  std::vector<Place> places_;
  std::vector<FolderEntry> all_;
  std::vector<FolderEntry> shown_;
  std::set<std::string> selected_;
  size_t anchor_ = 0;
  std::string pathText_;
  std::string fileName_;
  std::string newFolderName_;
  std::string message_;
  bool showHidden_ = false;
  bool showAllFiles_ = false;
  std::optional<std::filesystem::path> toBeReplaced_;
  std::optional<std::vector<std::filesystem::path>> answer_;
  Background reading_;
};

}  // namespace quor::ui
