// The terminal that the process was started from: its streams, its interrupt keys, and its size.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quor {

// The arguments of main without the program's name, in UTF-8.
std::vector<std::string> programArguments(int argc, char** argv);

// Opens the standard streams that the parent has closed, onto nothing. Otherwise the next file opened would get such a
// stream's number, and messages would be written into it. Call it before any file is opened.
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
