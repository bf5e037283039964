// `mcp`: serves AI assistants on standard input and output.
#pragma once

#include "app/options/options.h"

namespace quor {

int mcpCommand(const Options& options);

}  // namespace quor
