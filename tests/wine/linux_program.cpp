// Under Wine, stands for a program of the Linux system below: as colmap.exe it runs that system's colmap, with the
// paths among its arguments turned into that system's, passes on what it prints and ends with its exit code. Wine can
// start such a program, but neither lends it a pipe nor tells when it has ended. So the program writes to a file that
// is read as it grows, its exit code goes to a second file, and a third one, which the system removes when this process
// is gone, keeps it running.
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string toUtf8(const std::wstring& text) {
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, result.data(), length, nullptr, nullptr);
  result.pop_back();
  return result;
}

// The path as Linux has it. Wine exports the translation beside the system's own functions.
std::string linuxPath(const std::wstring& path) {
  using Translate = char*(CDECL*)(const wchar_t*);
  static const auto translate = reinterpret_cast<Translate>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  char* found = translate != nullptr ? translate(path.c_str()) : nullptr;
  if (found == nullptr) return toUtf8(path);
  std::string result = found;
  HeapFree(GetProcessHeap(), 0, found);
  return result;
}

// A path may follow a "file:".
std::string linuxArgument(const std::wstring& argument) {
  constexpr std::wstring_view kFile = L"file:";
  if (argument.starts_with(kFile)) return "file:" + linuxPath(argument.substr(kFile.size()));
  const bool absolute = argument.size() > 2 && argument[1] == L':' && (argument[2] == L'\\' || argument[2] == L'/');
  return absolute ? linuxPath(argument) : toUtf8(argument);
}

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

struct Files {
  fs::path alive, output, status, script;
};

void writeScript(const Files& files, const std::vector<std::string>& words) {
  std::string command;
  for (const std::string& word : words) command += quoted(word) + " ";
  const std::string status = quoted(linuxPath(files.status.wstring()));
  const std::string run = command + "</dev/null >" + quoted(linuxPath(files.output.wstring())) + " 2>&1; echo $? >" +
                          status + ".new; mv " + status + ".new " + status;
  std::ofstream(files.script, std::ios::binary)
      << "unset QT_PLUGIN_PATH\n"
      << "setsid sh -c " << quoted(run) << " &\n"
      << "while [ -e " << quoted(linuxPath(files.alive.wstring())) << " ]; do sleep 0.05; done\n"
      << "kill -9 -$! 2>/dev/null\n";
}

bool start(const fs::path& script) {
  const std::wstring shell = L"\\\\?\\unix\\bin\\sh";
  std::string path = linuxPath(script.wstring());
  std::wstring line = L"sh " + std::wstring(path.begin(), path.end());
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION made = {};
  return CreateProcessW(shell.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &made) != 0;
}

void passOn(HANDLE output) {
  char buffer[4096];
  DWORD length = 0, written = 0;
  while (ReadFile(output, buffer, sizeof buffer, &length, nullptr) != 0 && length > 0) {
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), buffer, length, &written, nullptr);
  }
}

HANDLE open(const fs::path& path, DWORD access, DWORD flags) {
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return CreateFileW(path.c_str(), access, kShare, nullptr, OPEN_ALWAYS, flags, nullptr);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  wchar_t own[MAX_PATH];
  GetModuleFileNameW(nullptr, own, MAX_PATH);
  std::vector<std::string> words{toUtf8(fs::path(own).stem().wstring())};
  for (int i = 1; i < argc; ++i) words.push_back(linuxArgument(argv[i]));

  const fs::path folder = L"C:\\windows\\temp\\linux_program_" + std::to_wstring(GetCurrentProcessId());
  fs::remove_all(folder);
  fs::create_directories(folder);
  const Files files{folder / "alive", folder / "output", folder / "status", folder / "script"};
  const HANDLE alive = open(files.alive, GENERIC_WRITE, FILE_FLAG_DELETE_ON_CLOSE);
  const HANDLE output = open(files.output, GENERIC_READ, 0);
  writeScript(files, words);
  if (!start(files.script)) return 126;

  while (!fs::exists(files.status)) {
    passOn(output);
    Sleep(20);
  }
  passOn(output);
  int exitCode = 127;
  std::ifstream(files.status) >> exitCode;
  CloseHandle(output);
  CloseHandle(alive);
  std::error_code ignored;
  fs::remove_all(folder, ignored);
  return exitCode;
}
