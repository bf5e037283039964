// Sets or unsets an environment variable and puts back what was there.
#pragma once

#include <optional>
#include <string>

#include "base/files/paths.h"

namespace quor::test {

class ScopedEnvironment {
 public:
  // A null value unsets the variable.
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    before_ = environmentVariable(name);
    setEnvironmentVariable(name, value);
  }
  ~ScopedEnvironment() { setEnvironmentVariable(name_.c_str(), before_ ? before_->c_str() : nullptr); }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace quor::test
