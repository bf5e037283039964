// By zenity, else by kdialog: child processes that print the paths that were chosen.
#include "base/desktop/desktop_dialog.h"

#include <algorithm>
#include <cctype>

#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "base/process/tool_places.h"
#include "base/text/text.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

// "*.jpg *.JPG": the patterns mind their case.
std::string patterns(const DialogRequest& request) {
  std::string text;
  for (const std::string& extension : request.extensions) {
    std::string upper = extension;
    std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    text.append(text.empty() ? "*." : " *.").append(extension).append(" *.").append(upper);
  }
  return text;
}

// The filter's visible name: "*.jpg, *.png".
std::string filterName(const DialogRequest& request) {
  std::string text;
  for (const std::string& extension : request.extensions) text.append(text.empty() ? "*." : ", *.").append(extension);
  return text;
}

// Folders end in a slash, which tells zenity to go into them.
std::string startPath(const DialogRequest& request) {
  std::string path = toUtf8(request.startFolder);
  if (!path.empty() && !path.ends_with('/')) path += '/';
  return request.kind == DialogKind::SaveFile ? path + request.suggestedName : path;
}

std::vector<std::string> zenityArguments(const DialogRequest& request) {
  std::vector<std::string> arguments = {"--file-selection", "--title=" + request.title};
  if (const std::string start = startPath(request); !start.empty()) arguments.push_back("--filename=" + start);
  if (request.kind == DialogKind::OpenFiles) {
    arguments.insert(arguments.end(), {"--multiple", "--separator=\n"});
  } else if (request.kind == DialogKind::OpenFolder) {
    arguments.emplace_back("--directory");
  } else {
    arguments.insert(arguments.end(), {"--save", "--confirm-overwrite"});
  }
  if (!request.extensions.empty() && request.kind != DialogKind::OpenFolder) {
    arguments.push_back("--file-filter=" + filterName(request) + " | " + patterns(request));
    arguments.emplace_back("--file-filter=All files | *");
  }
  return arguments;
}

std::vector<std::string> kdialogArguments(const DialogRequest& request) {
  std::vector<std::string> arguments = {"--title", request.title};
  const std::string start = startPath(request);
  const auto add = [&](const char* option) {
    arguments.insert(arguments.end(), {option, start.empty() ? "." : start});
  };
  if (request.kind == DialogKind::OpenFolder) {
    add("--getexistingdirectory");
    return arguments;
  }
  const bool save = request.kind == DialogKind::SaveFile;  // asks by itself before it overwrites
  if (!save) arguments.insert(arguments.end(), {"--multiple", "--separate-output"});
  add(save ? "--getsavefilename" : "--getopenfilename");
  if (!request.extensions.empty()) arguments.push_back(patterns(request) + "|" + filterName(request));
  return arguments;
}

// Nothing when the dialog could not be shown. Both programs end with 1 when the user gives up, but also when they reach
// no display, of which they then complain.
std::optional<std::vector<fs::path>> ask(const ChildCommand& command, const std::function<bool()>& cancelled) {
  std::vector<fs::path> chosen;
  bool withoutDisplay = false;
  const auto onLine = [&](std::string_view line) {
    if (line.starts_with('/')) chosen.push_back(fromUtf8(line));  // anything else is a warning of the toolkit's
    const std::string text = toLower(std::string(line));
    const bool complaint = text.find("open") != std::string::npos || text.find("connect") != std::string::npos;
    withoutDisplay |= complaint && text.find("display") != std::string::npos;
  };
  try {
    const ChildResult result = runChildProcess(command, onLine, cancelled);
    if (result.cancelled) return std::vector<fs::path>();
    if (result.exitCode == 0 && !chosen.empty()) return chosen;
    if (result.exitCode == 1 && !withoutDisplay) return std::vector<fs::path>();
  } catch (const ChildStartError&) {
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::vector<fs::path>> askDesktop(const DialogRequest& request, const std::function<bool()>& cancelled) {
  std::optional<std::vector<fs::path>> answer;
  if (const fs::path zenity = findOnSearchPath("zenity"); !zenity.empty()) {
    answer = ask({zenity, zenityArguments(request), {}}, cancelled);
  }
  if (answer) return answer;
  if (const fs::path kdialog = findOnSearchPath("kdialog"); !kdialog.empty()) {
    answer = ask({kdialog, kdialogArguments(request), {}}, cancelled);
  }
  return answer;
}

}  // namespace quor
