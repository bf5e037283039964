// What happens when the program dies of a fault that it cannot handle: a report that a user can send is left in
// userDataFolder()/crashes, the user is told, and the program ends as it would have ended without it.
//
// The report is a text file APPLICATION-YYYYMMDD-HHMMSS.txt (local time): what happened and where, the code addresses
// on the stack of the thread that crashed, and the last lines of the log. Places in the code are written
// MODULE+0xOFFSET.
// - Linux: SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, escaped exceptions and calls of pure virtual functions. The offset
//   is what `addr2line -e MODULE OFFSET` takes. Afterwards the signal takes its course: exit status and core dump are
//   those of a program without this handler. A program built with a sanitizer keeps the sanitizer's own handlers.
// - Windows: unhandled structured exceptions, escaped exceptions, calls of pure virtual functions and invalid arguments
//   to the C runtime. The offset counts from the module's base. A minidump of the same name with .dmp lies beside the
//   report.
#pragma once

#include <string_view>

#include "base/log/log_tail.h"

namespace quor {

class LogStore;

// To be called once, early, on the main thread. `log` may go before the program ends.
void installCrashHandler(std::string_view appName, LogStore& log);

// The lines that a report ends with. The store given above is mirrored to it; others can be, too.
LogTail& crashLogTail();

// Lets the handler run on the calling thread even when its stack has overflowed. For the top of each thread whose code
// is deep or recursive; the main thread has it from installCrashHandler.
class ThreadCrashStack {
 public:
  ThreadCrashStack();
  ~ThreadCrashStack();
  ThreadCrashStack(const ThreadCrashStack&) = delete;
  ThreadCrashStack& operator=(const ThreadCrashStack&) = delete;

 private:
  void* memory_ = nullptr;
};

// For tests of the above: when the environment variable QUOR_TEST_CRASH is set and not empty, logs so and crashes. Its
// value chooses how:
//   overflow         the main thread's stack overflows
//   thread           a worker thread writes to address 0
//   thread-overflow  a worker thread's stack overflows
//   terminate        an exception escapes
//   abort            std::abort
//   pure             a pure virtual function is called
//   divide           an integer is divided by zero (where the processor minds)
//   anything else    the main thread writes to address 0
void crashIfAsked(LogStore& log);

}  // namespace quor
