#include "base/failures.h"

#include <filesystem>
#include <new>
#include <system_error>

#include "base/files/paths.h"

namespace quor {
namespace {

template <class Type>
bool is(const std::exception& error) {
  return dynamic_cast<const Type*>(&error) != nullptr;
}

}  // namespace

Outcome outcomeOf(const std::exception& error) {
  if (is<Cancelled>(error)) return Outcome::Cancelled;
  if (is<OutOfGpuMemory>(error)) return Outcome::OutOfGpuMemory;
  if (is<DeviceLost>(error)) return Outcome::DeviceLost;
  if (is<DiskFull>(error)) return Outcome::DiskFull;
  if (is<std::bad_alloc>(error)) return Outcome::OutOfMemory;
  return Outcome::Failed;
}

void throwAs(Outcome outcome, const std::string& text) {
  switch (outcome) {
    case Outcome::Cancelled:
      throw Cancelled();
    case Outcome::OutOfGpuMemory:
      throw OutOfGpuMemory(text);
    case Outcome::DeviceLost:
      throw DeviceLost(text);
    case Outcome::DiskFull:
      throw DiskFull(text);
    case Outcome::Success:
    case Outcome::OutOfMemory:
    case Outcome::Failed:
      break;
  }
  throw std::runtime_error(text);
}

std::string failureText(const std::exception& error) {
  if (const auto* file = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
    return "Cannot access " + toUtf8(file->path1()) + ": " + file->code().message() + ".";
  }
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return "The system has nothing left to give to this program: " + system->code().message() + ".";
  }
  if (is<std::bad_alloc>(error)) return "The computer's memory is not enough for this.";
  return error.what();
}

}  // namespace quor
