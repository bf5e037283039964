#include "base/process/own_stdio.h"

#include <io.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "base/platform/win32/windows_api.h"
#include "base/process/terminal.h"

namespace quor {

namespace {

// A pipe cannot be waited for together with an interrupt, so it is asked now and then.
constexpr DWORD kPollMilliseconds = 10;
constexpr size_t kMaxAtOnce = 64 * 1024;

HANDLE handleOf(int descriptor) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

// False after an interrupt and once the other side has closed its end.
bool waitForInput(HANDLE input) {
  if (GetFileType(input) != FILE_TYPE_PIPE) return interruptCount() == 0;
  while (interruptCount() == 0) {
    DWORD bytes = 0;
    // Wine cannot ask a pipe of the system below it; reading waits as well.
    if (PeekNamedPipe(input, nullptr, 0, nullptr, &bytes, nullptr) == 0) return GetLastError() != ERROR_BROKEN_PIPE;
    if (bytes > 0) return true;
    Sleep(kPollMilliseconds);
  }
  return false;
}

}  // namespace

OwnStdio::OwnStdio() {
  std::fflush(stdout);
  out_ = _dup(_fileno(stdout));
  if (out_ == -1 || _dup2(_fileno(stderr), _fileno(stdout)) == -1) {
    if (out_ != -1) _close(out_);
    throw std::runtime_error("Standard output cannot be used.");
  }
  SetHandleInformation(handleOf(out_), HANDLE_FLAG_INHERIT, 0);
}

OwnStdio::~OwnStdio() {
  std::fflush(stdout);
  _dup2(out_, _fileno(stdout));
  _close(out_);
}

size_t OwnStdio::read(std::span<char> buffer) {
  const HANDLE input = handleOf(_fileno(stdin));
  DWORD count = 0;
  if (!waitForInput(input)) return 0;
  const auto most = static_cast<DWORD>(std::min(buffer.size(), kMaxAtOnce));
  return ReadFile(input, buffer.data(), most, &count, nullptr) == 0 ? 0 : count;
}

bool OwnStdio::write(std::string_view bytes) {
  while (!bytes.empty()) {
    if (interruptCount() > 0) return false;
    DWORD count = 0;
    const auto most = static_cast<DWORD>(std::min(bytes.size(), kMaxAtOnce));
    if (WriteFile(handleOf(out_), bytes.data(), most, &count, nullptr) == 0) return false;
    bytes.remove_prefix(count);
  }
  return true;
}

bool OwnStdio::interactive() const {
  return _isatty(_fileno(stdin)) != 0;
}

}  // namespace quor
