#include "base/text/failure_text.h"

#include <filesystem>
#include <new>
#include <system_error>

#include "base/files/paths.h"

namespace quor {

std::string failureText(const std::exception& error) {
  if (const auto* file = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
    return "Cannot access " + toUtf8(file->path1()) + ": " + file->code().message() + ".";
  }
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return "The system has nothing left to give to this program: " + system->code().message() + ".";
  }
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return "The computer's memory is not enough for this.";
  return error.what();
}

}  // namespace quor
