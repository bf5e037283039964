// The command line of both programs: parses the arguments, does the work of one command, and returns the exit code.
// Nothing here needs a Vulkan loader until training starts or devices are listed.
#pragma once

#include <string>
#include <vector>

#include "app/usage.h"

namespace quor {

// `arguments` (UTF-8) without the program's own name. Catches every exception.
int runCommandLine(const std::vector<std::string>& arguments, FrontEnd frontEnd);

}  // namespace quor
