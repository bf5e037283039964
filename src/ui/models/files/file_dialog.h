// Asks the user for files or folders: with the desktop's own dialog where one can be called, else with a browser inside
// the window. Never blocks; the answer comes with update(). The interface's thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/desktop/desktop_dialog.h"

namespace quor::ui {

class FileBrowser;

class FileDialog {
 public:
  using Kind = DialogKind;
  using Request = DialogRequest;  // its startFolder may be empty: the folder of the last answer

  // The chosen paths, empty when the user gave up. A file to save has one of the extensions asked for.
  using Answer = std::function<void(const std::vector<std::filesystem::path>&)>;

  // `startFolder` is where the first dialog opens. Without `useDesktop` the browser is always used.
  explicit FileDialog(std::filesystem::path startFolder, bool useDesktop = true);
  ~FileDialog();  // takes an open dialog away

  // While a question is open, another one is not asked.
  void ask(const Request& request, Answer answer);
  bool open() const;

  // Once a frame: gives the answer, if there is one, to the one who asked.
  void update();

  // The browser to draw while there is no dialog of the desktop's to ask with; null otherwise.
  FileBrowser* browser();

  // The folder of the last answer, to be remembered.
  const std::filesystem::path& folder() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quor::ui
