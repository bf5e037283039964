// The terminal that the process was started from: its streams, the keys that interrupt it, and whether anybody watches.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quor {

// What main was called with, without the program's own name, in UTF-8.
std::vector<std::string> programArguments(int argc, char** argv);

// A standard stream that was closed would lend its number to the next file that is opened, and messages would run into
// that file. To be called before any is; what is written to such a stream afterwards fails.
void occupyClosedStreams();

// The standard streams carry UTF-8 from now on, byte for byte as it is read and written.
void useUtf8Streams();

// From now on an interrupt (Ctrl-C), a request to terminate or a terminal that goes away only counts, and a reader that
// has gone away or a limit on file sizes shows as a failed write instead of ending the process.
void countInterrupts();
int interruptCount();

// Whether standard error is a terminal on which a line can be overwritten.
bool standardErrorIsTerminal();
// Columns of that terminal; 80 when it does not say.
size_t terminalWidth();

}  // namespace quor
