// A process between this program and a child. It waits until the child ends or this program lets go of it, ends all
// that the child has started, and says how the child ended. The kernel closes what this program holds when it dies,
// even of SIGKILL; so the guardian always learns of it.
#pragma once

namespace quor {

struct GuardedChild {
  const char* program;
  char* const* argv;
  char* const* environment;
  int input, output;  // of the child; above the standard streams' numbers, as `life` is
  int life;  // a SOCK_SEQPACKET socket: its other end gets the reports, and lets go by closing or shutting down
};

// The child's start failed when `startError` is not 0; else the one report that comes is the last act.
struct GuardianReport {
  int startError = 0;
  int exitCode = 0;  // 128 + the signal's number when a signal ended it
};

// To be called in a fork of a program that may have threads, with every signal blocked: makes only system calls, and
// touches no memory but its own.
[[noreturn]] void guardChild(const GuardedChild& child);

}  // namespace quor
