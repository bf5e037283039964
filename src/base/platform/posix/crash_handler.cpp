#include "base/crash/crash_handler.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <iterator>

#include "base/crash/crash_report.h"
#include "base/files/paths.h"
#include "base/log/log_store.h"
#include "base/platform/posix/code_map.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OMBRELUX_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OMBRELUX_SANITIZED
#endif
#endif

namespace quor {
namespace {

#ifdef OMBRELUX_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr uintptr_t kNearStack = uintptr_t{64} * 1024;
constexpr size_t kCrashStackSize = size_t{64} * 1024;

// All that a report needs, laid out when the handler is installed: nothing of it can be asked for once memory may be
// damaged and locks may be held for ever.
struct Setup {
  char appName[64] = {};
  char folder[4096] = {};
  long secondsEastOfUtc = 0;
  struct sigaction before[std::size(kSignals)] = {};
  std::terminate_handler terminateBefore = nullptr;
};
Setup setup;
CodeMap codeMap;
std::atomic<bool> crashed = false;
std::atomic<const char*> terminateReason = kTerminateReason;

// Where the processor was.
struct Registers {
  uintptr_t code = 0, stack = 0;
  const char* access = nullptr;  // "reading", "writing" ..., for signals about an address
};

Registers readRegisters(const void* context) {
  Registers registers;
  const mcontext_t& machine = static_cast<const ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
  registers.code = static_cast<uintptr_t>(machine.gregs[REG_RIP]);
  registers.stack = static_cast<uintptr_t>(machine.gregs[REG_RSP]);
  constexpr greg_t kPageFault = 14, kWrite = 2, kFetch = 16;  // any other fault does not tell its address
  if (machine.gregs[REG_TRAPNO] == kPageFault) {
    const greg_t error = machine.gregs[REG_ERR];
    registers.access = (error & kFetch) != 0 ? "executing" : (error & kWrite) != 0 ? "writing" : "reading";
  }
#elif defined(__aarch64__)
  registers.code = machine.pc;
  registers.stack = machine.sp;
  registers.access = "accessing";
#else
#error "Say here where the processor's registers are kept."
#endif
  return registers;
}

bool isNear(uintptr_t a, uintptr_t b) {
  return (a > b ? a - b : b - a) < kNearStack;
}

const char* signalName(int number, int code) {
  switch (number) {
    case SIGSEGV:
      return "segmentation fault";
    case SIGBUS:
      return "bus error";
    case SIGILL:
      return "illegal instruction";
    case SIGFPE:
      return code == FPE_INTDIV ? "integer divide by zero" : "arithmetic error";
    case SIGABRT:
      return "aborted";
    default:
      return "exception";
  }
}

void writeToFile(void* target, const char* bytes, size_t count) {
  int& file = *static_cast<int*>(target);
  while (count > 0) {
    const ssize_t written = write(file, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    bytes += written;
    count -= static_cast<size_t>(written);
  }
}

void makeFolders() {
  char path[sizeof setup.folder];
  std::memcpy(path, setup.folder, sizeof path);
  for (char* end = path + 1; *end != '\0'; ++end) {
    if (*end != '/') continue;
    *end = '\0';
    mkdir(path, 0700);
    *end = '/';
  }
  mkdir(path, 0700);
}

// A new file, or -1. Programs that crash in the same second get one each.
int createReport() {
  makeFolders();
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  char stamp[kStampLength + 1];
  writeStamp(stamp, now.tv_sec + setup.secondsEastOfUtc);
  char path[sizeof setup.folder + sizeof setup.appName + 32];
  for (const char* number : {"", "-2", "-3", "-4", "-5", "-6", "-7", "-8", "-9"}) {
    char* end = path;
    for (const char* part : {const_cast<const char*>(setup.folder), "/", const_cast<const char*>(setup.appName),
                             const_cast<const char*>(stamp), number, ".txt"}) {
      end = stpcpy(end, part);
    }
    const int file = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file >= 0 || errno != EEXIST) return file;
  }
  return -1;
}

void writeStack(ReportWriter& report, uintptr_t stackPointer) {
  uintptr_t slot = (stackPointer + 7) & ~uintptr_t{7};
  int hits = 0;
  for (size_t i = 0; i < kStackSlots && hits < kStackHits; ++i, slot += sizeof(uint64_t)) {
    if (!codeMap.stackSlotIsReadable(slot)) continue;
    uintptr_t value = 0;
    std::memcpy(&value, reinterpret_cast<const void*>(slot), sizeof value);
    const CodeLocation location = codeMap.find(value);
    if (location.module.empty()) continue;
    writeStackLine(report, location);
    ++hits;
  }
}

void writeReport(int file, const Crash& crash, uintptr_t stackPointer) {
  ReportWriter report(writeToFile, &file);
  writeCrash(report, setup.appName, crash);
  report.flush();  // the certain facts first: reading memory below may fault
  writeStack(report, stackPointer);
  writeLogLines(report);
}

// A report that finds no file goes where the user looks.
void leaveReport(const Crash& crash, uintptr_t stackPointer) {
  int terminal = STDERR_FILENO;
  ReportWriter message(writeToFile, &terminal);
  const int file = createReport();
  if (file >= 0) {
    writeReport(file, crash, stackPointer);
    close(file);
    message.text("\n").text(kCrashMessage).text(setup.folder);
    message.text("\n\nPlease send the newest .txt file from that folder to the developer.\n");
  } else {
    message.text("\n").text(kCrashMessageUnsaved).text(setup.folder).text("\n\n");
    message.flush();
    writeReport(terminal, crash, stackPointer);
  }
}

void restoreDispositions() {
  for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &setup.before[i], nullptr);
}

// The first thread that crashes reports. Others wait until it has ended the program.
void claimReport() {
  while (crashed.exchange(true)) pause();
}

// All signals are blocked while this runs: a fault in here ends the program at once.
void onSignal(int number, siginfo_t* info, void* context) {
  claimReport();
  const Registers registers = readRegisters(context);
  const auto address = reinterpret_cast<uintptr_t>(info->si_addr);
  const bool aboutAddress = (number == SIGSEGV || number == SIGBUS) && info->si_code > 0 && registers.access != nullptr;
  codeMap.read(registers.stack, aboutAddress ? address : 0);

  Crash crash;
  crash.exceptionCode = static_cast<uint64_t>(number);
  crash.exceptionName = signalName(number, info->si_code);
  crash.place = codeMap.find(registers.code);
  if (aboutAddress) {
    crash.access = registers.access;
    crash.address = address;
    if (number == SIGSEGV && isNear(address, registers.stack) && !codeMap.addressIsReadable()) {
      crash.exceptionName = "stack overflow";
    }
  }
  leaveReport(crash, registers.stack);

  restoreDispositions();
  // Comes when this handler returns, with all that it told about the fault, to the place of the fault.
  syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), number, info);
}

