// The desktop's own dialogs for choosing files and folders: the system's on Windows; elsewhere zenity or kdialog, which
// are programs of their own and may be missing.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quor {

enum class DialogKind { OpenFiles, OpenFolder, SaveFile };

struct DialogRequest {
  DialogKind kind = DialogKind::OpenFolder;
  std::string title = {};
  std::vector<std::string> extensions = {};  // without the dot, in lower case; empty: any
  std::string suggestedName = {};            // SaveFile
  std::filesystem::path startFolder = {};    // where it opens
};

// Blocks until the user has answered: the chosen paths, empty when the user gave up. SaveFile asks by itself before an
// existing file is chosen. Once `cancelled`, which is asked many times a second, says yes, the dialog is closed as if
// the user had given up. std::nullopt when no dialog could be shown. Not for the interface's thread.
std::optional<std::vector<std::filesystem::path>> askDesktop(const DialogRequest& request,
                                                             const std::function<bool()>& cancelled);

}  // namespace quor
