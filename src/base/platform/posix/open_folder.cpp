#include "base/desktop/open_folder.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/process/tool_finder.h"
#include "base/process/tool_places.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

// The shell ends at once and is waited for; the program it started then belongs to init, not to this process.
constexpr const char* kStart = "\"$0\" \"$1\" </dev/null >/dev/null 2>&1 &";

bool runDetached(std::string program, std::string argument) {
  std::string shell = "/bin/sh", option = "-c", script = kStart;
  char* const arguments[] = {shell.data(), option.data(), script.data(), program.data(), argument.data(), nullptr};

  posix_spawnattr_t attributes;
  if (posix_spawnattr_init(&attributes) != 0) return false;
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return false;
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  sigset_t ignored, none;  // of this program's, which the other one must not inherit
  sigemptyset(&ignored);
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM, SIGHUP}) sigaddset(&ignored, signal);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &ignored);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  pid_t child = -1;
  const int error = posix_spawn(&child, shell.c_str(), &actions, &attributes, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) return false;

  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

bool openFolder(const fs::path& folder) {
  std::error_code error;
  if (!fs::is_directory(folder, error)) return false;
  for (const fs::path& place : searchPathFolders()) {
    const fs::path opener = place / "xdg-open";
    if (isProgramFile(opener)) return runDetached(opener.native(), fs::absolute(folder, error).native());
  }
  return false;
}

}  // namespace quor
