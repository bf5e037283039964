// The commands that work on projects. Each throws a std::runtime_error with a whole sentence when its paths or the work
// fail, UsageError when the command line makes no sense, and returns the exit code otherwise.
#pragma once

#include "app/options/options.h"

namespace quor {

int trainCommand(const Options& options);
int importCommand(const Options& options);
int runMediaCommand(const Options& options);

}  // namespace quor
