// The terminal that the process was started from: the keys that interrupt it, and whether anybody watches.
#pragma once

namespace quor {

// From now on an interrupt (Ctrl-C) or a request to terminate only counts, and a reader that has gone away shows as a
// failed write instead of ending the process.
void countInterrupts();
int interruptCount();

bool standardErrorIsTerminal();

}  // namespace quor
