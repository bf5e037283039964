#include "base/process/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "base/platform/posix/guardian.h"
#include "base/process/output_lines.h"

namespace quor {
namespace {

constexpr int kAskEveryMilliseconds = 25;

[[noreturn]] void throwStartError(int error) {
  throw ChildStartError(std::generic_category().message(error));
}

class Descriptor {
 public:
  Descriptor() = default;
  // Takes it over. When a standard stream is closed its number may come out of any call: the child's streams could not
  // be put there one after the other then.
  explicit Descriptor(int number) : number_(number) {
    if (number < 0 || number > STDERR_FILENO) return;
    number_ = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(number);
    errno = error;
  }
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  int number() const { return number_; }  // -1: none
  void reset() {
    if (number_ >= 0) close(std::exchange(number_, -1));
  }

 private:
  int number_ = -1;
};

using DescriptorPair = std::array<Descriptor, 2>;

DescriptorPair takePair(int result, const std::array<int, 2>& numbers) {
  if (result != 0) throw ChildStartError("could not create a pipe");
  DescriptorPair pair{Descriptor(numbers[0]), Descriptor(numbers[1])};
  if (pair[0].number() < 0 || pair[1].number() < 0) throw ChildStartError("could not create a pipe");
  return pair;
}

DescriptorPair makePipe() {
  std::array<int, 2> numbers{};
  const int result = pipe2(numbers.data(), O_CLOEXEC);
  return takePair(result, numbers);
}

DescriptorPair makeSocketPair() {
  std::array<int, 2> numbers{};
  const int result = socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, numbers.data());
  return takePair(result, numbers);
}

std::vector<std::string> withOwnEnvironment(const ChildCommand& command) {
  std::vector<std::string> variables;
  for (const auto& [name, value] : command.environment) variables.emplace_back(name).append("=").append(value);
  const size_t set = variables.size();
  for (char** variable = environ; variable && *variable; ++variable) {
    const std::string_view text = *variable;
    const std::string_view name = text.substr(0, text.find('='));
    bool replaced = false;
    for (size_t i = 0; i < set; ++i) replaced |= name == command.environment[i].first;
    if (!replaced) variables.emplace_back(text);
  }
  return variables;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (std::string& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

// The child and its guardian, both of which end with this object.
class GuardedProcess {
 public:
  explicit GuardedProcess(const ChildCommand& command) {
    std::vector<std::string> arguments = command.arguments;
    arguments.insert(arguments.begin(), command.program.native());
    std::vector<std::string> variables = withOwnEnvironment(command);
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> environment = pointers(variables);

    DescriptorPair output = makePipe();
    DescriptorPair life = makeSocketPair();
    const Descriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (input.number() < 0) throwStartError(errno);
    fcntl(output[0].number(), F_SETFL, O_NONBLOCK);
    fork({argv[0], argv.data(), environment.data(), input.number(), output[1].number(), life[1].number()});
    output_ = std::move(output[0]);
    life_ = std::move(life[0]);
  }
  ~GuardedProcess() {
    shutdown(life_.number(), SHUT_WR);
    while (waitpid(guardian_, nullptr, 0) < 0 && errno == EINTR) continue;
  }
  GuardedProcess(const GuardedProcess&) = delete;
  GuardedProcess& operator=(const GuardedProcess&) = delete;

  // Waits a little for output, which goes to `lines`, or for the end of the child. True: it has ended. Throws
  // ChildStartError.
  bool pump(OutputLines& lines, int& exitCode) {
    pollfd watched[] = {{output_.number(), POLLIN, 0}, {life_.number(), POLLIN, 0}};
    if (poll(watched, 2, kAskEveryMilliseconds) <= 0) return false;
    if (watched[1].revents != 0) {
      exitCode = receiveExitCode();
      while (readOutput(lines)) continue;
      return true;
    }
    readOutput(lines);
    return false;
  }

 private:
  void fork(const GuardedChild& child) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    guardian_ = ::fork();
    const int error = errno;
    if (guardian_ == 0) guardChild(child);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (guardian_ < 0) throwStartError(error);
  }

  int receiveExitCode() {
    GuardianReport report;
    if (recv(life_.number(), &report, sizeof report, 0) != sizeof report) return 128 + SIGKILL;  // somebody killed it
    if (report.startError != 0) throwStartError(report.startError);
    return report.exitCode;
  }

  // False when nothing is waiting now.
  bool readOutput(OutputLines& lines) {
    std::array<char, size_t{64} * 1024> buffer;
    const ssize_t length = read(output_.number(), buffer.data(), buffer.size());
    if (length == 0) output_.reset();  // closed by all who had it; the child may go on
    if (length <= 0) return false;
    lines.add({buffer.data(), static_cast<size_t>(length)});
    return true;
  }

  pid_t guardian_ = -1;
  Descriptor output_;
  Descriptor life_;
};

}  // namespace

ChildResult runChildProcess(const ChildCommand& command, const std::function<void(std::string_view)>& onLine,
                            const std::function<bool()>& cancelled) {
  ChildResult result;
  OutputLines lines(onLine);
  GuardedProcess child(command);
  while (!child.pump(lines, result.exitCode)) {
    result.cancelled = cancelled();
    if (result.cancelled) return result;
  }
  lines.finish();
  return result;
}

}  // namespace quor
