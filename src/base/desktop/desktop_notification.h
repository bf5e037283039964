#pragma once

#include <string>

namespace quor {

// A message that the desktop shows for a while, wherever the user is; by notify-send. Waits for that program, so not
// for the interface's thread. False where there is none, and on Windows, where a window can only ask for attention.
bool showDesktopNotification(const std::string& title, const std::string& text);

}  // namespace quor
