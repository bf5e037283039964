// The command line of both programs: parses the arguments, does the work of one command, and returns the exit code.
// Nothing here needs a Vulkan loader until training starts or devices are listed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/options/usage.h"

namespace quor {

// Opens the window, with the path that was given if any (UTF-8), and returns the exit code when it is closed.
using OpenWindow = std::function<int(const std::vector<std::string>& paths)>;

// `arguments` (UTF-8) without the program's own name. Catches every exception. A desktop program that was built without
// a window has an empty `openWindow`.
int runCommandLine(const std::vector<std::string>& arguments, FrontEnd frontEnd, const OpenWindow& openWindow = {});

}  // namespace quor
