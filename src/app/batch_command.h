// The command that works through a queue of captures. It shows each one as `run` does; the scenes finished by this call
// are listed on standard output, a path a line, or with --json one document tells of every item.
#pragma once

#include "app/options/options.h"

namespace quor {

// Throws UsageError for options that change settings (every item has its own in the file), std::runtime_error for a
// file that cannot be read or written. Returns 0 when every item is finished or was skipped, 1 when one failed, 130
// when the batch was interrupted with items left.
int batchCommand(const Options& options);

}  // namespace quor
