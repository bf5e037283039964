#include "base/crash/crash_handler.h"

#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <exception>
#include <iterator>

#include "base/crash/crash_report.h"
#include "base/files/paths.h"
#include "base/log/log_store.h"
#include "base/platform/win32/windows_api.h"

namespace quor {
namespace {

constexpr ULONG kStackGuarantee = 65536;
constexpr UINT kAbortExitCode = 3;  // as the C runtime's abort() gives it
constexpr const char* kParameterReason = "invalid parameter passed to the C runtime";
constexpr const char* kAbortReason = "the program gave up (abort)";
// Threads, memory that is pointed to, unloaded modules, and a look through memory for more of them.
constexpr auto kDumpType = static_cast<MINIDUMP_TYPE>(MiniDumpWithThreadInfo | MiniDumpWithIndirectlyReferencedMemory |
                                                      MiniDumpWithUnloadedModules | MiniDumpScanMemory);
static_assert(kDumpType == 0x1070);

// All that a report needs, laid out when the handler is installed. The report is written by a thread that waits for
// that from then on: the one that crashes may have no stack left, and a new one could not start while a module is being
// loaded.
struct Setup {
  char appName[64] = {};
  wchar_t wideAppName[64] = {};
  wchar_t folder[1024] = {};
  bool unattended = false;
  DWORD reporter = 0;  // thread id
  HANDLE reporterThread = nullptr;
  HANDLE wanted = nullptr, written = nullptr;  // events
};
Setup setup;
std::atomic<bool> crashed = false;
std::atomic<const char*> terminateReason = kTerminateReason;

struct Facts {
  EXCEPTION_POINTERS* exception = nullptr;
  const char* reason = nullptr;
  DWORD thread = 0;
  uintptr_t stackPointer = 0;
};
Facts facts;

struct ExceptionName {
  DWORD code;
  const char* name;
};
constexpr ExceptionName kExceptionNames[] = {
    {0xC0000005, "access violation"},    {0xC0000006, "in-page error"},
    {0xC000001D, "illegal instruction"}, {0xC0000094, "integer divide by zero"},
    {0xC00000FD, "stack overflow"},      {0xC0000409, "stack buffer overrun / fail-fast"},
};

const char* exceptionName(DWORD code) {
  const auto* found = std::find_if(std::begin(kExceptionNames), std::end(kExceptionNames),
                                   [&](const ExceptionName& e) { return e.code == code; });
  return found == std::end(kExceptionNames) ? "exception" : found->name;
}

constexpr DWORD kExecutable = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;

// The file's name without its folder, which lives until the next call.
const char* moduleName(void* base) {
  static wchar_t path[1024];
  static char name[256];
  DWORD length = GetMappedFileNameW(GetCurrentProcess(), base, path, static_cast<DWORD>(std::size(path)));
  if (length == 0) {
    length = GetModuleFileNameW(static_cast<HMODULE>(base), path, static_cast<DWORD>(std::size(path)));
  }
  const std::wstring_view whole(path, std::min<size_t>(length, std::size(path)));
  const std::wstring_view file = whole.substr(whole.find_last_of(L"\\/") + 1);
  const int size = WideCharToMultiByte(CP_UTF8, 0, file.data(), static_cast<int>(file.size()), name,
                                       static_cast<int>(sizeof name) - 1, nullptr, nullptr);
  name[size] = '\0';
  return name;
}

CodeLocation locate(uintptr_t address) {
  MEMORY_BASIC_INFORMATION memory = {};
  if (VirtualQuery(reinterpret_cast<const void*>(address), &memory, sizeof memory) == 0) return {};
  if (memory.State != MEM_COMMIT || memory.Type != MEM_IMAGE || (memory.Protect & kExecutable) == 0) return {};
  return {moduleName(memory.AllocationBase), address - reinterpret_cast<uintptr_t>(memory.AllocationBase)};
}

// The end of the readable memory that `address` lies in, or of the unreadable.
uintptr_t endOfMemory(uintptr_t address, bool& readable) {
  MEMORY_BASIC_INFORMATION memory = {};
  readable = false;
  if (VirtualQuery(reinterpret_cast<const void*>(address), &memory, sizeof memory) == 0) return UINTPTR_MAX;
  readable = memory.State == MEM_COMMIT && (memory.Protect & (PAGE_NOACCESS | PAGE_GUARD)) == 0;
  return reinterpret_cast<uintptr_t>(memory.BaseAddress) + memory.RegionSize;
}

void writeStack(ReportWriter& report, uintptr_t stackPointer) {
  uintptr_t slot = (stackPointer + 7) & ~uintptr_t{7};
  uintptr_t end = 0;
  bool readable = false;
  int hits = 0;
  for (size_t i = 0; i < kStackSlots && hits < kStackHits; ++i, slot += sizeof(uint64_t)) {
    if (slot >= end) end = endOfMemory(slot, readable);
    if (!readable) continue;
    uintptr_t value = 0;
    std::memcpy(&value, reinterpret_cast<const void*>(slot), sizeof value);
    const CodeLocation location = locate(value);
    if (location.module.empty()) continue;
    writeStackLine(report, location);
    ++hits;
  }
}

void writeToHandle(void* target, const char* bytes, size_t count) {
  DWORD written = 0;
  WriteFile(static_cast<HANDLE>(target), bytes, static_cast<DWORD>(count), &written, nullptr);
}

void writeText(HANDLE file) {
  ReportWriter report(writeToHandle, file);
  Crash crash;
  crash.reason = facts.reason;
  if (facts.exception != nullptr) {
    const EXCEPTION_RECORD& record = *facts.exception->ExceptionRecord;
    crash.exceptionCode = record.ExceptionCode;
    crash.exceptionName = exceptionName(record.ExceptionCode);
    crash.place = locate(reinterpret_cast<uintptr_t>(record.ExceptionAddress));
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2) {
      const ULONG_PTR kind = record.ExceptionInformation[0];
      crash.access = kind == 1 ? "writing" : kind == 8 ? "executing" : "reading";
      crash.address = record.ExceptionInformation[1];
    }
  }
  writeCrash(report, setup.appName, crash);
  report.flush();  // the certain facts first: reading memory below may fault
  writeStack(report, facts.stackPointer);
  writeLogLines(report);
}

bool writeDump(HANDLE file) {
  MINIDUMP_EXCEPTION_INFORMATION exception = {facts.thread, facts.exception, FALSE};
  return MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, kDumpType,
                           facts.exception != nullptr ? &exception : nullptr, nullptr, nullptr) != 0;
}

