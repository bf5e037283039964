// interrupt LOG TEXT PROGRAM [ARGUMENT...]: runs the program in this one's console with its standard error in the file
// LOG, presses Ctrl-C once LOG holds TEXT, and ends with the program's exit code; 124 when it neither says so nor ends.
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

constexpr DWORD kPatience = 600'000, kStep = 50;  // milliseconds

std::wstring withoutOwnWords(const wchar_t* line) {
  std::wstring result;
  int count = 0;
  wchar_t** words = CommandLineToArgvW(line, &count);
  for (int i = 3; i < count; ++i) result += L"\"" + std::wstring(words[i]) + L"\" ";
  LocalFree(words);
  return result;
}

bool holds(const wchar_t* file, const std::wstring& text) {
  std::ifstream stream(std::filesystem::path(file), std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(stream), {}};
  return content.find(std::string(text.begin(), text.end())) != std::string::npos;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 4) return 2;
  FreeConsole();
  if (AllocConsole() == 0) return 125;
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  const HANDLE log = CreateFileW(argv[1], GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = startup.hStdError = log;
  std::wstring line = withoutOwnWords(GetCommandLineW());
  PROCESS_INFORMATION made = {};
  if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &made) == 0)
    return 126;

  SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);  // meant for the other one
  bool pressed = false;
  for (DWORD waited = 0; waited < kPatience; waited += kStep) {
    if (WaitForSingleObject(made.hProcess, kStep) == WAIT_OBJECT_0) {
      DWORD code = 0;
      GetExitCodeProcess(made.hProcess, &code);
      return static_cast<int>(code);
    }
    if (!pressed && holds(argv[1], argv[2])) pressed = GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) != 0;
  }
  TerminateProcess(made.hProcess, 1);
  return 124;
}
