#include "base/files/paths.h"

#include <cstdlib>

namespace quor {

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  if (!value) return std::nullopt;
  return value;
}

void setEnvironmentVariable(const char* name, const char* value) {
  if (value) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
}

std::filesystem::path userDataFolder() {
  // A relative path in either variable means nothing here: it would point somewhere else after every `cd`.
  const std::filesystem::path data = environmentVariable("XDG_DATA_HOME").value_or("");
  if (data.is_absolute()) return data / "Ombrelux";
  const std::filesystem::path home = environmentVariable("HOME").value_or("");
  if (home.is_absolute()) return home / ".local" / "share" / "Ombrelux";
  std::error_code error;
  const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
  return (error ? std::filesystem::path("/tmp") : temporary) / "Ombrelux";
}

std::filesystem::path executableFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

}  // namespace quor
