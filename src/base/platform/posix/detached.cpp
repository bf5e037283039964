#include "base/platform/posix/detached.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace quor {

namespace {

// The shell is waited for; once it has ended, the program it has started is the system's child, not this one's.
constexpr const char* kStart = R"("$0" "$@" </dev/null >/dev/null 2>&1 &
child=$!
for tenth in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do
  kill -0 $child 2>/dev/null || { wait $child; exit; }
  PATH=/usr/bin:/bin sleep 0.1
done
exit 0)";

}  // namespace

bool startDetached(const std::filesystem::path& program, const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {"/bin/sh", "-c", kStart, program.native()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  posix_spawnattr_t attributes;
  if (posix_spawnattr_init(&attributes) != 0) return false;
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) {
    posix_spawnattr_destroy(&attributes);
    return false;
  }
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  sigset_t ignored, none;  // by this program; a child must not inherit that
  sigemptyset(&ignored);
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM, SIGHUP}) sigaddset(&ignored, signal);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &ignored);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  pid_t child = -1;
  const int error = posix_spawn(&child, argv.front(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) return false;

  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace quor
