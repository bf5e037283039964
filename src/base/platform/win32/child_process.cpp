#include "base/process/child_process.h"

#include <array>
#include <memory>

#include "base/files/paths.h"
#include "base/platform/win32/command_text.h"
#include "base/platform/win32/windows_api.h"
#include "base/process/output_lines.h"
#include "base/text/text.h"

namespace quor {
namespace {

constexpr DWORD kAskEveryMilliseconds = 25;
constexpr UINT kKilled = 1;

[[noreturn]] void throwStartError() {
  throw ChildStartError(systemMessage(GetLastError()));
}

// Lets a child inherit the handles named and no others: those of another child that is started at the same time would
// keep its pipe open.
class InheritOnly {
 public:
  explicit InheritOnly(std::array<HANDLE, 2> handles) : handles_(handles) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    memory_.resize(size);
    if (InitializeProcThreadAttributeList(list(), 1, 0, &size) == 0) throwStartError();
    if (UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(), sizeof handles_,
                                  nullptr, nullptr) == 0) {
      const DWORD error = GetLastError();
      DeleteProcThreadAttributeList(list());
      throw ChildStartError(systemMessage(error));
    }
  }
  ~InheritOnly() { DeleteProcThreadAttributeList(list()); }
  InheritOnly(const InheritOnly&) = delete;
  InheritOnly& operator=(const InheritOnly&) = delete;

  LPPROC_THREAD_ATTRIBUTE_LIST list() { return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data()); }

 private:
  std::array<HANDLE, 2> handles_;
  std::vector<char> memory_;
};

// All that a child starts is in the job with it, and the system ends the job when this program, the only one to hold
// it, is gone.
Handle makeJob() {
  Handle job(CreateJobObjectW(nullptr, nullptr));
  if (!job) throwStartError();
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits) == 0) {
    throwStartError();
  }
  return job;
}

// A batch file is run by the command interpreter, which takes its arguments apart by rules of its own, and runs what it
// finds in them.
void refuseBatchFile(const std::filesystem::path& program) {
  const std::string extension = toLower(toUtf8(program.extension()));
  if (extension == ".bat" || extension == ".cmd") throw ChildStartError("it is a batch file; name the .exe file");
}

// The child and its job, both of which end with this object.
class JobProcess {
 public:
  explicit JobProcess(const ChildCommand& command) : job_(makeJob()) {
    refuseBatchFile(command.program);
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE read = nullptr, write = nullptr;
    if (CreatePipe(&read, &write, &inherited, 1 << 16) == 0) throw ChildStartError("could not create a pipe");
    output_ = Handle(read);
    const Handle output(write);
    const Handle input(
        CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0, nullptr));
    if (!input) throwStartError();
    SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    start(command, input.get(), output.get());
  }
  ~JobProcess() { endAll(); }
  JobProcess(const JobProcess&) = delete;
  JobProcess& operator=(const JobProcess&) = delete;

  // Waits a little for output, which goes to `lines`, or for the end of the child. True: it has ended.
  bool pump(OutputLines& lines, int& exitCode) {
    if (readOutput(lines)) return false;
    if (WaitForSingleObject(process_.get(), kAskEveryMilliseconds) != WAIT_OBJECT_0) return false;
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    exitCode = static_cast<int>(code);
    endAll();
    while (readOutput(lines)) continue;
    return true;
  }

 private:
  void start(const ChildCommand& command, HANDLE input, HANDLE output) {
    InheritOnly inherit({input, output});
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = input;
    startup.StartupInfo.hStdOutput = startup.StartupInfo.hStdError = output;
    startup.lpAttributeList = inherit.list();
    std::wstring line = commandLine(command);
    std::wstring environment = environmentBlock(command);
    PROCESS_INFORMATION made = {};
    // Without the console of this program: its Ctrl-C is for this program to judge.
    constexpr DWORD kFlags =
        CREATE_SUSPENDED | CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT;
    if (CreateProcessW(command.program.c_str(), line.data(), nullptr, nullptr, TRUE, kFlags, environment.data(),
                       nullptr, &startup.StartupInfo, &made) == 0) {
      throwStartError();
    }
    process_ = Handle(made.hProcess);
    const Handle thread(made.hThread);
    // Before its first instruction, so that nothing it starts can get away.
    if (AssignProcessToJobObject(job_.get(), process_.get()) == 0) {
      const DWORD error = GetLastError();
      TerminateProcess(process_.get(), kKilled);
      throw ChildStartError(systemMessage(error));
    }
    ResumeThread(thread.get());
  }

  void endAll() {
    if (!job_) return;
    TerminateJobObject(job_.get(), kKilled);
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION left = {};
    do {
      Sleep(left.ActiveProcesses > 0 ? 1 : 0);
      if (QueryInformationJobObject(job_.get(), JobObjectBasicAccountingInformation, &left, sizeof left, nullptr) ==
          0) {
        break;
      }
    } while (left.ActiveProcesses > 0);
    job_.reset();
  }

  // False when nothing is waiting now.
  bool readOutput(OutputLines& lines) {
    DWORD waiting = 0;
    if (PeekNamedPipe(output_.get(), nullptr, 0, nullptr, &waiting, nullptr) == 0 || waiting == 0) return false;
    std::array<char, size_t{64} * 1024> buffer;
    DWORD length = 0;
    if (ReadFile(output_.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &length, nullptr) == 0) return false;
    lines.add({buffer.data(), length});
    return length > 0;
  }

  Handle job_;
  Handle process_;
  Handle output_;
};

}  // namespace

ChildResult runChildProcess(const ChildCommand& command, const std::function<void(std::string_view)>& onLine,
                            const std::function<bool()>& cancelled) {
  ChildResult result;
  OutputLines lines(onLine);
  JobProcess child(command);
  while (!child.pump(lines, result.exitCode)) {
    result.cancelled = cancelled();
    if (result.cancelled) return result;
  }
  lines.finish();
  return result;
}

}  // namespace quor
