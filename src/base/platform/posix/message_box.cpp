#include "base/desktop/message_box.h"

#include <cstdlib>

#include "base/process/child_process.h"
#include "base/process/tool_places.h"

namespace quor {

namespace {

// Each of these programs ends with 0 when the user presses its button and with 1 when the window is closed otherwise.
bool show(const char* name, std::vector<std::string> arguments, const std::function<bool()>& cancelled) {
  const std::filesystem::path program = findOnSearchPath(name);
  if (program.empty()) return false;
  try {
    const ChildResult result = runChildProcess(
        {program, std::move(arguments), {}}, [](std::string_view) {}, cancelled);
    return result.cancelled || result.exitCode <= 1;
  } catch (const ChildStartError&) {
    return false;
  }
}

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != 0;
}

}  // namespace

bool showMessageBox(const std::string& title, const std::string& text, const std::function<bool()>& cancelled) {
  if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) return false;
  return show("zenity", {"--error", "--no-markup", "--width=420", "--title=" + title, "--text=" + text}, cancelled) ||
         show("kdialog", {"--title", title, "--error", text}, cancelled) ||
         show("xmessage", {"-center", "-buttons", "OK:0", "-title", title, text}, cancelled);
}

}  // namespace quor
