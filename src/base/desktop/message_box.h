#pragma once

#include <functional>
#include <string>

namespace quor {

// Shows the text in a window of its own and blocks until the user has closed it or `cancelled`, which is asked many
// times a second, says yes. For a program that has no window, or has lost it. By the system on Windows; elsewhere by
// zenity, kdialog or xmessage. False when nothing could be shown: there is no display, or none of these programs.
bool showMessageBox(const std::string& title, const std::string& text, const std::function<bool()>& cancelled);

}  // namespace quor