void makeFolders() {
  static wchar_t path[std::size(Setup().folder)];
  std::wcscpy(path, setup.folder);
  for (wchar_t* end = path + 3; *end != L'\0'; ++end) {
    if (*end != L'\\' && *end != L'/') continue;
    *end = L'\0';
    CreateDirectoryW(path, nullptr);
    *end = L'\\';
  }
  CreateDirectoryW(path, nullptr);
}

int64_t localSeconds() {
  SYSTEMTIME now = {};
  FILETIME time = {};
  GetLocalTime(&now);
  SystemTimeToFileTime(&now, &time);
  const uint64_t ticks = uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  return static_cast<int64_t>(ticks / 10'000'000) - 11'644'473'600;  // since 1970 instead of 1601
}

// A path in the folder, named after the program and the time.
struct ReportPath {
  wchar_t text[std::size(Setup().folder) + 128];

  ReportPath(const char* stamp, int number, const wchar_t* extension) {
    wchar_t wideStamp[kStampLength + 1];
    std::copy_n(stamp, kStampLength + 1, wideStamp);
    const wchar_t digits[] = {L'-', static_cast<wchar_t>(L'0' + number), L'\0'};
    std::wcscpy(text, setup.folder);
    for (const wchar_t* part :
         {L"\\", static_cast<const wchar_t*>(setup.wideAppName), static_cast<const wchar_t*>(wideStamp),
          number > 1 ? static_cast<const wchar_t*>(digits) : L"", extension}) {
      std::wcscat(text, part);
    }
  }
};

