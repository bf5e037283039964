// The desktop program: opens the window and everything behind it, and runs until it is closed.
#pragma once

#include <string>
#include <vector>

namespace quor::ui {

// Opens the window, and in it the path if one is given (UTF-8). Returns the exit code; throws std::runtime_error with a
// whole sentence when there can be no window or the GPU is lost. Unless a terminal shows that sentence, so has a
// message box by then.
int runDesktop(const std::vector<std::string>& paths);

}  // namespace quor::ui
