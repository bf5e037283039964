// Failures that somebody acts upon, told apart by type and never by their text. Everything else is a std::runtime_error
// whose text is a sentence for the user.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace quor {

// Work that was asked to end. Its text is what the user reads.
class Cancelled : public std::runtime_error {
 public:
  Cancelled() : std::runtime_error("Cancelled") {}
};

// A GPU allocation was refused: the same work may fit with a lower splat budget or training resolution.
class OutOfGpuMemory : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The GPU was reset or hangs: nothing that was made on it can be used again.
class DeviceLost : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A file could not be written because its disk is full.
class DiskFull : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// How work ended, for snapshots that outlive the exception.
enum class Outcome { Success, Cancelled, OutOfGpuMemory, OutOfMemory, DeviceLost, DiskFull, Failed };

// By the exception's type; never Success.
Outcome outcomeOf(const std::exception& error);

// Throws the exception of that type again, for who waited for work on another thread.
[[noreturn]] void throwAs(Outcome outcome, const std::string& text);

// A whole sentence for the user, also for exceptions of the standard library, whose messages are not sentences.
std::string failureText(const std::exception& error);

}  // namespace quor