HANDLE createFile(const ReportPath& path) {
  return CreateFileW(path.text, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Whether either file could be written. Programs that crash in the same second get files of their own.
bool writeFiles() {
  makeFolders();
  char stamp[kStampLength + 1];
  writeStamp(stamp, localSeconds());
  int number = 1;
  HANDLE dump = INVALID_HANDLE_VALUE;
  for (; number < 9; ++number) {
    dump = createFile(ReportPath(stamp, number, L".dmp"));
    if (dump != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS) break;
  }
  bool saved = false;
  if (dump != INVALID_HANDLE_VALUE) {
    saved = writeDump(dump);
    CloseHandle(dump);
    if (!saved) DeleteFileW(ReportPath(stamp, number, L".dmp").text);
  }
  const HANDLE text = createFile(ReportPath(stamp, number, L".txt"));
  if (text == INVALID_HANDLE_VALUE) return saved;
  writeText(text);
  CloseHandle(text);
  return true;
}

bool somebodySees() {
  if (setup.unattended) return false;
  USEROBJECTFLAGS flags = {};
  if (GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, nullptr) == 0) return false;
  if ((flags.dwFlags & WSF_VISIBLE) == 0) return false;  // a service
  // Whoever sends the messages elsewhere, a script, would wait for ever for somebody to close a box.
  const HANDLE messages = GetStdHandle(STD_ERROR_HANDLE);
  DWORD mode = 0;
  return messages == nullptr || messages == INVALID_HANDLE_VALUE || GetConsoleMode(messages, &mode) != 0;
}

void tellUser(bool saved) {
  static char text[2048];
  size_t used = 0;
  const ReportWriter::Sink append = [](void* target, const char* bytes, size_t count) {
    size_t& length = *static_cast<size_t*>(target);
    count = std::min(count, sizeof text - 1 - length);
    std::memcpy(text + length, bytes, count);
    length += count;
  };
  {
    static char folder[std::size(Setup().folder) * 3];
    WideCharToMultiByte(CP_UTF8, 0, setup.folder, -1, folder, static_cast<int>(sizeof folder), nullptr, nullptr);
    ReportWriter message(append, &used);
    message.text(saved ? kCrashMessage : kCrashMessageUnsaved).text(folder);
    if (saved) message.text("\n\nPlease send the newest .txt and .dmp files from that folder to the developer.");
  }
  const HANDLE messages = GetStdHandle(STD_ERROR_HANDLE);
  writeToHandle(messages, "\n", 1);
  writeToHandle(messages, text, used);
  writeToHandle(messages, "\n", 1);
  if (!somebodySees()) return;
  static wchar_t wide[std::size(text)];
  MultiByteToWideChar(CP_UTF8, 0, text, static_cast<int>(used), wide, static_cast<int>(std::size(wide)) - 1);
  MessageBoxW(nullptr, wide, setup.wideAppName, MB_OK | MB_ICONERROR | MB_SETFOREGROUND | MB_TOPMOST);
}

DWORD WINAPI report(void*) {
  WaitForSingleObject(setup.wanted, INFINITE);
  tellUser(writeFiles());
  SetEvent(setup.written);
  return 0;
}

[[noreturn]] void endProcess(UINT exitCode) {
  TerminateProcess(GetCurrentProcess(), exitCode);
  for (;;) Sleep(INFINITE);
}

// The first thread that crashes has its report written. Others wait until that has ended the program, and a fault in
// the report ends it at once.
[[noreturn]] void reportAndEnd(const Facts& crash, UINT exitCode) {
  if (GetCurrentThreadId() == setup.reporter) endProcess(exitCode);
  if (crashed.exchange(true)) {
    if (facts.thread == GetCurrentThreadId()) endProcess(exitCode);
    for (;;) Sleep(INFINITE);
  }
  facts = crash;
  SetEvent(setup.wanted);
  const HANDLE ends[] = {setup.written, setup.reporterThread};  // the thread is gone when the program was just ending
  WaitForMultipleObjects(2, ends, FALSE, INFINITE);
  endProcess(exitCode);
}

LONG WINAPI onException(EXCEPTION_POINTERS* exception) {
  reportAndEnd({exception, nullptr, GetCurrentThreadId(), static_cast<uintptr_t>(exception->ContextRecord->Rsp)},
               exception->ExceptionRecord->ExceptionCode);
}

[[noreturn]] void endWithReason(const char* reason) {
  volatile uint64_t here = 0;
  reportAndEnd({nullptr, reason, GetCurrentThreadId(), reinterpret_cast<uintptr_t>(&here)}, kAbortExitCode);
}

[[noreturn]] void onTerminate() {
  crashLogTail().addCurrentException();
  endWithReason(terminateReason);
}

void onPureCall() {
  endWithReason(kPureCallReason);
}

void onInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {
  endWithReason(kParameterReason);
}

void onAbort(int) {
  endWithReason(kAbortReason);
}

void prepare(std::string_view appName) {
  const size_t length = std::min(appName.size(), sizeof setup.appName - 1);
  std::copy_n(appName.data(), length, setup.appName);
  std::copy_n(appName.data(), length, setup.wideAppName);
  const std::wstring folder = (userDataFolder() / "crashes").wstring();
  folder.copy(setup.folder, std::size(setup.folder) - 1);
  setup.unattended = environmentVariable("QUOR_TEST_CRASH").has_value();
  setup.wanted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  setup.written = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  setup.reporterThread = CreateThread(nullptr, 0, report, nullptr, 0, &setup.reporter);
}

}  // namespace

void installCrashHandler(std::string_view appName, LogStore& log) {
  log.mirrorTo(crashLogTail());
  if (setup.reporterThread != nullptr) return;
  prepare(appName);
  if (setup.reporterThread == nullptr) return;
  static const ThreadCrashStack mainStack;
  SetUnhandledExceptionFilter(onException);
  _set_purecall_handler(onPureCall);
  _set_invalid_parameter_handler(onInvalidParameter);
  signal(SIGABRT, onAbort);
}

ThreadCrashStack::ThreadCrashStack() {
  ULONG size = kStackGuarantee;
  SetThreadStackGuarantee(&size);
  if (setup.reporterThread != nullptr) std::set_terminate(onTerminate);  // some runtimes keep one for each thread
}

ThreadCrashStack::~ThreadCrashStack() {
  static_cast<void>(memory_);
}

}  // namespace quor

#ifdef __GNUC__
// Takes the place of the C++ library's function of this name, which says no more than std::terminate.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[noreturn]] void __cxa_pure_virtual() {
  quor::terminateReason = quor::kPureCallReason;
  std::terminate();
}
#endif
