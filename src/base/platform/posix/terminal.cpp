#include "base/process/terminal.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>

#include "base/files/paths.h"

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

void occupyClosedStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) != -1) continue;
    // The lowest free number is this stream's. Opened the wrong way round, so that using it is an error.
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) == -1) return;
  }
}

void useUtf8Streams() {}

std::vector<std::string> programArguments(int argc, char** argv) {
  return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

void countInterrupts() {
  handle(SIGINT, onInterrupt);
  handle(SIGTERM, onInterrupt);
  handle(SIGPIPE, SIG_IGN);
  handle(SIGXFSZ, SIG_IGN);
  struct sigaction hangUp = {};
  const bool outlivesTerminal = sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler == SIG_IGN;  // nohup
  if (!outlivesTerminal) handle(SIGHUP, onInterrupt);
}

int interruptCount() {
  return interrupts.load();
}

bool standardErrorIsTerminal() {
  return isatty(STDERR_FILENO) == 1 && environmentVariable("TERM") != "dumb";
}

size_t terminalWidth() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace quor