[[noreturn]] void onTerminate() {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  claimReport();
  crashLogTail().addCurrentException();
  Crash crash;
  crash.reason = terminateReason;
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  codeMap.read(here, 0);
  leaveReport(crash, here);
  restoreDispositions();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (setup.terminateBefore != nullptr) setup.terminateBefore();  // prints the exception and aborts
  std::abort();
}

void copyText(char* to, size_t size, std::string_view text) {
  const size_t length = std::min(text.size(), size - 1);
  std::memcpy(to, text.data(), length);
  to[length] = '\0';
}

void prepare(std::string_view appName) {
  copyText(setup.appName, sizeof setup.appName, appName);
  copyText(setup.folder, sizeof setup.folder, toUtf8(userDataFolder() / "crashes"));
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  if (localtime_r(&now, &parts) != nullptr) setup.secondsEastOfUtc = parts.tm_gmtoff;
}

void installHandlers() {
  struct sigaction action = {};
  action.sa_sigaction = onSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigfillset(&action.sa_mask);
  for (size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &action, &setup.before[i]);
    // Whoever started the program may have had it ignored; a program that has crashed cannot go on.
    if (setup.before[i].sa_handler == SIG_IGN) setup.before[i].sa_handler = SIG_DFL;
  }
  setup.terminateBefore = std::set_terminate(onTerminate);
}

}  // namespace

void installCrashHandler(std::string_view appName, LogStore& log) {
  log.mirrorTo(crashLogTail());
  if (kSanitized || setup.appName[0] != '\0') return;
  prepare(appName);
  static const auto* const mainStack = new ThreadCrashStack;  // needed until the very end
  static_cast<void>(mainStack);
  installHandlers();
}

ThreadCrashStack::ThreadCrashStack() {
  if (kSanitized) return;
  // On its own pages, with a guard page below that catches an overflow of this stack as well.
  const auto guard = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* memory = mmap(nullptr, guard + kCrashStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return;
  mprotect(memory, guard, PROT_NONE);
  stack_t stack = {};
  stack.ss_sp = static_cast<char*>(memory) + guard;
  stack.ss_size = kCrashStackSize;
  sigaltstack(&stack, nullptr);
  memory_ = memory;
}

ThreadCrashStack::~ThreadCrashStack() {
  if (memory_ == nullptr) return;
  stack_t none = {};
  none.ss_flags = SS_DISABLE;
  sigaltstack(&none, nullptr);
  munmap(memory_, static_cast<size_t>(sysconf(_SC_PAGESIZE)) + kCrashStackSize);
}

}  // namespace quor

// Takes the place of the C++ library's function of this name, which says no more than std::terminate.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[noreturn]] void __cxa_pure_virtual() {
  quor::terminateReason = quor::kPureCallReason;
  std::terminate();
}
