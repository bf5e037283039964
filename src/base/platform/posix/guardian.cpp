#include "base/platform/posix/guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace quor {
namespace {

constexpr int kLife = STDERR_FILENO + 1;

void report(GuardianReport report) {
  send(kLife, &report, sizeof report, MSG_NOSIGNAL);
}

[[noreturn]] void reportStartError() {
  report({errno, 0});
  _exit(127);
}

// Another child's guardian, started at the same time, would wait for ever for a socket that is held here.
void keepOnlyOwnDescriptors(const GuardedChild& child) {
  dup2(child.input, STDIN_FILENO);
  dup2(child.output, STDOUT_FILENO);
  dup2(child.output, STDERR_FILENO);
  dup2(child.life, kLife);
  fcntl(kLife, F_SETFD, FD_CLOEXEC);
  if (close_range(kLife + 1, ~0U, 0) == 0) return;
  const long limit = sysconf(_SC_OPEN_MAX);
  for (int descriptor = kLife + 1; descriptor < limit; ++descriptor) close(descriptor);
}

[[noreturn]] void become(const GuardedChild& child, pid_t guardian) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != guardian) _exit(127);
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execve(child.program, child.argv, child.environment);
  reportStartError();
}

void waitForEnd(pid_t child, int childSignals) {
  pollfd watched[] = {{kLife, POLLIN, 0}, {childSignals, POLLIN, 0}};
  for (;;) {
    poll(watched, 2, -1);
    if (watched[0].revents != 0) return;
    signalfd_siginfo signal;
    while (read(childSignals, &signal, sizeof signal) > 0) continue;
    siginfo_t ended = {};
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (ended.si_pid == child) return;
  }
}

// How many there were, those that have ended but were not waited for included.
int killChildren() {
  const int list = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
  char text[4096];
  const ssize_t length = read(list, text, sizeof text);
  close(list);
  int killed = 0;
  pid_t pid = 0;
  for (ssize_t i = 0; i < length; ++i) {
    if (text[i] >= '0' && text[i] <= '9') {
      pid = pid * 10 + (text[i] - '0');
    } else {
      if (pid > 0 && kill(pid, SIGKILL) == 0) ++killed;
      pid = 0;
    }
  }
  return killed;
}

// The exit code of the child, without collecting it, so that the ids of the process and its group are not reused yet.
int endAll(pid_t child) {
  kill(-child, SIGKILL);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  // Processes that left the group become children of this process as their parents die, one generation at a time.
  while (killChildren() > 0) waitpid(-1, nullptr, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

void guardChild(const GuardedChild& job) {
  setsid();  // the terminal's Ctrl-C is for this program to judge
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  prctl(PR_SET_NAME, "ombrelux-guard");  // who kills the program by its name leaves the one that cleans up after it
  keepOnlyOwnDescriptors(job);

  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &standard, nullptr);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGCHLD);
  const int childSignals = signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
  if (childSignals < 0) reportStartError();

  const pid_t self = getpid();
  const pid_t child = _Fork();
  if (child < 0) reportStartError();
  if (child == 0) become(job, self);
  setpgid(child, child);
  // The output ends when its last writer closes it; this process writes nothing.
  dup2(STDIN_FILENO, STDOUT_FILENO);
  dup2(STDIN_FILENO, STDERR_FILENO);
  waitForEnd(child, childSignals);
  report({0, endAll(child)});
  _exit(0);
}

}  // namespace quor
