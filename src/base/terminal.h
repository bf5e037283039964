// The terminal that the process was started from: its streams, the keys that interrupt it, and whether anybody watches.
#pragma once

#include <cstddef>

namespace quor {

// A standard stream that was closed would lend its number to the next file that is opened, and messages would run into
// that file. To be called before any is; what is written to such a stream afterwards fails.
void occupyClosedStreams();

// From now on an interrupt (Ctrl-C), a request to terminate or a terminal that goes away only counts, and a reader that
// has gone away or a limit on file sizes shows as a failed write instead of ending the process.
void countInterrupts();
int interruptCount();

// Whether standard error is a terminal on which a line can be overwritten.
bool standardErrorIsTerminal();
// Columns of that terminal; 80 when it does not say.
size_t terminalWidth();

}  // namespace quor
