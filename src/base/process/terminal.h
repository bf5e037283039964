// The terminal that the process was started from: its streams, interrupts, and whether it is a terminal at all.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quor {

// The arguments of main in UTF-8, without the program's own name.
std::vector<std::string> programArguments(int argc, char** argv);

// Call before any file is opened: a closed standard stream would lend its number to that file, and messages would be
// written into it. Writing to such a stream fails afterwards.
void occupyClosedStreams();

// From now on the standard streams carry UTF-8, byte for byte.
void useUtf8Streams();

// From now on an interrupt (Ctrl-C), a request to terminate or a terminal that closes is only counted, and a reader
// that has gone or a limit on file sizes shows as a failed write instead of ending the process.
void countInterrupts();
int interruptCount();

// Whether standard error is a terminal on which a line can be overwritten.
bool standardErrorIsTerminal();
// Columns of that terminal; 80 when it does not say.
size_t terminalWidth();

}  // namespace quor
