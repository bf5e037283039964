#include "base/desktop/desktop_notification.h"

namespace quor {

bool showDesktopNotification(const std::string&, const std::string&) {
  return false;
}

}  // namespace quor
