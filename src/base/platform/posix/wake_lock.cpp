// By a child process, systemd-inhibit, that holds the lock as long as the program it runs, which does nothing. The
// guardian ends both with this program, however it ends.
#include "base/desktop/wake_lock.h"

#include <atomic>
#include <system_error>
#include <thread>

#include "base/process/child_process.h"
#include "base/process/tool_places.h"

namespace quor {

struct WakeLock::State {
  std::atomic<bool> over = false;
  std::thread thread;

  explicit State(ChildCommand command)
      : thread([this, command = std::move(command)] {
          try {
            runChildProcess(
                command, [](std::string_view) {}, [this] { return over.load(); });
          } catch (const std::exception&) {  // the computer may sleep then
          }
        }) {}
  ~State() {
    over = true;
    thread.join();
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
};

WakeLock::WakeLock(const std::string& reason) {
  const std::filesystem::path inhibit = findOnSearchPath("systemd-inhibit"), sleep = findOnSearchPath("sleep");
  if (inhibit.empty() || sleep.empty()) return;
  try {
    state_ = std::make_unique<State>(ChildCommand{
        inhibit,
        {"--what=idle:sleep", "--who=Ombrelux", "--why=" + reason, "--mode=block", sleep.native(), "infinity"},
        {}});
  } catch (const std::system_error&) {  // no thread can be had
  }
}

WakeLock::~WakeLock() = default;

}  // namespace quor
