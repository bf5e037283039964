#include "base/process/own_stdio.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "base/process/terminal.h"

namespace quor {

namespace {

// An interrupt that comes just before the wait is seen after it.
constexpr int kWaitMilliseconds = 200;

// False after an interrupt and when the stream cannot be waited for. A hang-up counts as ready: using the stream tells.
bool waitFor(int descriptor, short events) {
  while (interruptCount() == 0) {
    pollfd waiting{descriptor, events, 0};
    const int ready = poll(&waiting, 1, kWaitMilliseconds);
    if (ready > 0) return (waiting.revents & POLLNVAL) == 0;
    if (ready < 0 && errno != EINTR) return false;
  }
  return false;
}

bool again() {
  return errno == EINTR || errno == EAGAIN;
}

}  // namespace

OwnStdio::OwnStdio() {
  std::fflush(stdout);
  out_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (out_ == -1 || dup2(STDERR_FILENO, STDOUT_FILENO) == -1) {
    if (out_ != -1) close(out_);
    throw std::runtime_error("Standard output cannot be used.");
  }
}

OwnStdio::~OwnStdio() {
  std::fflush(stdout);
  dup2(out_, STDOUT_FILENO);
  close(out_);
}

size_t OwnStdio::read(std::span<char> buffer) {
  while (waitFor(STDIN_FILENO, POLLIN)) {
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count >= 0) return static_cast<size_t>(count);
    if (!again()) return 0;
  }
  return 0;
}

bool OwnStdio::write(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!waitFor(out_, POLLOUT)) return false;
    // A pipe that is ready takes this much without blocking.
    const ssize_t count = ::write(out_, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
    if (count > 0) bytes.remove_prefix(static_cast<size_t>(count));
    if (count < 0 && !again()) return false;
  }
  return true;
}

bool OwnStdio::interactive() const {
  return isatty(STDIN_FILENO) == 1;
}

}  // namespace quor
