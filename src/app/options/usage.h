#pragma once

#include <string>

#include "base/version.h"

namespace quor {

// OmbreluxCLI, or Ombrelux, which also has a window.
enum class FrontEnd { CommandLineOnly, Desktop };

// All commands, options, exit codes and examples; ends in a line feed.
std::string usageText(FrontEnd frontEnd);

}  // namespace quor
