// Another program, run to its end with everything that it prints. What it starts, in whatever generation, ends with it:
// when it exits, when the run is cancelled, and when this program dies, however it dies.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quor {

struct ChildCommand {
  std::filesystem::path program;                                 // a path; PATH is not searched
  std::vector<std::string> arguments;                            // UTF-8, without the program's name
  std::vector<std::pair<std::string, std::string>> environment;  // set for the child on top of this program's own
};

struct ChildResult {
  bool cancelled = false;
  int exitCode = 0;  // 128 + the signal's number when a signal ended it
};

// The program could not be started; what() is the system's reason, or "could not create a pipe".
struct ChildStartError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Runs the program with standard input empty and standard output and error captured together, on the calling thread.
// `onLine` gets every line without its end ("\n", "\r" or both), except empty ones: valid UTF-8 (invalid bytes become
// U+FFFD), lines over 16 KiB in pieces. It may throw: the child is then ended first. `cancelled` is asked at least
// every 50 ms; once it says yes the child and all that it started are killed. Nothing of the child is left when this
// returns or throws. Throws ChildStartError.
ChildResult runChildProcess(const ChildCommand& command, const std::function<void(std::string_view)>& onLine,
                            const std::function<bool()>& cancelled);

}  // namespace quor
