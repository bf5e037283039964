#include "base/desktop/desktop_notification.h"

#include "base/platform/posix/detached.h"
#include "base/process/tool_places.h"

namespace quor {

bool showDesktopNotification(const std::string& title, const std::string& text) {
  const std::filesystem::path program = findOnSearchPath("notify-send");
  return !program.empty() && startDetached(program, {"--app-name=Ombrelux", "--", title, text});
}

}  // namespace quor
