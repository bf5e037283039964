#include "base/process/terminal.h"

#include <fcntl.h>
#include <io.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "base/platform/win32/windows_api.h"

namespace quor {
namespace {

std::atomic<int> interrupts{0};
UINT codePageBefore = 0;

// On a thread of the system's.
BOOL WINAPI onConsoleEvent(DWORD event) {
  interrupts.fetch_add(1);
  // A console that closes, a user who logs off and a system that shuts down end the program once this returns, and soon
  // in any case: the time until then is for ending cleanly.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
  return TRUE;
}

HANDLE standardError() {
  return GetStdHandle(STD_ERROR_HANDLE);
}

}  // namespace

// A program with a window gets no console from the system. Streams that its starter did not redirect go to the console
// that it was started from, if any. The C runtime keeps the numbers of the standard streams for them, open or not.
void occupyClosedStreams() {
  const bool outClosed = _fileno(stdout) < 0, errorClosed = _fileno(stderr) < 0;
  if ((!outClosed && !errorClosed) || AttachConsole(ATTACH_PARENT_PROCESS) == 0) return;
  if (outClosed) std::freopen("CONOUT$", "w", stdout);
  if (errorClosed) std::freopen("CONOUT$", "w", stderr);
}

void useUtf8Streams() {
  for (std::FILE* stream : {stdin, stdout, stderr}) {
    if (_fileno(stream) >= 0) _setmode(_fileno(stream), _O_BINARY);
  }
  const UINT before = GetConsoleOutputCP();
  if (before == 0 || before == CP_UTF8 || SetConsoleOutputCP(CP_UTF8) == 0) return;
  codePageBefore = before;  // the console outlives the program
  std::atexit([] { SetConsoleOutputCP(codePageBefore); });
}

// The C runtime finds no files by paths that begin with \\?\, which some programs pass on. \\?\UNC\ stands for \\.
static std::wstring plainPath(const std::wstring& word) {
  constexpr std::wstring_view kVerbatim = L"\\\\?\\", kShare = L"\\\\?\\UNC\\";
  if (word.starts_with(kShare)) return L"\\\\" + word.substr(kShare.size());
  return word.starts_with(kVerbatim) ? word.substr(kVerbatim.size()) : word;
}

std::vector<std::string> programArguments(int, char**) {
  std::vector<std::string> arguments;
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(toNarrow(plainPath(words[i])));
  LocalFree(words);
  return arguments;
}

void countInterrupts() {
  SetConsoleCtrlHandler(onConsoleEvent, TRUE);
}

int interruptCount() {
  return interrupts.load();
}

bool standardErrorIsTerminal() {
  DWORD mode = 0;
  if (GetConsoleMode(standardError(), &mode) == 0) return false;
  return SetConsoleMode(standardError(), mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

size_t terminalWidth() {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (GetConsoleScreenBufferInfo(standardError(), &info) == 0) return 80;
  const int width = info.srWindow.Right - info.srWindow.Left + 1;
  return width > 1 ? static_cast<size_t>(width) : 80;
}

}  // namespace quor
