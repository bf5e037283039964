// One of the programs as a child process, its streams kept in files.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "support/wait_until.h"

namespace quor::test {

struct Ended {
  int exitCode = -1;  // 128 + N when signal N ended it
  std::string out;
  std::string err;
};

class ChildProgram {
 public:
  // `environment`: NAME=VALUE, on top of the test's own.
  ChildProgram(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {}) {
    writeFile(out_, "");
    writeFile(err_, "");
    std::vector<const char*> argv{program.c_str()};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    const std::string out = out_.string();
    const std::string err = err_.string();
    const std::string home = (folder_ / "home").string();
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ > 0) return;
    setenv("XDG_DATA_HOME", home.c_str(), 1);  // not the preferences and logs of whoever runs the tests
    for (const std::string& variable : environment) putenv(const_cast<char*>(variable.c_str()));
    const bool redirected = std::freopen("/dev/null", "r", stdin) && std::freopen(out.c_str(), "w", stdout) &&
                            std::freopen(err.c_str(), "w", stderr);
    if (redirected) execv(program.c_str(), const_cast<char**>(argv.data()));
    _exit(126);
  }
  ~ChildProgram() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  void signal(int number) const { kill(pid_, number); }

  // False when it ended, or ten minutes have passed, without its saying so on standard error.
  bool waitForError(const std::string& part) const {
    bool said = false;
    return waitUntil([&] {
             const bool over = !running();  // asked first: what it says before its end counts
             said = readFile(err_).find(part) != std::string::npos;
             return said || over;
           }) &&
           said;
  }

  // Said so far.
  std::string output() const { return readFile(out_); }
  bool running() const {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
  }

  Ended wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile(out_), readFile(err_)};
  }

 private:
  TempFolder folder_;
  std::filesystem::path out_ = folder_ / "out";
  std::filesystem::path err_ = folder_ / "err";
  pid_t pid_ = -1;
};

inline Ended runCli(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {}) {
  return ChildProgram(OMBRELUX_CLI, arguments, environment).wait();
}

}  // namespace quor::test
