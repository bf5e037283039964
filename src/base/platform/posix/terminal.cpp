#include "base/terminal.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace quor {

namespace {

std::atomic<int> interrupts{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait for a lock");

void onInterrupt(int) {
  interrupts.fetch_add(1);
}

void handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

void countInterrupts() {
  handle(SIGINT, onInterrupt);
  handle(SIGTERM, onInterrupt);
  handle(SIGPIPE, SIG_IGN);
}

int interruptCount() {
  return interrupts.load();
}

bool standardErrorIsTerminal() {
  return isatty(STDERR_FILENO) == 1;
}

}  // namespace quor
